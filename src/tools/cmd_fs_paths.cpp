#include "tools/cmd_fs_paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace halyard::tools {

namespace {

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string lastComponent(const std::string& path) {
  const std::string trimmed = withoutTrailingSlashes(path);
  const auto slash = trimmed.rfind('/');
  return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

bool isFolder(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool sameItem(const std::string& a, const std::string& b) {
  struct stat x {
  }, y{};
  return stat(a.c_str(), &x) == 0 && stat(b.c_str(), &y) == 0 && x.st_dev == y.st_dev && x.st_ino == y.st_ino;
}

std::string homeFolder() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  const passwd* entry = getpwuid(getuid());
  return entry && entry->pw_dir ? entry->pw_dir : "";
}

}  // namespace

std::string destinationFor(const std::string& src, const std::string& dest) {
  if (dest.empty() || (dest.back() != '/' && !isFolder(dest))) return dest;
  return withoutTrailingSlashes(dest) + "/" + lastComponent(src);
}

std::optional<std::string> folderBehindLink(const std::string& src) {
  if (src.size() < 2 || src.back() != '/') return std::nullopt;
  struct stat st {};
  if (lstat(withoutTrailingSlashes(src).c_str(), &st) != 0 || !S_ISLNK(st.st_mode) || !isFolder(src)) {
    return std::nullopt;
  }
  char* resolved = realpath(src.c_str(), nullptr);
  if (!resolved) return std::nullopt;
  std::string folder = resolved;
  std::free(resolved);
  return folder;
}

std::optional<std::string> refusalToRemove(const std::string& path) {
  const std::string last = lastComponent(path);
  if (last == "." || last == "..") return "its last component is \"" + last + "\"";
  if (sameItem(path, "/")) return "it is the root folder";
  const std::string home = homeFolder();
  if (!home.empty() && sameItem(path, home)) return "it is the home folder";
  return std::nullopt;
}

}  // namespace halyard::tools
