#pragma once
// The small file-system steps of the ZIP transfer: its temporary folder,
// the plist file written new and read back bounded, flushing the archive,
// and the free space at the destination.

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/expected.h"

namespace halyard::fileservices {

// A new folder "hy.vtfm.temp.XXXXXX" in the user's temporary folder
// ($TMPDIR when it is an absolute path, else /tmp).
std::optional<std::string> makeTemporaryFolder();
// Writes a file that must not exist yet and flushes it; 0 or the errno value.
int writeNewFile(const std::string& path, const std::string& contents);
// A regular file (not a link) of at most `limit` bytes.
Expected<std::string> readRegularFile(const std::string& path, std::uint64_t limit);
// Flushes the file to disk; 0 or the errno value.
int syncFile(const std::string& path);
// Bytes free to an unprivileged writer on the folder's file system.
std::optional<std::uint64_t> freeBytesAt(const std::string& folder);
// True when anything, a dangling link too, stands at the path.
bool itemExists(const std::string& path);

}  // namespace halyard::fileservices
