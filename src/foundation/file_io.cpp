#include "foundation/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "foundation/scope_guard.h"
#include "foundation/unique_handle.h"

namespace halyard {
namespace {

// Files larger than this are not archives this program wrote or reads.
constexpr off_t kMaxFileSize = off_t{1} << 30;

Error systemError(const std::string& path, const char* action) {
  return makeError(path + ": cannot " + action + ": " + std::strerror(errno));
}

// A file kept behind a symbolic link is written where the link leads: the
// link stays, and every name of the file sees the change.
std::string wherePathLeads(const std::string& path) {
  char* resolved = ::realpath(path.c_str(), nullptr);
  if (!resolved) return path;
  std::string target = resolved;
  std::free(resolved);
  return target;
}

}  // namespace

// Opened without waiting: a FIFO put where a file belongs would otherwise
// hold the caller in open() until some writer came, the agent's main thread
// among them. Only a regular file is read.
Expected<std::string> readWholeFile(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) return systemError(path, "open");
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0) return systemError(path, "read");
  if (S_ISDIR(info.st_mode)) return makeError(path + ": is a folder, not a file");
  if (!S_ISREG(info.st_mode)) return makeError(path + ": is not a regular file");
  if (info.st_size > kMaxFileSize) return makeError(path + ": file too large");
  std::string contents;
  contents.reserve(static_cast<std::size_t>(info.st_size));  // a file rewritten meanwhile still reads whole
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return systemError(path, "read");
    if (n == 0) break;
    contents.append(buffer, static_cast<std::size_t>(n));
    if (static_cast<off_t>(contents.size()) > kMaxFileSize) return makeError(path + ": file too large");
  }
  return contents;
}

Status writeFileAtomically(const std::string& given, const std::string& contents) {
  const std::string path = wherePathLeads(given);
  std::string temporary = path + ".XXXXXX";
  UniqueFd fd(::mkstemp(temporary.data()));
  if (!fd) return systemError(path, "create a temporary file beside");
  ScopeGuard removeTemporary([&] { ::unlink(temporary.c_str()); });
  std::size_t written = 0;
  while (written < contents.size()) {
    const ssize_t n = ::write(fd.get(), contents.data() + written, contents.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return systemError(path, "write");
    written += static_cast<std::size_t>(n);
  }
  // Keep the permissions of the file being replaced; a new file gets 0644.
  struct stat existing {};
  ::fchmod(fd.get(), ::stat(path.c_str(), &existing) == 0 ? (existing.st_mode & 07777) : 0644);
  if (::fsync(fd.get()) != 0) return systemError(path, "flush");
  if (const int error = closeChecked(fd); error != 0) {
    errno = error;
    return systemError(path, "close");
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) return systemError(path, "replace");
  removeTemporary.dismiss();
  return success();
}

}  // namespace halyard
