// Appending, creating and cutting files with open(2), pwrite(2) and
// ftruncate(2). A path that names a symbolic link acts on the file it points
// to, as the user who chose the path expects.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "fileservices/append_stream.h"

namespace halyard::fileservices {

namespace {

constexpr std::size_t kCutBlockSize = 262'144;

bool writeAll(int fd, std::string_view bytes, off_t at, bool append) {
  while (!bytes.empty()) {
    const ssize_t n = append ? ::write(fd, bytes.data(), bytes.size()) : pwrite(fd, bytes.data(), bytes.size(), at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
    at += n;
  }
  return true;
}

int moveTailToStart(int fd, std::uint64_t size, std::uint64_t limit) {
  std::vector<char> block(kCutBlockSize);
  const std::uint64_t skip = size - limit;
  for (std::uint64_t done = 0; done < limit;) {
    const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kCutBlockSize, limit - done));
    const ssize_t got = pread(fd, block.data(), want, static_cast<off_t>(skip + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return got < 0 ? errno : EIO;
    if (!writeAll(fd, {block.data(), static_cast<std::size_t>(got)}, static_cast<off_t>(done), false)) return errno;
    done += static_cast<std::uint64_t>(got);
  }
  return 0;
}

}  // namespace

std::unique_ptr<AppendStream> AppendStream::open(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (!fd) return nullptr;
  return std::unique_ptr<AppendStream>(new AppendStream(std::move(fd)));
}

AppendStream::~AppendStream() = default;

bool AppendStream::write(std::string_view bytes) { return writeAll(fd_.get(), bytes, 0, true); }

int createEmptyFile(const std::string& path) {
  UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  return file ? 0 : errno;
}

int cutFileToTail(const std::string& path, std::uint64_t limit) {
  UniqueFd file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  if (!file) return errno;
  struct stat st {};
  if (fstat(file.get(), &st) != 0) return errno;
  const auto size = static_cast<std::uint64_t>(st.st_size);
  if (!S_ISREG(st.st_mode) || size <= limit) return 0;
  if (int rc = moveTailToStart(file.get(), size, limit); rc != 0) return rc;
  if (ftruncate(file.get(), static_cast<off_t>(limit)) != 0) return errno;
  return fsync(file.get()) == 0 ? 0 : errno;
}

}  // namespace halyard::fileservices
