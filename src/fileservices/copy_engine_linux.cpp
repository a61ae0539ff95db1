// The copy engine's operations on Linux: the checks made before anything is
// written, the partial renamed into place, the flushes around the rename,
// and a move's source removed last.

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "fileservices/copy_engine.h"
#include "fileservices/copy_engine_tree.h"
#include "fileservices/copy_engine_walk.h"

namespace halyard::fileservices {

namespace {

bool sameItem(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// True when the folder `src` is the destination's folder or one of its
// ancestors, by device and inode (so whatever links led there).
bool destinationInside(const struct stat& src, const std::string& dest) {
  UniqueFd folder;
  if (openFolder(parentOf(dest), folder) != 0) return false;
  for (int depth = 0; depth < 4096; ++depth) {
    struct stat here {
    }, up{};
    if (fstat(folder.get(), &here) != 0) return false;
    if (sameItem(here, src)) return true;
    UniqueFd parent(openat(folder.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent.valid() || fstat(parent.get(), &up) != 0 || sameItem(up, here)) return false;
    folder = std::move(parent);
  }
  return false;
}

int refuseInside(const CopyEngineSetup& setup, const std::string& src, const std::string& dest) {
  reportFailure(setup, dest + " is inside " + src);
  return kDestinationInsideSourceErr;
}

// Whether another copy holds the partial's lock. Only files and folders are
// opened to ask: opening a device can act on it.
bool lockedByItsCopy(int folderFd, const std::string& name) {
  struct stat st {};
  if (fstatat(folderFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) return false;
  UniqueFd item(openat(folderFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return item.valid() && flock(item.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

// A partial ".NAME.halyard-partial-PID-..." whose process is gone and whose
// lock nobody holds was left by a copy that was killed: the next copy to
// NAME removes it.
void removeStalePartials(int folderFd, const std::string& folderPath, const std::string& destName,
                         const CopyEngineSetup& setup) {
  const std::string prefix = partialPrefixFor(destName);
  std::vector<std::string> names;
  if (listFolder(folderFd, names) != 0) return;
  for (const std::string& name : names) {
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    const long pid = std::strtol(name.c_str() + prefix.size(), nullptr, 10);
    if (pid <= 0 || pid == getpid() || kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
    if (lockedByItsCopy(folderFd, name)) continue;
    CopyEngineSetup quiet = setup;
    quiet.report = nullptr;
    (void)removeEntry(folderFd, name, joinPath(folderPath, name), quiet, {.clearLocks = true, .makeWritable = true});
  }
}

// Puts the finished item under its name, refusing to replace anything that
// appeared there meanwhile.
int renameNoReplace(int fromFd, const std::string& from, int toFd, const std::string& to) {
  if (renameat2(fromFd, from.c_str(), toFd, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL) return errno;
  // File systems without RENAME_NOREPLACE: check, then rename.
  struct stat st {};
  if (fstatat(toFd, to.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return renameat(fromFd, from.c_str(), toFd, to.c_str()) == 0 ? 0 : errno;
}

int flushFolder(const CopyEngineSetup& setup, int folderFd, const std::string& path) {
  if (int rc = engineStep(setup, EngineStep::FlushParent, path)) return rc;
  return fsync(folderFd) == 0 ? 0 : errno;
}

// Copies into a partial and renames it to `dest`, flushed before and after.
// A move passes the record of what it copies, and checks the copy against
// the source's count.
int copyDurably(const std::string& src, const std::string& dest, const CopyEngineSetup& setup, CopiedItems* moved) {
  UniqueFd srcFolder, destFolder;
  if (int rc = openFolder(parentOf(src), srcFolder)) return rc;
  if (int rc = openFolder(parentOf(dest), destFolder)) return rc;
  removeStalePartials(destFolder.get(), parentOf(dest), nameOf(dest), setup);
  TreeCopier copier(setup, moved);
  int rc = copier.copyToPartial(srcFolder.get(), src, destFolder.get(), dest);
  if (rc == 0) rc = engineStep(setup, EngineStep::Rename, dest);
  if (rc == 0) rc = renameNoReplace(destFolder.get(), copier.partialName(), destFolder.get(), nameOf(dest));
  if (rc != 0) {
    if (copier.madePartial()) {
      (void)removeEntry(destFolder.get(), copier.partialName(), joinPath(parentOf(dest), copier.partialName()), setup,
                        {.clearLocks = true, .makeWritable = true});
    }
    if (rc != kUserCanceledErr)
      reportFailure(setup, "could not copy " + src + " to " + dest + ": " + std::strerror(rc));
    return rc;
  }
  if ((rc = flushFolder(setup, destFolder.get(), parentOf(dest))) != 0) return rc;
  if ((rc = copier.applyTopFlags(destFolder.get(), nameOf(dest), dest)) != 0) return rc;
  if (!moved) return 0;
  TreeCount copied;
  if ((rc = countTree(destFolder.get(), nameOf(dest), dest, setup, copied)) != 0) return rc;
  if (copied == copier.count()) return 0;
  reportFailure(setup, "the copy at " + dest + " does not hold every item of " + src);
  return EIO;
}

// After a rename: both folders changed, or one when they are the same.
int flushBoth(const CopyEngineSetup& setup, int srcFolder, const std::string& srcPath, int destFolder,
              const std::string& destPath) {
  struct stat a {
  }, b{};
  if (int rc = flushFolder(setup, destFolder, destPath)) return rc;
  if (fstat(srcFolder, &a) == 0 && fstat(destFolder, &b) == 0 && sameItem(a, b)) return 0;
  return flushFolder(setup, srcFolder, srcPath);
}

// Removes what the move copied of its source, and only while it is as it
// was copied; whatever changed or appeared meanwhile stays, and is named.
int removeSource(const std::string& src, const CopyEngineSetup& setup, CopiedItems& copied) {
  UniqueFd folder;
  if (int rc = openFolder(parentOf(src), folder)) return rc;
  if (int rc = removeEntry(folder.get(), nameOf(src), src, setup, {.clearLocks = true, .only = &copied})) return rc;
  if (int rc = flushFolder(setup, folder.get(), parentOf(src))) return rc;
  if (copied.left().empty()) return 0;
  reportFailure(setup, "the copy is complete, but what changed or appeared in " + src +
                           " during the move stays there, such as " + copied.left().front());
  return EAGAIN;
}

// The destination holds all that is left of the source, byte for byte: an
// earlier move copied it and failed part-way through removing the source.
bool finishedEarlier(const std::string& src, const std::string& dest, CopiedItems& covered) {
  UniqueFd srcFolder, destFolder;
  if (openFolder(parentOf(src), srcFolder) != 0 || openFolder(parentOf(dest), destFolder) != 0) return false;
  return coveredBy(srcFolder.get(), nameOf(src), destFolder.get(), nameOf(dest), covered);
}

// Two names of one item (a hard link, or the same item seen through a bind
// mount): a move would take the copy for the item and remove both.
int refuseSameItem(const CopyEngineSetup& setup, const std::string& src, const std::string& dest) {
  reportFailure(setup, src + " and " + dest + " are the same item");
  return EEXIST;
}

// A walk holds two descriptors per level of the tree: a tree some 500
// folders deep needs more than the usual soft limit of 1,024, and the hard
// limit, far higher, is the process's to take.
void allowDeepTrees() {
  static std::once_flag once;
  std::call_once(once, [] {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
    limit.rlim_cur = limit.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &limit);
  });
}

}  // namespace

int copyItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup) {
  allowDeepTrees();
  struct stat st {
  }, existing{};
  if (lstat(src.c_str(), &st) != 0) return errno;
  if (lstat(dest.c_str(), &existing) == 0) return EEXIST;
  if (S_ISDIR(st.st_mode) && destinationInside(st, dest)) return refuseInside(setup, src, dest);
  return copyDurably(src, dest, setup, nullptr);
}

int moveItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup) {
  allowDeepTrees();
  struct stat st {
  }, existing{};
  if (lstat(src.c_str(), &st) != 0) return errno;
  if (S_ISDIR(st.st_mode) && destinationInside(st, dest)) return refuseInside(setup, src, dest);
  if (lstat(dest.c_str(), &existing) == 0 && sameItem(st, existing)) return refuseSameItem(setup, src, dest);
  UniqueFd srcFolder, destFolder;
  if (int rc = openFolder(parentOf(src), srcFolder)) return rc;
  if (int rc = openFolder(parentOf(dest), destFolder)) return rc;
  int rc = renameNoReplace(srcFolder.get(), nameOf(src), destFolder.get(), nameOf(dest));
  if (rc == 0) return flushBoth(setup, srcFolder.get(), parentOf(src), destFolder.get(), parentOf(dest));
  if (rc != EXDEV) return rc;
  CopiedItems copied;
  if (lstat(dest.c_str(), &existing) == 0) {
    return finishedEarlier(src, dest, copied) ? removeSource(src, setup, copied) : EEXIST;
  }
  rc = copyDurably(src, dest, setup, &copied);
  return rc != 0 ? rc : removeSource(src, setup, copied);
}

int removeItem(const std::string& path, const CopyEngineSetup& setup) {
  allowDeepTrees();
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return errno;
  UniqueFd folder;
  if (int rc = openFolder(parentOf(path), folder)) return rc;
  return removeEntry(folder.get(), nameOf(path), path, setup, {});
}

std::int64_t treeSize(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ec;
  auto status = fs::symlink_status(path, ec);
  if (ec) return 0;
  if (fs::is_regular_file(status)) return static_cast<std::int64_t>(fs::file_size(path, ec));
  if (!fs::is_directory(status)) return 0;
  std::int64_t total = 0;
  for (auto it = fs::recursive_directory_iterator(path, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    if (it->is_regular_file(ec) && !it->is_symlink(ec)) total += static_cast<std::int64_t>(it->file_size(ec));
  }
  return total;
}

}  // namespace halyard::fileservices
