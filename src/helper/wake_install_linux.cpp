#include "helper/wake_install.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

namespace halyard::wake {
namespace {

constexpr std::string_view kToolSuffix = "/Halyard/WakeToSyncTool";
constexpr char kToolName[] = "WakeToSyncTool";

// A descriptor closed when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

// vfat/msdos, exfat, ntfs (both kernel drivers), FUSE (ntfs-3g and the
// like) and ISO 9660 keep no owners the tool could rely on.
bool keepsNoOwners(long type) {
  constexpr std::array<unsigned long, 6> kTypes{0x4d44, 0x2011BAB0, 0x5346544e, 0x7366746e, 0x65735546, 0x9660};
  for (unsigned long known : kTypes) {
    if (static_cast<unsigned long>(type) == known) return true;
  }
  return false;
}

std::vector<std::string_view> folderComponents(std::string_view folder) {
  std::vector<std::string_view> parts;
  for (std::size_t at = 1; at <= folder.size();) {
    const std::size_t end = std::min(folder.find('/', at), folder.size());
    parts.push_back(folder.substr(at, end - at));
    at = end + 1;
  }
  return parts;
}

// Opens the folder of the copy one component at a time, never through a link.
int openFolder(std::string_view folder, Descriptor& out) {
  Descriptor current(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (current.get() < 0) return errno;
  for (std::string_view part : folderComponents(folder)) {
    if (part.empty() || part == "." || part == "..") return EINVAL;
    const std::string name(part);
    Descriptor next(::openat(current.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (next.get() < 0) return errno;
    current = std::move(next);
  }
  out = std::move(current);
  return 0;
}

int copyBytes(int from, int to) {
  char buffer[65536];
  for (;;) {
    const ssize_t got = ::read(from, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return 0;
    for (ssize_t put = 0; put < got;) {
      const ssize_t wrote = ::write(to, buffer + put, static_cast<std::size_t>(got - put));
      if (wrote < 0) return errno;
      put += wrote;
    }
  }
}

// Root-owned and set-user-id, in that order (a change of owner drops the
// set-user-id bit); a volume that does not keep both ignores ownership.
int makePrivileged(int fd) {
  if (::fchown(fd, 0, 0) != 0 || ::fchmod(fd, 04755) != 0) return errno;
  struct stat info {};
  if (::fstat(fd, &info) != 0) return errno;
  return info.st_uid == 0 && (info.st_mode & S_ISUID) ? 0 : kVolumeIgnoresOwnership;
}

int writeCopy(int folderFd, const std::string& scratch, int sourceFd, bool& created) {
  Descriptor copy(::openat(folderFd, scratch.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0700));
  if (copy.get() < 0) return errno;
  created = true;
  if (::lseek(sourceFd, 0, SEEK_SET) < 0) return errno;
  if (int error = copyBytes(sourceFd, copy.get())) return error;
  if (int error = makePrivileged(copy.get())) return error;
  return ::fsync(copy.get()) == 0 ? 0 : errno;
}

}  // namespace

bool volumeIgnoresOwnership(int folderFd) {
  struct statvfs mount {};
  struct statfs system {};
  if (::fstatvfs(folderFd, &mount) != 0 || ::fstatfs(folderFd, &system) != 0) return false;
  return (mount.f_flag & ST_NOSUID) != 0 || keepsNoOwners(static_cast<long>(system.f_type));
}

int installPrivilegedCopy(const std::string& toolPath, int sourceFd, std::optional<uid_t> caller) {
  const std::string_view path(toolPath);
  if (path.size() <= kToolSuffix.size() || path.front() != '/' || !path.ends_with(kToolSuffix)) return EINVAL;
  Descriptor folder;
  const std::string_view folderPath = path.substr(0, path.size() - std::string_view(kToolName).size() - 1);
  if (int error = openFolder(folderPath, folder)) return error;
  struct stat owner {};
  if (::fstat(folder.get(), &owner) != 0) return errno;
  if (caller && owner.st_uid != *caller) return EPERM;
  if (volumeIgnoresOwnership(folder.get())) return kVolumeIgnoresOwnership;
  // Written under a name of its own, then renamed over the tool: a half-made
  // copy never stands for the tool.
  const std::string scratch = "." + std::string(kToolName) + "." + std::to_string(::getpid());
  bool created = false;
  int error = writeCopy(folder.get(), scratch, sourceFd, created);
  if (!error && ::renameat(folder.get(), scratch.c_str(), folder.get(), kToolName) != 0) error = errno;
  if (error) {
    if (created) ::unlinkat(folder.get(), scratch.c_str(), 0);
    return error;
  }
  return ::fsync(folder.get()) == 0 ? 0 : errno;
}

}  // namespace halyard::wake
