#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "fileservices/transfer_files.h"

namespace halyard::fileservices {

std::optional<std::string> makeTemporaryFolder() {
  const char* tmpdir = std::getenv("TMPDIR");
  std::string pattern = (tmpdir && tmpdir[0] == '/') ? tmpdir : "/tmp";
  pattern += "/hy.vtfm.temp.XXXXXX";
  if (!mkdtemp(pattern.data())) return std::nullopt;
  return pattern;
}

int writeNewFile(const std::string& path, const std::string& contents) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) return errno;
  int rc = 0;
  for (std::size_t done = 0; rc == 0 && done < contents.size();) {
    const ssize_t n = write(fd, contents.data() + done, contents.size() - done);
    if (n < 0 && errno != EINTR) rc = errno;
    if (n > 0) done += static_cast<std::size_t>(n);
  }
  if (rc == 0 && fsync(fd) != 0) rc = errno;
  close(fd);
  return rc;
}

Expected<std::string> readRegularFile(const std::string& path, std::uint64_t limit) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return makeError(path + ": " + std::strerror(errno));
  struct stat st {};
  std::string bytes;
  std::optional<Error> failure;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    failure = makeError(path + " is not a regular file");
  } else if (static_cast<std::uint64_t>(st.st_size) > limit) {
    failure = makeError(path + " is larger than " + std::to_string(limit) + " bytes");
  } else {
    bytes.resize(static_cast<std::size_t>(st.st_size));
    std::size_t done = 0;
    for (ssize_t n; done < bytes.size() && (n = read(fd, bytes.data() + done, bytes.size() - done)) != 0;) {
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) break;
      done += static_cast<std::size_t>(n);
    }
    bytes.resize(done);
  }
  close(fd);
  if (failure) return *failure;
  return bytes;
}

int syncFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  const int rc = fsync(fd) == 0 ? 0 : errno;
  close(fd);
  return rc;
}

std::optional<std::uint64_t> freeBytesAt(const std::string& folder) {
  struct statvfs st {};
  if (statvfs(folder.c_str(), &st) != 0) return std::nullopt;
  return static_cast<std::uint64_t>(st.f_bavail) * st.f_frsize;
}

bool itemExists(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0;
}

}  // namespace halyard::fileservices
