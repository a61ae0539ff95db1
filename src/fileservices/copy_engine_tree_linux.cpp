// TreeCopier on Linux: *at() calls relative to open folders, metadata through
// the descriptors of the items themselves.

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "fileservices/copy_engine_tree.h"
#include "fileservices/file_metadata.h"

namespace halyard::fileservices {

namespace {

constexpr int kPartialAttempts = 16;
constexpr unsigned kLockFlags = FS_IMMUTABLE_FL | FS_APPEND_FL;

// Sixteen hex digits from the kernel's random source.
std::string randomPart() {
  std::random_device source;
  const std::uint64_t value = (std::uint64_t{source()} << 32) | source();
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
  return text;
}

unsigned userFlags(int fd) {
  int flags = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) return 0;
  return static_cast<unsigned>(flags) & FS_FL_USER_MODIFIABLE;
}

std::string attributeDescription(const std::string& name) {
  if (name == kCommentAttribute) return "the comment";
  if (name.rfind("system.posix_acl", 0) == 0) return "the access control list";
  return "the extended attribute " + name;
}

// An attribute list or value: read into a small buffer first (most fit),
// else sized, then read; retried when it grew in between.
template <class Call>
bool readSized(std::string& bytes, Call call) {
  char small[512];
  if (const ssize_t got = call(small, sizeof small); got >= 0) {
    bytes.assign(small, static_cast<std::size_t>(got));
    return true;
  }
  if (errno != ERANGE) return false;
  for (int attempt = 0; attempt < 4; ++attempt) {
    const ssize_t size = call(nullptr, 0);
    if (size < 0) return false;
    bytes.assign(static_cast<std::size_t>(size), '\0');
    const ssize_t got = call(bytes.data(), bytes.size());
    if (got >= 0) {
      bytes.resize(static_cast<std::size_t>(got));
      return true;
    }
    if (errno != ERANGE) return false;
  }
  return false;
}

bool cannotHold(int rc) { return rc == ENOTSUP || rc == EOPNOTSUPP || rc == EPERM || rc == EACCES || rc == ENOTTY; }

}  // namespace

std::string partialPrefixFor(const std::string& destName) {
  return "." + destName.substr(0, 200) + ".halyard-partial-";
}

