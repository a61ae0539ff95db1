// Walks, counts and removals by descriptor: openat/fdopendir with
// O_NOFOLLOW | O_DIRECTORY, readdir errors checked.

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "fileservices/copy_engine_walk.h"
#include "fileservices/file_metadata.h"

namespace halyard::fileservices {

int engineStep(const CopyEngineSetup& setup, EngineStep step, const std::string& path) {
  return setup.hooks ? setup.hooks->before(step, path) : 0;
}

void reportFailure(const CopyEngineSetup& setup, const std::string& text) {
  if (setup.report && setup.report->failure.empty()) setup.report->failure = text;
}

std::string joinPath(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

std::string parentOf(const std::string& path) {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  const auto slash = trimmed.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : trimmed.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  const auto slash = trimmed.rfind('/');
  return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

int openFolderAt(int parentFd, const std::string& name, UniqueFd& out) {
  out = UniqueFd(openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return out.valid() ? 0 : errno;
}

int openFolder(const std::string& path, UniqueFd& out) {
  out = UniqueFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return out.valid() ? 0 : errno;
}

int listFolder(int folderFd, std::vector<std::string>& names) {
  UniqueFd own(fcntl(folderFd, F_DUPFD_CLOEXEC, 0));
  if (!own) return errno;
  UniqueHandle<CPointer<DIR, closedir>> dir(fdopendir(own.get()));
  if (!dir) return errno;
  own.release();  // the folder stream owns it now
  rewinddir(dir.get());
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(dir.get());
    if (!entry) return errno;
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      names.emplace_back(entry->d_name);
  }
}

int countTree(int parentFd, const std::string& name, const std::string& path, const CopyEngineSetup& setup,
              TreeCount& count) {
  struct stat st {};
  if (fstatat(parentFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  ++count.items;
  if (S_ISREG(st.st_mode)) count.bytes += st.st_size;
  if (!S_ISDIR(st.st_mode)) return 0;
  if (int rc = engineStep(setup, EngineStep::OpenFolder, path)) return rc;
  UniqueFd folder;
  std::vector<std::string> names;
  if (int rc = openFolderAt(parentFd, name, folder); rc != 0) return rc;
  if (int rc = listFolder(folder.get(), names); rc != 0) return rc;
  for (const std::string& child : names) {
    if (int rc = countTree(folder.get(), child, joinPath(path, child), setup, count)) return rc;
  }
  return 0;
}

namespace {

bool sameTime(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

bool readAt(int fd, char* into, std::size_t size, off_t at) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t got = pread(fd, into + done, size - done, at + static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

// Two files of `size` bytes hold the same bytes.
bool sameBytes(int srcParentFd, const std::string& srcName, int destParentFd, const std::string& destName, off_t size) {
  const int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  UniqueFd src(openat(srcParentFd, srcName.c_str(), flags)), dest(openat(destParentFd, destName.c_str(), flags));
  if (!src.valid() || !dest.valid()) return false;
  constexpr std::size_t kBlock = 64 * 1024;
  std::vector<char> a(kBlock), b(kBlock);
  for (off_t at = 0; at < size;) {
    const auto length = static_cast<std::size_t>(std::min<off_t>(size - at, kBlock));
    if (!readAt(src.get(), a.data(), length, at) || !readAt(dest.get(), b.data(), length, at)) return false;
    if (std::memcmp(a.data(), b.data(), length) != 0) return false;
    at += static_cast<off_t>(length);
  }
  return true;
}

std::optional<std::string> linkTarget(int parentFd, const std::string& name) {
  std::string target(4096, '\0');
  const ssize_t size = readlinkat(parentFd, name.c_str(), target.data(), target.size());
  if (size < 0 || static_cast<std::size_t>(size) == target.size()) return std::nullopt;
  target.resize(static_cast<std::size_t>(size));
  return target;
}

bool sameLeaf(int srcParentFd, const std::string& srcName, int destParentFd, const std::string& destName,
              const struct stat& src, const struct stat& dest) {
  if (src.st_size != dest.st_size || !sameTime(src.st_mtim, dest.st_mtim)) return false;
  if (S_ISREG(src.st_mode)) return sameBytes(srcParentFd, srcName, destParentFd, destName, src.st_size);
  if (S_ISLNK(src.st_mode)) {
    const auto a = linkTarget(srcParentFd, srcName), b = linkTarget(destParentFd, destName);
    return a && b && *a == *b;
  }
  return true;
}

}  // namespace

ItemState ItemState::of(const struct stat& st) { return {st.st_mode & S_IFMT, st.st_size, st.st_mtim, st.st_ctim}; }

bool ItemState::operator==(const ItemState& other) const {
  return kind == other.kind && size == other.size && sameTime(modified, other.modified) &&
         sameTime(changed, other.changed);
}

void CopiedItems::add(const struct stat& st) { items_[{st.st_dev, st.st_ino}] = ItemState::of(st); }

bool CopiedItems::holds(const struct stat& st) const {
  const auto found = items_.find({st.st_dev, st.st_ino});
  return found != items_.end() && found->second.kind == (st.st_mode & S_IFMT);
}

bool CopiedItems::unchanged(const struct stat& st) const {
  const auto found = items_.find({st.st_dev, st.st_ino});
  return found != items_.end() && found->second == ItemState::of(st);
}

int recordTree(int parentFd, const std::string& name, CopiedItems& record) {
  struct stat st {};
  if (fstatat(parentFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  record.add(st);
  if (!S_ISDIR(st.st_mode)) return 0;
  UniqueFd folder;
  std::vector<std::string> names;
  if (int rc = openFolderAt(parentFd, name, folder); rc != 0) return rc;
  if (int rc = listFolder(folder.get(), names); rc != 0) return rc;
  for (const std::string& child : names) {
    if (int rc = recordTree(folder.get(), child, record)) return rc;
  }
  return 0;
}

bool coveredBy(int srcParentFd, const std::string& srcName, int destParentFd, const std::string& destName,
               CopiedItems& covered) {
  struct stat src {
  }, dest{};
  if (fstatat(srcParentFd, srcName.c_str(), &src, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (fstatat(destParentFd, destName.c_str(), &dest, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if ((src.st_mode & S_IFMT) != (dest.st_mode & S_IFMT)) return false;
  if (!S_ISDIR(src.st_mode)) {
    if (!sameLeaf(srcParentFd, srcName, destParentFd, destName, src, dest)) return false;
    covered.add(src);
    return true;
  }
  UniqueFd srcFolder, destFolder;
  std::vector<std::string> names;
  if (openFolderAt(srcParentFd, srcName, srcFolder) != 0 || openFolderAt(destParentFd, destName, destFolder) != 0 ||
      listFolder(srcFolder.get(), names) != 0) {
    return false;
  }
  for (const std::string& child : names) {
    if (!coveredBy(srcFolder.get(), child, destFolder.get(), child, covered)) return false;
  }
  covered.add(src);
  return true;
}

void clearLockFlags(int fd) {
  int flags = 0;
  if (!canChangeLock() || ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) return;
  if ((flags & (FS_IMMUTABLE_FL | FS_APPEND_FL)) == 0) return;
  flags &= ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
  (void)ioctl(fd, FS_IOC_SETFLAGS, &flags);
}

namespace {

int failRemoval(const CopyEngineSetup& setup, const std::string& path, int rc) {
  reportFailure(setup, "could not remove " + path + ": " + std::strerror(rc));
  return rc;
}

// Opens an item that is not a folder to clear its flags; links and special
// files carry none.
void clearItemLocks(int parentFd, const std::string& name) {
  UniqueFd item(openat(parentFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (item.valid()) clearLockFlags(item.get());
}

int removeFolderContents(int parentFd, const std::string& name, const std::string& path, const CopyEngineSetup& setup,
                         RemovalOptions options, bool& wasFolder) {
  if (int rc = engineStep(setup, EngineStep::OpenFolder, path)) return failRemoval(setup, path, rc);
  UniqueFd folder;
  const int opened = openFolderAt(parentFd, name, folder);
  // Swapped for a link or a file since it was examined: the link itself
  // goes, what it points at stays.
  if (opened == ELOOP || opened == ENOTDIR) return 0;
  if (opened != 0) return failRemoval(setup, path, opened);
  wasFolder = true;
  if (options.clearLocks) clearLockFlags(folder.get());
  if (options.makeWritable) (void)fchmod(folder.get(), S_IRWXU);
  std::vector<std::string> names;
  if (int rc = listFolder(folder.get(), names)) return failRemoval(setup, path, rc);
  for (const std::string& child : names) {
    if (int rc = removeEntry(folder.get(), child, joinPath(path, child), setup, options)) return rc;
  }
  return 0;
}

}  // namespace

int removeEntry(int parentFd, const std::string& name, const std::string& path, const CopyEngineSetup& setup,
                RemovalOptions options) {
  struct stat st {};
  if (fstatat(parentFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return failRemoval(setup, path, errno);
  if (options.only && !(S_ISDIR(st.st_mode) ? options.only->holds(st) : options.only->unchanged(st))) {
    options.only->leave(path);
    return 0;
  }
  bool wasFolder = false;
  if (S_ISDIR(st.st_mode)) {
    if (int rc = removeFolderContents(parentFd, name, path, setup, options, wasFolder)) return rc;
  } else if (options.clearLocks && S_ISREG(st.st_mode)) {
    clearItemLocks(parentFd, name);
  }
  if (int rc = engineStep(setup, EngineStep::Remove, path)) return failRemoval(setup, path, rc);
  if (unlinkat(parentFd, name.c_str(), wasFolder ? AT_REMOVEDIR : 0) == 0) return 0;
  // A folder that still holds what was left (or what appeared since).
  if (options.only && wasFolder && (errno == ENOTEMPTY || errno == EEXIST)) {
    options.only->leave(path);
    return 0;
  }
  return failRemoval(setup, path, errno);
}

}  // namespace halyard::fileservices
