// The copy engine on Linux: read/write through the caller's buffer, with the
// metadata calls of the C library. Every descriptor is closed on every path.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>

#include "fileservices/copy_engine.h"
#include "fileservices/file_metadata.h"

namespace halyard::fileservices {

namespace {

constexpr int kCancelled = -128;

struct Fd {
  int fd = -1;
  explicit Fd(int fd) : fd(fd) {}
  ~Fd() {
    if (fd >= 0) close(fd);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
};

std::string parentOf(const std::string& path) {
  auto parent = std::filesystem::path(path).parent_path().string();
  return parent.empty() ? "." : parent;
}

// ".name.halyard-partial-PID-N" beside the destination: hidden, and unique
// within the process and across processes.
std::string temporaryNameFor(const std::string& dest) {
  static std::atomic<unsigned> counter{0};
  const std::string name = std::filesystem::path(dest).filename().string();
  return parentOf(dest) + "/." + name.substr(0, 200) + ".halyard-partial-" + std::to_string(getpid()) + "-" +
         std::to_string(++counter);
}

int writeAll(int fd, const std::byte* data, std::size_t size) {
  while (size > 0) {
    ssize_t done = write(fd, data, size);
    if (done < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    data += done;
    size -= static_cast<std::size_t>(done);
  }
  return 0;
}

// Owner, permission bits and times, in this order: a change of owner may
// clear the set-id bits, and writing anything changes the times.
int applyStat(const std::string& path, const struct stat& st, bool isLink) {
  if (geteuid() == 0 && lchown(path.c_str(), st.st_uid, st.st_gid) != 0) return errno;
  if (!isLink && chmod(path.c_str(), st.st_mode & 07777) != 0) return errno;
  const timespec times[2] = {st.st_atim, st.st_mtim};
  if (utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  return 0;
}

class TreeCopier {
 public:
  explicit TreeCopier(const CopyEngineSetup& setup) : _setup(setup) {}

  int copyNode(const std::string& src, const std::string& dest) {
    struct stat st {};
    if (lstat(src.c_str(), &st) != 0) return errno;
    int rc = 0;
    if (S_ISREG(st.st_mode)) {
      rc = copyContents(src, dest);
    } else if (S_ISDIR(st.st_mode)) {
      rc = copyFolder(src, dest);
    } else if (S_ISLNK(st.st_mode)) {
      rc = copyLink(src, dest);
    } else if (mknod(dest.c_str(), st.st_mode, st.st_rdev) != 0) {
      rc = errno;
    }
    if (rc != 0) return rc;
    const bool isLink = S_ISLNK(st.st_mode);
    static const std::vector<std::string> kNone;
    rc = copyExtendedAttributes(src, dest, isLink, _setup.excludedAttributes ? *_setup.excludedAttributes : kNone);
    return rc != 0 ? rc : applyStat(dest, st, isLink);
  }

 private:
  int copyContents(const std::string& src, const std::string& dest) {
    Fd in(open(src.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (in.fd < 0) return errno;
    Fd out(open(dest.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (out.fd < 0) return errno;
    posix_fadvise(in.fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    for (;;) {
      ssize_t got = read(in.fd, _setup.buffer, _setup.bufferSize);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return errno;
      if (got == 0) break;
      if (int rc = writeAll(out.fd, _setup.buffer, static_cast<std::size_t>(got))) return rc;
      if (_setup.progress && !_setup.progress->blockCopied(got)) return kCancelled;
    }
    return close(std::exchange(out.fd, -1)) == 0 ? 0 : errno;
  }

  int copyFolder(const std::string& src, const std::string& dest) {
    if (mkdir(dest.c_str(), 0700) != 0) return errno;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(src.c_str()), closedir);
    if (!dir) return errno;
    while (dirent* entry = readdir(dir.get())) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (int rc = copyNode(src + "/" + name, dest + "/" + name)) return rc;
    }
    return 0;
  }

  static int copyLink(const std::string& src, const std::string& dest) {
    std::string target(4096, '\0');
    ssize_t size = readlink(src.c_str(), target.data(), target.size());
    if (size < 0) return errno;
    target.resize(static_cast<std::size_t>(size));
    return symlink(target.c_str(), dest.c_str()) == 0 ? 0 : errno;
  }

  const CopyEngineSetup& _setup;
};

// Puts the finished item under its name, refusing to replace anything that
// appeared there meanwhile.
int renameNoReplace(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL) return errno;
  // File systems without RENAME_NOREPLACE: check, then rename.
  struct stat st {};
  if (lstat(to.c_str(), &st) == 0) return EEXIST;
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

int copyItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup) {
  struct stat st {};
  if (lstat(src.c_str(), &st) != 0) return errno;
  if (lstat(dest.c_str(), &st) == 0) return EEXIST;
  const std::string partial = temporaryNameFor(dest);
  TreeCopier copier(setup);
  int rc = copier.copyNode(src, partial);
  if (rc == 0) rc = renameNoReplace(partial, dest);
  if (rc != 0) removeItem(partial);
  return rc;
}

int moveItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup) {
  struct stat st {};
  if (lstat(src.c_str(), &st) != 0) return errno;
  int rc = renameNoReplace(src, dest);
  if (rc != EXDEV) return rc;
  rc = copyItem(src, dest, setup);
  return rc != 0 ? rc : removeItem(src);
}

int removeItem(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return errno;
  std::error_code ec;
  std::filesystem::remove_all(path, ec);
  return ec.value();
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
