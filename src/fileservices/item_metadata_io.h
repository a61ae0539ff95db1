#pragma once
// Reading an item's metadata (ItemMetadata) from the file system and
// applying it to an extracted item, never following a symbolic link: a link
// keeps its own owner and times, and takes no mode, ACL or flags.

#include <optional>
#include <string>
#include <vector>

#include "fileservices/item_metadata.h"

namespace halyard::fileservices {

// The attributes, or nothing when the item cannot be examined.
std::optional<FileAttributes> readFileAttributes(const std::string& path);
// The raw statx and stat records (the inode flags in the stat record's
// spare word after st_ctim). 0 or the errno value.
int readRawRecords(const std::string& path, ItemMetadata& metadata);
// The user extended attributes (less the excluded names and the comment),
// the comment when `comments`, the ACL text when `acls` and the item has
// more than its mode.
void readExtras(const std::string& path, bool comments, bool acls, const std::vector<std::string>& excluded,
                ItemMetadata& metadata);

// The extraction steps, in the order they are applied. Failures of the
// first four are ignored; `applyCatalogInfo` answers 0 or the errno value.
void applyFileAttributes(const std::string& path, const FileAttributes& attributes);
void applyExtendedAttributes(const std::string& path,
                             const std::vector<std::pair<std::string, std::string>>& attributes,
                             const std::vector<std::string>& excluded);
void applyComment(const std::string& path, const std::optional<std::string>& comment);
void applyACL(const std::string& path, const std::optional<std::string>& aclText);
int applyCatalogInfo(const std::string& path, const std::optional<std::string>& catalogInfo);
void applyInodeFlags(const std::string& path, const std::optional<std::string>& bsdStatus, bool asRoot);

// The flags to set: as root the stored ones whole; otherwise only the low
// 16 bits that need no capability (never immutable or append-only), the
// rest as they are now.
unsigned inodeFlagsToSet(unsigned stored, unsigned current, bool asRoot);

// Clears the immutable and append-only flags of the item and of everything
// in it, so that it can be removed.
void clearLockFlagsInTree(const std::string& path);

}  // namespace halyard::fileservices
