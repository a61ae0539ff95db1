#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "fileservices/transfer_files.h"
#include "foundation/unique_handle.h"

namespace halyard::fileservices {

std::optional<std::string> makeTemporaryFolder() {
  const char* tmpdir = std::getenv("TMPDIR");
  std::string pattern = (tmpdir && tmpdir[0] == '/') ? tmpdir : "/tmp";
  pattern += "/hy.vtfm.temp.XXXXXX";
  if (!mkdtemp(pattern.data())) return std::nullopt;
  return pattern;
}

int writeNewFile(const std::string& path, const std::string& contents) {
  UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd) return errno;
  for (std::size_t done = 0; done < contents.size();) {
    const ssize_t n = write(fd.get(), contents.data() + done, contents.size() - done);
    if (n < 0 && errno != EINTR) return errno;
    if (n > 0) done += static_cast<std::size_t>(n);
  }
  if (fsync(fd.get()) != 0) return errno;
  return closeChecked(fd);
}

Expected<std::string> readRegularFile(const std::string& path, std::uint64_t limit) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd) return makeError(path + ": " + std::strerror(errno));
  struct stat st {};
  if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return makeError(path + " is not a regular file");
  if (static_cast<std::uint64_t>(st.st_size) > limit) {
    return makeError(path + " is larger than " + std::to_string(limit) + " bytes");
  }
  std::string bytes(static_cast<std::size_t>(st.st_size), '\0');
  std::size_t done = 0;
  for (ssize_t n; done < bytes.size() && (n = read(fd.get(), bytes.data() + done, bytes.size() - done)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    done += static_cast<std::size_t>(n);
  }
  bytes.resize(done);
  return bytes;
}

int syncFile(const std::string& path) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return errno;
  return fsync(fd.get()) == 0 ? 0 : errno;
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