int TreeCopier::copyToPartial(int srcParentFd, const std::string& srcPath, int destParentFd,
                              const std::string& destPath) {
  const std::string folder = parentOf(destPath);
  int rc = EEXIST;
  for (int attempt = 0; attempt < kPartialAttempts && rc == EEXIST && !madeTop_; ++attempt) {
    partialName_ = partialPrefixFor(nameOf(destPath)) + std::to_string(getpid()) + "-" + randomPart();
    // Messages name the item by its final name; the partial is hidden.
    const Item dest{destParentFd, partialName_, destPath};
    rc = engineStep(setup_, EngineStep::CreatePartial, joinPath(folder, partialName_));
    if (rc == 0) rc = copyNode({srcParentFd, nameOf(srcPath), srcPath}, dest, "");
  }
  if (rc != 0) return rc;
  struct stat st {};
  if (fstatat(destParentFd, partialName_.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  return flushPartial(destParentFd, joinPath(folder, partialName_), st);
}

// A single file was flushed when it was written; a tree is flushed with one
// syncfs: ext4 commits its journal at every fsync (4 ms each here), which
// would make a tree of 10,000 files forty times slower than cp.
int TreeCopier::flushPartial(int destParentFd, const std::string& partialPath, const struct stat& st) {
  if (S_ISREG(st.st_mode)) return 0;
  if (int rc = engineStep(setup_, EngineStep::FlushFileSystem, partialPath)) return rc;
  return syncfs(destParentFd) == 0 ? 0 : errno;
}

int TreeCopier::applyTopFlags(int destParentFd, const std::string& destName, const std::string& destPath) {
  if (topFlags_ == 0) return 0;
  UniqueFd item(openat(destParentFd, destName.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!item.valid()) return errno;
  return keepFlags(topFlags_, item.get(), destPath);
}

// The first item made is the partial itself: from then on it is this
// copy's to remove.
int TreeCopier::created(int rc) {
  if (rc == 0) madeTop_ = true;
  return rc;
}

void TreeCopier::holdPartial(int fd) {
  partialLock_ = UniqueFd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (partialLock_.valid()) (void)flock(partialLock_.get(), LOCK_EX | LOCK_NB);
}

// The first item that fails is the one the failure names (a name taken by
// another item is not a failure yet: the partial gets another name).
int TreeCopier::copyNode(const Item& src, const Item& dest, const std::string& relative) {
  const int rc = copyItemAt(src, dest, relative);
  if (rc != 0 && rc != kUserCanceledErr && (madeTop_ || rc != EEXIST))
    reportFailure(setup_, "could not copy " + src.path + ": " + std::strerror(rc));
  return rc;
}

int TreeCopier::copyItemAt(const Item& src, const Item& dest, const std::string& relative) {
  struct stat st {};
  if (fstatat(src.dirFd, src.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  ++count_.items;
  if (S_ISREG(st.st_mode)) {
    count_.bytes += st.st_size;
    if (st.st_nlink > 1 && !relative.empty()) {
      auto [at, first] = linked_.try_emplace({st.st_dev, st.st_ino}, relative);
      if (!first) {
        if (linkat(rootFd_, at->second.c_str(), dest.dirFd, dest.name.c_str(), 0) == 0) {
          copied(st);
          return 0;
        }
        if (errno != EPERM) return errno;
        // A locked or append-only file takes no new links: this name gets
        // a copy of its own, and the link is reported.
        if (int rc = loss(dest.path, "the hard link to " + at->second)) return rc;
      }
    }
    return copyFile(src, dest, st, relative);
  }
  if (S_ISDIR(st.st_mode)) return copyFolder(src, dest, st, relative);
  return copyOther(src, dest, st);
}

int TreeCopier::copyFile(const Item& src, const Item& dest, const struct stat& st, const std::string& relative) {
  UniqueFd in(openat(src.dirFd, src.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!in.valid()) return errno;
  struct stat opened {};
  if (fstat(in.get(), &opened) != 0) return errno;
  if (!S_ISREG(opened.st_mode)) return ENOENT;  // replaced since it was examined
  UniqueFd out(openat(dest.dirFd, dest.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (int rc = created(out.valid() ? 0 : errno)) return rc;
  if (relative.empty()) holdPartial(out.get());
  if (opened.st_size > static_cast<off_t>(setup_.bufferSize)) posix_fadvise(in.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  if (int rc = copyFileData(in.get(), out.get(), opened, setup_)) return rc;
  if (int rc = applyMetadata(in.get(), out.get(), st, dest.path, relative.empty())) return rc;
  struct stat after {};
  if (fstat(in.get(), &after) != 0) return errno;
  if (!(ItemState::of(after) == ItemState::of(opened))) {
    reportFailure(setup_, src.path + " changed while it was being copied");
    return EAGAIN;
  }
  copied(after);
  if (relative.empty()) {
    if (int rc = engineStep(setup_, EngineStep::FlushFile, dest.path)) return rc;
    if (fsync(out.get()) != 0) return errno;
  }
  return closeChecked(out);
}

int TreeCopier::copyFolder(const Item& src, const Item& dest, const struct stat& st, const std::string& relative) {
  if (int rc = engineStep(setup_, EngineStep::OpenFolder, src.path)) return rc;
  UniqueFd in;
  if (int rc = openFolderAt(src.dirFd, src.name, in)) return rc;
  if (int rc = created(mkdirat(dest.dirFd, dest.name.c_str(), S_IRWXU) == 0 ? 0 : errno)) return rc;
  UniqueFd out;
  if (int rc = openFolderAt(dest.dirFd, dest.name, out)) return rc;
  if (relative.empty()) {
    rootFd_ = out.get();
    holdPartial(out.get());
  }
  std::vector<std::string> names;
  if (int rc = listFolder(in.get(), names)) return rc;
  for (const std::string& name : names) {
    const std::string inner = relative.empty() ? name : relative + "/" + name;
    const int rc =
        copyNode({in.get(), name, joinPath(src.path, name)}, {out.get(), name, joinPath(dest.path, name)}, inner);
    if (rc != 0) return rc;
  }
  copied(st);
  return applyMetadata(in.get(), out.get(), st, dest.path, relative.empty());
}

// Links, FIFOs, sockets and devices: no data, no attributes of their own
// that a process may set; owner, mode and times are kept.
int TreeCopier::copyOther(const Item& src, const Item& dest, const struct stat& st) {
  int rc = 0;
  if (S_ISLNK(st.st_mode)) {
    std::string target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 4095) + 1, '\0');
    const ssize_t size = readlinkat(src.dirFd, src.name.c_str(), target.data(), target.size());
    if (size < 0) return errno;
    target.resize(static_cast<std::size_t>(size));
    rc = symlinkat(target.c_str(), dest.dirFd, dest.name.c_str()) == 0 ? 0 : errno;
  } else {
    rc = mknodat(dest.dirFd, dest.name.c_str(), st.st_mode, st.st_rdev) == 0 ? 0 : errno;
  }
  if ((rc = created(rc)) != 0) return rc;
  copied(st);
  rc = keepOwner(st, dest.path, [&](uid_t uid, gid_t gid) {
    return fchownat(dest.dirFd, dest.name.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW);
  });
  if (rc != 0) return rc;
  if (!S_ISLNK(st.st_mode) && fchmodat(dest.dirFd, dest.name.c_str(), st.st_mode & 07777, 0) != 0) return errno;
  const timespec times[2] = {st.st_atim, st.st_mtim};
  return utimensat(dest.dirFd, dest.name.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

// Attributes, owner, mode, times, then the flags: a change of owner may
// clear the set-id bits, writing changes the times, and a locked item takes
// no change at all.
int TreeCopier::applyMetadata(int srcFd, int destFd, const struct stat& st, const std::string& destPath, bool top) {
  if (int rc = copyAttributes(srcFd, destFd, destPath)) return rc;
  if (int rc = keepOwner(st, destPath, [&](uid_t uid, gid_t gid) { return fchown(destFd, uid, gid); })) return rc;
  if (fchmod(destFd, st.st_mode & 07777) != 0) return errno;
  const timespec times[2] = {st.st_atim, st.st_mtim};
  if (futimens(destFd, times) != 0) return errno;
  const unsigned flags = userFlags(srcFd);
  if (top) {
    topFlags_ = flags;
    return 0;
  }
  return keepFlags(flags, destFd, destPath);
}

int TreeCopier::copyAttributes(int srcFd, int destFd, const std::string& destPath) {
  std::string names;
  if (!readSized(names, [&](char* data, std::size_t size) { return flistxattr(srcFd, data, size); })) {
    return errno == ENOTSUP ? 0 : errno;
  }
  static const std::vector<std::string> kNone;
  const auto& excluded = setup_.excludedAttributes ? *setup_.excludedAttributes : kNone;
  std::string value;
  for (std::size_t at = 0; at < names.size();) {
    const std::string name = names.c_str() + at;
    at += name.size() + 1;
    if (std::find(excluded.begin(), excluded.end(), name) != excluded.end()) continue;
    if (!readSized(value, [&](char* data, std::size_t size) { return fgetxattr(srcFd, name.c_str(), data, size); })) {
      continue;  // removed meanwhile
    }
    if (fsetxattr(destFd, name.c_str(), value.data(), value.size(), 0) == 0) continue;
    const int rc = errno;
    // ENOSPC and E2BIG: a value larger than the destination keeps for an item.
    if (!cannotHold(rc) && rc != ENOSPC && rc != E2BIG) return rc;
    if (int failed = loss(destPath, attributeDescription(name))) return failed;
  }
  return 0;
}

// Root keeps owner and group; anyone else keeps a group they belong to and
// reports an owner or group they cannot give.
int TreeCopier::keepOwner(const struct stat& st, const std::string& destPath, const Chown& chownItem) {
  if (geteuid() == 0) {
    if (chownItem(st.st_uid, st.st_gid) == 0) return 0;
    return cannotHold(errno) || errno == EINVAL ? loss(destPath, "the owner and group") : errno;
  }
  if (st.st_uid != geteuid()) {
    if (int rc = loss(destPath, "the owner")) return rc;
  }
  if (st.st_gid == getegid() || chownItem(static_cast<uid_t>(-1), st.st_gid) == 0) return 0;
  return loss(destPath, "the group");
}

int TreeCopier::keepFlags(unsigned wanted, int destFd, const std::string& destPath) {
  if (wanted == 0) return 0;
  if ((wanted & kLockFlags) && !canChangeLock()) {
    if (int rc = loss(destPath, "the lock flag")) return rc;
    wanted &= ~kLockFlags;
  }
  int flags = 0;
  if (ioctl(destFd, FS_IOC_GETFLAGS, &flags) == 0) {
    flags = static_cast<int>((static_cast<unsigned>(flags) & ~FS_FL_USER_MODIFIABLE) | wanted);
    if (ioctl(destFd, FS_IOC_SETFLAGS, &flags) == 0 && userFlags(destFd) == wanted) return 0;
  }
  return loss(destPath, "the inode flags");
}

int TreeCopier::loss(const std::string& path, const std::string& what) {
  const std::string text = path + ": could not keep " + what;
  if (lossIsFailure_) {
    reportFailure(setup_, text);
    return ENOTSUP;
  }
  if (setup_.report) setup_.report->losses.push_back(text);
  return 0;
}

}  // namespace halyard::fileservices
