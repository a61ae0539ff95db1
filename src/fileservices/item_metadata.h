#pragma once
// ItemMetadata: the file-system metadata of one item that travels with it
// inside a ZIP archive as the member "metadata.plist" (an XML property
// list): its attributes under the platform's file-attribute keys, its raw
// statx ("VTFM_CatalogInfo") and stat ("VTFM_BSDStatus") records, its user
// extended attributes, its comment and its ACL text.
//
// The plist comes from outside, so reading it is bounded: nesting, entry
// counts and sizes are limited, wrong-typed values are ignored, and any
// failure is an Error naming what was wrong.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/dates.h"
#include "foundation/expected.h"

namespace halyard::fileservices {

inline constexpr const char* kMetadataMemberName = "metadata.plist";

// The attributes, named as the platform's file manager names them.
struct FileAttributes {
  std::optional<std::uint64_t> posixPermissions;     // NSFilePosixPermissions
  std::optional<std::uint64_t> ownerAccountID;       // NSFileOwnerAccountID
  std::optional<std::uint64_t> groupOwnerAccountID;  // NSFileGroupOwnerAccountID
  std::optional<std::string> ownerAccountName;       // NSFileOwnerAccountName
  std::optional<std::string> groupOwnerAccountName;  // NSFileGroupOwnerAccountName
  std::optional<TimeInterval> modificationDate;      // NSFileModificationDate
  std::optional<TimeInterval> creationDate;          // NSFileCreationDate
  std::optional<bool> appendOnly;                    // NSFileAppendOnly
  bool operator==(const FileAttributes&) const = default;
};

struct ItemMetadata {
  FileAttributes attributes;
  std::optional<std::string> catalogInfo;  // raw struct statx
  std::optional<std::string> bsdStatus;    // raw struct stat, inode flags in its spare word
  std::vector<std::pair<std::string, std::string>> extendedAttributes;  // name, value
  std::optional<std::string> finderComment;
  std::optional<std::string> acl;  // ACL text with its terminating zero byte
  bool operator==(const ItemMetadata&) const = default;
};

// The XML property list of the metadata.
std::string metadataPlistXML(const ItemMetadata& metadata);
// The metadata read back from an XML property list.
Expected<ItemMetadata> parseMetadataPlist(std::string_view xml);

}  // namespace halyard::fileservices
