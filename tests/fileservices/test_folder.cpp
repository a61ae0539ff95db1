#include "fileservices/test_folder.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace halyard::fileservices {

namespace {

void clearImmutable(const std::filesystem::path& path) {
  int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return;
  int flags = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL)) {
    flags &= ~FS_IMMUTABLE_FL;
    ioctl(fd, FS_IOC_SETFLAGS, &flags);
  }
  close(fd);
}

}  // namespace

TestFolder::TestFolder() {
  char pattern[] = "/tmp/halyard-fs-test.XXXXXX";
  root_ = mkdtemp(pattern);
}

TestFolder::~TestFolder() {
  namespace fs = std::filesystem;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root_, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    clearImmutable(it->path());
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
