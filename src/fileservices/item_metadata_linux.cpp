// Item metadata through the Linux calls: lstat/statx, l*xattr, libacl,
// lchown/fchmodat/utimensat and the FS_IOC_{GET,SET}FLAGS ioctls.

#include <acl/libacl.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sys/acl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <type_traits>

#include "fileservices/file_metadata.h"
#include "fileservices/item_metadata_io.h"
#include "foundation/unique_handle.h"

namespace halyard::fileservices {

namespace {

using Acl = UniqueHandle<CPointer<std::remove_pointer_t<acl_t>, acl_free>>;

// Linux's stat has no st_flags; the record carries the inode flags in the
// word after st_ctim, which lstat leaves unused.
constexpr std::size_t kFlagsOffset = offsetof(struct stat, st_ctim) + sizeof(timespec);
static_assert(kFlagsOffset + sizeof(std::uint32_t) <= sizeof(struct stat));

constexpr unsigned kUserFlags = 0xFFFF & ~static_cast<unsigned>(FS_IMMUTABLE_FL | FS_APPEND_FL);
constexpr unsigned kLockFlags = FS_IMMUTABLE_FL | FS_APPEND_FL;

TimeInterval instantOf(std::int64_t seconds, std::uint32_t nanoseconds) {
  return fromUnixSeconds(static_cast<double>(seconds) + nanoseconds / 1e9);
}

std::optional<std::string> userName(uid_t uid) {
  struct passwd entry {
  }, *found = nullptr;
  char buffer[4096];
  if (getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) != 0 || !found) return std::nullopt;
  return std::string(found->pw_name);
}

std::optional<std::string> groupName(gid_t gid) {
  struct group entry {
  }, *found = nullptr;
  char buffer[4096];
  if (getgrgid_r(gid, &entry, buffer, sizeof buffer, &found) != 0 || !found) return std::nullopt;
  return std::string(found->gr_name);
}

// Runs `use` on a descriptor of the item opened without following a link
// (and without blocking on a FIFO); errno when it cannot be opened.
template <class Use>
int withItemDescriptor(const std::string& path, Use use) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) return errno;
  return use(fd.get());
}

int getFlags(int fd, unsigned* flags) {
  int value = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &value) != 0) return errno;
  *flags = static_cast<unsigned>(value);
  return 0;
}

int setFlags(int fd, unsigned flags) {
  int value = static_cast<int>(flags);
  return ioctl(fd, FS_IOC_SETFLAGS, &value) == 0 ? 0 : errno;
}

bool isLink(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) != 0 || S_ISLNK(st.st_mode);
}

template <class Call>
std::optional<std::string> readSizedAttribute(Call call) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    const ssize_t size = call(nullptr, 0);
    if (size < 0) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    const ssize_t got = call(bytes.data(), bytes.size());
    if (got >= 0) {
      bytes.resize(static_cast<std::size_t>(got));
      return bytes;
    }
    if (errno != ERANGE) return std::nullopt;
  }
  return std::nullopt;
}

// Only user attributes travel: system.* are the ACLs (a member of their
// own), and security.* and trusted.* belong to the machine, never to an
// archive from outside.
bool travels(const std::string& name, const std::vector<std::string>& excluded) {
  return name.rfind("user.", 0) == 0 && name != kCommentAttribute &&
         std::find(excluded.begin(), excluded.end(), name) == excluded.end();
}

std::optional<std::string> accessACLText(const std::string& path) {
  if (isLink(path) || acl_extended_file_nofollow(path.c_str()) <= 0) return std::nullopt;
  const Acl acl(acl_get_file(path.c_str(), ACL_TYPE_ACCESS));
  if (!acl) return std::nullopt;
  ssize_t length = 0;
  const UniqueHandle<CPointer<char, acl_free>> text(acl_to_text(acl.get(), &length));
  if (!text) return std::nullopt;
  return std::string(text.get(), static_cast<std::size_t>(length) + 1);
}

}  // namespace

std::optional<FileAttributes> readFileAttributes(const std::string& path) {
  struct statx sx {};
  if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0) {
    return std::nullopt;
  }
  FileAttributes a;
  a.posixPermissions = sx.stx_mode & 07777;
  a.ownerAccountID = sx.stx_uid;
  a.groupOwnerAccountID = sx.stx_gid;
  a.ownerAccountName = userName(sx.stx_uid);
  a.groupOwnerAccountName = groupName(sx.stx_gid);
  a.modificationDate = instantOf(sx.stx_mtime.tv_sec, sx.stx_mtime.tv_nsec);
  if (sx.stx_mask & STATX_BTIME) a.creationDate = instantOf(sx.stx_btime.tv_sec, sx.stx_btime.tv_nsec);
  if (sx.stx_attributes_mask & STATX_ATTR_APPEND) a.appendOnly = (sx.stx_attributes & STATX_ATTR_APPEND) != 0;
  return a;
}

