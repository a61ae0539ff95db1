#pragma once
// The document alias: a small bookmark that finds a document again after its
// volume has been mounted somewhere else. It is the archive of a dictionary
// {"path": absolute path, "volumeUUID": the volume's UUID (when known),
// "relativePath": the path below the top of the volume's file system (below
// its mount point when the whole file system is mounted), "inode": the
// file's inode number}. Resolving tries the volume by UUID where it is
// mounted now, then the absolute path, and answers absent when neither
// exists. Resolution never mounts anything.

#include <memory>
#include <optional>
#include <string>

#include "fileservices/alias_file_system.h"
#include "foundation/values.h"

namespace halyard::fileservices {

// The alias of an existing file or folder at an absolute path; null when the
// path is not absolute or does not exist.
std::shared_ptr<Data> createAliasObjectFromNSPath(const std::string& path,
                                                  const AliasFileSystem& fileSystem = systemAliasFileSystem());

// The path an alias leads to now; absent for an absent alias, bytes that are
// not an alias, or a document that is found neither way. `passively` asks
// that nothing be mounted, which is always so here.
std::optional<std::string> getNSPathFromAliasObject(const std::shared_ptr<Data>& alias, bool passively,
                                                    const AliasFileSystem& fileSystem = systemAliasFileSystem());

}  // namespace halyard::fileservices
