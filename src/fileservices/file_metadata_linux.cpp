// Comments, inode flags and extended attributes through the Linux calls:
// {get,set,list}xattr and the FS_IOC_{GET,SET}FLAGS ioctls.

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fileservices/file_metadata.h"
#include "foundation/unique_handle.h"

namespace halyard::fileservices {

namespace {

// An attribute list or value: sized first, then read; retried when it grew
// in between.
template <class Call>
std::optional<std::string> readSized(Call call) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    ssize_t size = call(nullptr, 0);
    if (size < 0) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    ssize_t got = call(bytes.data(), bytes.size());
    if (got >= 0) {
      bytes.resize(static_cast<std::size_t>(got));
      return bytes;
    }
    if (errno != ERANGE) return std::nullopt;
  }
  return std::nullopt;
}

int inodeFlags(const std::string& path, unsigned* flags) {
  // O_NONBLOCK keeps a FIFO from blocking the open.
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) return errno;
  int value = 0;
  const int rc = ioctl(fd.get(), FS_IOC_GETFLAGS, &value) == 0 ? 0 : errno;
  *flags = static_cast<unsigned>(value);
  return rc;
}

}  // namespace

std::optional<std::string> readComment(const std::string& path) {
  return readSized([&](char* data, std::size_t size) { return getxattr(path.c_str(), kCommentAttribute, data, size); });
}

int writeComment(const std::string& path, const std::string& comment) {
  return setxattr(path.c_str(), kCommentAttribute, comment.data(), comment.size(), 0) == 0 ? 0 : errno;
}

int removeComment(const std::string& path) { return removexattr(path.c_str(), kCommentAttribute) == 0 ? 0 : errno; }

bool canChangeLock() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) != 0) return false;
  return (data[CAP_LINUX_IMMUTABLE / 32].effective & (1u << (CAP_LINUX_IMMUTABLE % 32))) != 0;
}

bool isLocked(const std::string& path) {
  unsigned flags = 0;
  return inodeFlags(path, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0;
}

int setLocked(const std::string& path, bool locked) {
  if (!canChangeLock()) return 0;
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) return errno;
  int flags = 0;
  if (ioctl(fd.get(), FS_IOC_GETFLAGS, &flags) != 0) return errno;
  flags = locked ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
  return ioctl(fd.get(), FS_IOC_SETFLAGS, &flags) == 0 ? 0 : errno;
}

int copyExtendedAttributes(const std::string& from, const std::string& to, bool noFollow,
                           const std::vector<std::string>& excluded) {
  auto names = readSized([&](char* data, std::size_t size) {
    return noFollow ? llistxattr(from.c_str(), data, size) : listxattr(from.c_str(), data, size);
  });
  if (!names) return errno == ENOTSUP ? 0 : errno;
  for (std::size_t at = 0; at < names->size();) {
    const std::string name = names->c_str() + at;
    at += name.size() + 1;
    if (std::find(excluded.begin(), excluded.end(), name) != excluded.end()) continue;
    auto value = readSized([&](char* data, std::size_t size) {
      return noFollow ? lgetxattr(from.c_str(), name.c_str(), data, size)
                      : getxattr(from.c_str(), name.c_str(), data, size);
    });
    if (!value) continue;  // removed meanwhile
    int rc = noFollow ? lsetxattr(to.c_str(), name.c_str(), value->data(), value->size(), 0)
                      : setxattr(to.c_str(), name.c_str(), value->data(), value->size(), 0);
    // Attributes outside the user namespace (security.*, trusted.*) are kept
    // where the process may write them and skipped otherwise, as cp -a does.
    const bool userAttribute = name.rfind("user.", 0) == 0;
    if (rc != 0 && errno != ENOTSUP && (userAttribute || (errno != EPERM && errno != EACCES))) return errno;
  }
  return 0;
}

std::optional<unsigned> permissionBits(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return std::nullopt;
  return st.st_mode & 07777;
}

std::optional<unsigned> raiseToWritable(const std::string& path) {
  if (geteuid() == 0 || access(path.c_str(), W_OK) == 0) return std::nullopt;
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0 || S_ISLNK(st.st_mode) || (st.st_mode & S_IWUSR)) return std::nullopt;
  const unsigned old = st.st_mode & 07777;
  if (chmod(path.c_str(), old | S_IWUSR) != 0) return std::nullopt;
  return old;
}

void restorePermissionBits(const std::string& path, std::optional<unsigned> bits) {
  if (bits) (void)chmod(path.c_str(), *bits);
}

}  // namespace halyard::fileservices
