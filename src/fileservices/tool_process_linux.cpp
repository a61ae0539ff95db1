// posix_spawn with a change of folder and /dev/null for the standard
// streams, then waitpid.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <string_view>

#include "fileservices/tool_process.h"

extern char** environ;

namespace halyard::fileservices {

namespace {

bool addsToolOptions(std::string_view entry) {
  for (std::string_view name : {"ZIPOPT=", "ZIP=", "UNZIP=", "UNZIPOPT=", "ZIPINFO=", "ZIPINFOOPT="}) {
    if (entry.starts_with(name)) return true;
  }
  return false;
}

std::vector<char*> toolEnvironment() {
  std::vector<char*> entries;
  for (char** entry = environ; entry && *entry; ++entry) {
    if (!addsToolOptions(*entry)) entries.push_back(*entry);
  }
  entries.push_back(nullptr);
  return entries;
}

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t actions;
};

}  // namespace

ToolExit runTool(const std::string& tool, const std::vector<std::string>& arguments, const std::string& workingFolder) {
  std::vector<std::string> argvText{tool};
  argvText.insert(argvText.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& text : argvText) argv.push_back(text.data());
  argv.push_back(nullptr);

  SpawnActions spawn;
  for (int fd = 0; fd <= 2; ++fd) {
    posix_spawn_file_actions_addopen(&spawn.actions, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);
  }
  posix_spawn_file_actions_addchdir_np(&spawn.actions, workingFolder.c_str());
  std::vector<char*> environment = toolEnvironment();
  pid_t child = -1;
  if (int rc = posix_spawn(&child, tool.c_str(), &spawn.actions, nullptr, argv.data(), environment.data())) {
    return {rc, 0};
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return {errno, 0};
  }
  if (WIFSIGNALED(status)) return {0, 128 + WTERMSIG(status)};
  return {0, WEXITSTATUS(status)};
}

}  // namespace halyard::fileservices
