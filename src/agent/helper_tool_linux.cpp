#include "agent/helper_tool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "helper/wake_install.h"
#include "install_paths.h"

namespace halyard::agent {

namespace {

// A descriptor closed when it goes out of scope.
struct OpenFile {
  explicit OpenFile(const std::string& path, int flags = 0)
      : fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | flags)) {}
  ~OpenFile() {
    if (fd >= 0) ::close(fd);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int fd;
};

bool sameBytes(int a, int b) {
  char bufferA[16384], bufferB[16384];
  for (;;) {
    const ssize_t gotA = ::read(a, bufferA, sizeof bufferA);
    if (gotA < 0) return false;
    // Both files have the same size, so the other gives as many bytes.
    ssize_t gotB = 0;
    while (gotB < gotA) {
      const ssize_t got = ::read(b, bufferB + gotB, static_cast<std::size_t>(gotA - gotB));
      if (got <= 0) return false;
      gotB += got;
    }
    if (gotA == 0) return true;
    if (std::memcmp(bufferA, bufferB, static_cast<std::size_t>(gotA)) != 0) return false;
  }
}

std::string environmentOr(const char* name, const std::string& fallback) {
  const char* value = std::getenv(name);
  return value && *value ? std::string(value) : fallback;
}

}  // namespace

HelperToolFolders HelperToolFolders::forCurrentUser() {
  const std::string home = environmentOr("HOME", "/");
  HelperToolFolders folders;
  folders.applicationSupport = {environmentOr("XDG_DATA_HOME", home + "/.local/share"), "/usr/local/share",
                                "/usr/share"};
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime) {
    folders.temporaryItems.push_back(runtime);
  }
  folders.temporaryItems.push_back("/var/tmp");
  return folders;
}

std::string installedHelperToolTemplate() {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  // Without its own location the agent knows of no template.
  if (error) return {};
  return (executable.parent_path() / HALYARD_WAKE_TOOL_TEMPLATE_FROM_BINDIR).lexically_normal().string();
}

std::string helperToolPath(const std::string& folder) {
  return folder + "/" + kHelperToolSubfolder + "/" + kHelperToolName;
}

// Only this user or root may change what lies in the tool's folder: anyone
// else could put another program there between the test and the run.
bool folderIsPrivate(const std::string& toolPath) {
  const std::string folder = toolPath.substr(0, toolPath.find_last_of('/'));
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return false;
  return (info.st_uid == 0 || info.st_uid == ::geteuid()) && !(info.st_mode & (S_IWGRP | S_IWOTH));
}

bool isValidHelperTool(const std::string& toolPath, const std::string& templatePath) {
  if (!folderIsPrivate(toolPath)) return false;
  OpenFile tool(toolPath), original(templatePath);
  struct stat toolInfo {
  }, originalInfo{};
  if (tool.fd < 0 || original.fd < 0 || ::fstat(tool.fd, &toolInfo) != 0 || ::fstat(original.fd, &originalInfo) != 0)
    return false;
  if (!S_ISREG(toolInfo.st_mode) || toolInfo.st_uid != 0 || !(toolInfo.st_mode & S_ISUID)) return false;
  return toolInfo.st_size == originalInfo.st_size && sameBytes(tool.fd, original.fd);
}

std::optional<std::string> findValidHelperTool(const std::vector<std::string>& folders,
                                               const std::string& templatePath) {
  if (::access(templatePath.c_str(), F_OK) != 0) return std::nullopt;
  for (const std::string& folder : folders) {
    if (isValidHelperTool(helperToolPath(folder), templatePath)) return helperToolPath(folder);
  }
  return std::nullopt;
}

std::optional<std::string> findValidHelperTool(const HelperToolFolders& folders, const std::string& templatePath) {
  if (auto tool = findValidHelperTool(folders.applicationSupport, templatePath)) return tool;
  return findValidHelperTool(folders.temporaryItems, templatePath);
}

bool folderIgnoresOwnership(const std::string& folder) {
  const OpenFile opened(folder, O_DIRECTORY);
  return opened.fd >= 0 && wake::volumeIgnoresOwnership(opened.fd);
}

}  // namespace halyard::agent