int readRawRecords(const std::string& path, ItemMetadata& metadata) {
  struct statx sx {};
  if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_ALL, &sx) != 0) return errno;
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return errno;
  std::uint32_t flags = 0;
  if (!S_ISLNK(st.st_mode)) {
    unsigned read = 0;
    if (withItemDescriptor(path, [&](int fd) { return getFlags(fd, &read); }) == 0) flags = read;
  }
  std::string record(reinterpret_cast<const char*>(&st), sizeof st);
  std::memcpy(record.data() + kFlagsOffset, &flags, sizeof flags);
  metadata.catalogInfo = std::string(reinterpret_cast<const char*>(&sx), sizeof sx);
  metadata.bsdStatus = std::move(record);
  return 0;
}

void readExtras(const std::string& path, bool comments, bool acls, const std::vector<std::string>& excluded,
                ItemMetadata& metadata) {
  auto names = readSizedAttribute([&](char* data, std::size_t size) { return llistxattr(path.c_str(), data, size); });
  for (std::size_t at = 0; names && at < names->size();) {
    const std::string name = names->c_str() + at;
    at += name.size() + 1;
    if (!travels(name, excluded)) continue;
    auto value = readSizedAttribute(
        [&](char* data, std::size_t size) { return lgetxattr(path.c_str(), name.c_str(), data, size); });
    if (value) metadata.extendedAttributes.emplace_back(name, std::move(*value));
  }
  if (comments) {
    auto comment = readComment(path);
    if (comment && !comment->empty()) metadata.finderComment = std::move(comment);
  }
  if (acls) metadata.acl = accessACLText(path);
}

void applyFileAttributes(const std::string& path, const FileAttributes& a) {
  const uid_t owner = a.ownerAccountID ? static_cast<uid_t>(*a.ownerAccountID) : static_cast<uid_t>(-1);
  const gid_t group = a.groupOwnerAccountID ? static_cast<gid_t>(*a.groupOwnerAccountID) : static_cast<gid_t>(-1);
  // Owner first: a change of owner clears the set-id bits the mode brings.
  (void)lchown(path.c_str(), owner, group);
  if (a.posixPermissions && !isLink(path)) (void)fchmodat(AT_FDCWD, path.c_str(), *a.posixPermissions & 07777, 0);
  if (a.modificationDate) {
    const double unix = toUnixSeconds(*a.modificationDate);
    const double whole = std::floor(unix);
    const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(whole), static_cast<long>((unix - whole) * 1e9)}};
    (void)utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
}

void applyExtendedAttributes(const std::string& path,
                             const std::vector<std::pair<std::string, std::string>>& attributes,
                             const std::vector<std::string>& excluded) {
  for (const auto& [name, value] : attributes) {
    if (travels(name, excluded)) (void)lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0);
  }
}

void applyComment(const std::string& path, const std::optional<std::string>& comment) {
  if (comment && !comment->empty() && !isLink(path)) (void)writeComment(path, *comment);
}

void applyACL(const std::string& path, const std::optional<std::string>& aclText) {
  if (!aclText || isLink(path)) return;
  const std::string text(aclText->c_str());  // up to its terminating zero
  const Acl acl(acl_from_text(text.c_str()));
  if (acl && acl_valid(acl.get()) == 0) (void)acl_set_file(path.c_str(), ACL_TYPE_ACCESS, acl.get());
}

// Of the catalog information only the access and modification times can
// be set here; a record of another size is not this platform's and is left.
int applyCatalogInfo(const std::string& path, const std::optional<std::string>& catalogInfo) {
  if (!catalogInfo || catalogInfo->size() != sizeof(struct statx)) return 0;
  struct statx sx {};
  std::memcpy(&sx, catalogInfo->data(), sizeof sx);
  const timespec times[2] = {{static_cast<time_t>(sx.stx_atime.tv_sec), static_cast<long>(sx.stx_atime.tv_nsec)},
                             {static_cast<time_t>(sx.stx_mtime.tv_sec), static_cast<long>(sx.stx_mtime.tv_nsec)}};
  return utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

unsigned inodeFlagsToSet(unsigned stored, unsigned current, bool asRoot) {
  const unsigned settable = asRoot ? ~0u : kUserFlags;
  return (current & ~settable) | (stored & settable);
}

void applyInodeFlags(const std::string& path, const std::optional<std::string>& bsdStatus, bool asRoot) {
  if (!bsdStatus || bsdStatus->size() != sizeof(struct stat)) return;
  std::uint32_t stored = 0;
  std::memcpy(&stored, bsdStatus->data() + kFlagsOffset, sizeof stored);
  (void)withItemDescriptor(path, [&](int fd) {
    unsigned current = 0;
    if (int rc = getFlags(fd, &current)) return rc;
    const unsigned wanted = inodeFlagsToSet(stored, current, asRoot);
    return wanted == current ? 0 : setFlags(fd, wanted);
  });
}

void clearLockFlagsInTree(const std::string& path) {
  auto clear = [](const std::string& item) {
    (void)withItemDescriptor(item, [](int fd) {
      unsigned flags = 0;
      if (int rc = getFlags(fd, &flags)) return rc;
      return (flags & kLockFlags) ? setFlags(fd, flags & ~kLockFlags) : 0;
    });
  };
  clear(path);
  std::error_code ec;
  if (!std::filesystem::is_directory(std::filesystem::symlink_status(path, ec))) return;
  for (auto it = std::filesystem::recursive_directory_iterator(path, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    if (!it->is_symlink(ec)) clear(it->path().string());
  }
}

}  // namespace halyard::fileservices
