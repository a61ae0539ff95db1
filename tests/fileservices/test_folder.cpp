#include "fileservices/test_folder.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace halyard::fileservices {

std::optional<std::string> extendedAttribute(const std::string& path, const char* name) {
  char value[256];
  const ssize_t size = lgetxattr(path.c_str(), name, value, sizeof value);
  if (size < 0) return std::nullopt;
  return std::string(value, static_cast<std::size_t>(size));
}

unsigned inodeFlags(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  int flags = 0;
  if (fd >= 0) ioctl(fd, FS_IOC_GETFLAGS, &flags);
  if (fd >= 0) close(fd);
  return static_cast<unsigned>(flags);
}

bool setInodeFlags(const std::string& path, unsigned flags) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  int value = static_cast<int>(flags);
  const bool set = fd >= 0 && ioctl(fd, FS_IOC_SETFLAGS, &value) == 0;
  if (fd >= 0) close(fd);
  return set;
}

int exitCodeAsNobody(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    const bool dropped =
        setgroups(0, nullptr) == 0 && setresgid(65534, 65534, 65534) == 0 && setresuid(65534, 65534, 65534) == 0;
    _exit(dropped ? body() : 64);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

TestFolder::TestFolder() {
  char pattern[] = "/tmp/halyard-fs-test.XXXXXX";
  root_ = mkdtemp(pattern);
}

TestFolder::~TestFolder() {
  namespace fs = std::filesystem;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root_, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    if (const unsigned flags = inodeFlags(it->path()); flags & FS_IMMUTABLE_FL) {
      setInodeFlags(it->path(), flags & ~FS_IMMUTABLE_FL);
    }
    if (it->is_directory(ec) && !it->is_symlink(ec))
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  }
  fs::remove_all(root_, ec);
}

std::string TestFolder::writeFile(const std::string& name, const std::string& contents) const {
  const std::string full = path(name);
  std::filesystem::create_directories(std::filesystem::path(full).parent_path());
  std::ofstream(full, std::ios::binary) << contents;
  return full;
}

std::string contentsOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace halyard::fileservices
