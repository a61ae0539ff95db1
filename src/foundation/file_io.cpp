#include "foundation/file_io.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace halyard {
namespace {

// Files larger than this are not archives this program wrote or reads.
constexpr off_t kMaxFileSize = off_t{1} << 30;

Error systemError(const std::string& path, const char* action) {
  return makeError(path + ": cannot " + action + ": " + std::strerror(errno));
}

}  // namespace

Expected<std::string> readWholeFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return systemError(path, "open");
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    Error error = systemError(path, "read");
    ::close(fd);
    return error;
  }
  if (S_ISDIR(info.st_mode)) {
    ::close(fd);
    return makeError(path + ": is a folder, not a file");
  }
  if (info.st_size > kMaxFileSize) {
    ::close(fd);
    return makeError(path + ": file too large");
  }
  std::string contents;
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      Error error = systemError(path, "read");
      ::close(fd);
      return error;
    }
    if (n == 0) break;
    contents.append(buffer, static_cast<std::size_t>(n));
    if (static_cast<off_t>(contents.size()) > kMaxFileSize) {
      ::close(fd);
      return makeError(path + ": file too large");
    }
  }
  ::close(fd);
  return contents;
}

Status writeFileAtomically(const std::string& path, const std::string& contents) {
  std::string temporary = path + ".XXXXXX";
  const int fd = ::mkstemp(temporary.data());
  if (fd < 0) return systemError(path, "create a temporary file beside");
  auto fail = [&](const char* action) {
    Error error = systemError(path, action);
    ::close(fd);
    ::unlink(temporary.c_str());
    return error;
  };
  std::size_t written = 0;
  while (written < contents.size()) {
    const ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return fail("write");
    written += static_cast<std::size_t>(n);
  }
  // Keep the permissions of the file being replaced; a new file gets 0644.
  struct stat existing {};
  ::fchmod(fd, ::stat(path.c_str(), &existing) == 0 ? (existing.st_mode & 07777) : 0644);
  if (::fsync(fd) != 0) return fail("flush");
  if (::close(fd) != 0) {
    Error error = systemError(path, "close");
    ::unlink(temporary.c_str());
    return error;
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    Error error = systemError(path, "replace");
    ::unlink(temporary.c_str());
    return error;
  }
  return success();
}

}  // namespace halyard
