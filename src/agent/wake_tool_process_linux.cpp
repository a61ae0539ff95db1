#include "agent/wake_tool_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "helper/wake_install.h"
#include "helper/wake_request.h"

namespace halyard::agent {

namespace {

struct Pipe {
  int read = -1, write = -1;
  bool open() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    read = ends[0];
    write = ends[1];
    return true;
  }
};

void closeIfOpen(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// Starts `argv` with `input` on its stdin and the environment `envp`;
// answers its stdout, at most the size of a request.
Expected<std::string> runProgram(const std::vector<std::string>& arguments, char* const* envp,
                                 const std::string& input) {
  Pipe in, out;
  const std::string& program = arguments.front();
  if (!in.open() || !out.open()) return makeError("cannot make pipes for " + program + ": " + std::strerror(errno));
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    // As a fresh program starts: the agent ignores SIGPIPE, the child must not.
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    if (::dup2(in.read, STDIN_FILENO) < 0 || ::dup2(out.write, STDOUT_FILENO) < 0) ::_exit(127);
    ::execve(argv[0], argv.data(), envp);
    ::_exit(127);
  }
  closeIfOpen(in.read);
  closeIfOpen(out.write);
  // A program that ends early closes its stdin: the write fails, the answer tells.
  const bool sent = child > 0 && ::write(in.write, input.data(), input.size()) >= 0;
  closeIfOpen(in.write);  // the program reads its input up to the end
  std::string answer;
  char buffer[4096];
  for (ssize_t got;
       sent && answer.size() <= wake::kMaxRequestBytes && (got = ::read(out.read, buffer, sizeof buffer)) > 0;)
    answer.append(buffer, static_cast<std::size_t>(got));
  closeIfOpen(out.read);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) < 0) return makeError("cannot run " + program);
  return answer;
}

// A folder of this user's that the group or others may write never passes
// as the tool's private folder, and a umask of 002 (a user's private group)
// makes every new folder so: such a folder of ours is made private.
void keepPrivate(const std::string& folder) {
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::geteuid()) return;
  if (info.st_mode & (S_IWGRP | S_IWOTH)) (void)::chmod(folder.c_str(), info.st_mode & 07755);
}

}  // namespace

ProcessWakeTool::ProcessWakeTool(HelperToolFolders folders, std::string templatePath, std::string launcherPath)
    : folders_(std::move(folders)), templatePath_(std::move(templatePath)), launcherPath_(std::move(launcherPath)) {}

ToolLocation ProcessWakeTool::locateOrCreate(HelperFolderType type) {
  const std::lock_guard lock(making_);
  const std::vector<std::string>& folders = folders_.ofType(type);
  for (const std::string& folder : folders) keepPrivate(folder + "/" + kHelperToolSubfolder);
  if (auto tool = findValidHelperTool(folders, templatePath_)) return {.tool = *tool};
  if (::access(templatePath_.c_str(), X_OK) != 0) return {.problem = "no wake tool template at " + templatePath_};
  // The copy goes into the first folder that this user can make its
  // subfolder in and whose volume keeps ownership (a runtime folder is
  // often mounted nosuid, /var/tmp seldom).
  ToolLocation location{.problem = "no folder for WakeToSyncTool"};
  for (const std::string& folder : folders) {
    const std::string subfolder = folder + "/" + kHelperToolSubfolder;
    std::error_code ignored;
    std::filesystem::create_directories(subfolder, ignored);
    if (!std::filesystem::is_directory(subfolder, ignored)) continue;
    keepPrivate(subfolder);
    if (!folderIgnoresOwnership(subfolder)) return makeCopy(folder);
    location = {.onBadVolume = true, .problem = subfolder + " lies on a volume that ignores ownership"};
  }
  return location;
}

// The copy is made with root's rights by the template that the launcher runs.
ToolLocation ProcessWakeTool::makeCopy(const std::string& folder) {
  const std::string tool = helperToolPath(folder);
  auto answer = runProgram({launcherPath_, templatePath_, wake::kInstallOption, tool}, environ, "");
  if (!answer) return {.problem = answer.error().describe()};
  auto error = wake::readWakeResponse(*answer);
  if (!error) return {.problem = launcherPath_ + " did not make " + tool + " (" + error.error().describe() + ")"};
  if (*error == wake::kVolumeIgnoresOwnership)
    return {.onBadVolume = true, .problem = tool + " lies on a volume that ignores ownership"};
  if (*error != 0) return {.problem = "cannot make " + tool + ": " + std::strerror(*error)};
  if (!isValidHelperTool(tool, templatePath_)) return {.problem = tool + " is not a privileged copy of the template"};
  return {.tool = tool};
}

Expected<int> ProcessWakeTool::execute(const std::string& tool, const std::string& request) {
  // The tool runs with root's rights: it is given nothing of ours to trust.
  char* emptyEnvironment[] = {nullptr};
  auto answer = runProgram({tool}, emptyEnvironment, request);
  if (!answer) return answer.error();
  auto error = wake::readWakeResponse(*answer);
  if (!error) return makeError(tool + ": " + error.error().describe());
  return *error;
}

}  // namespace halyard::agent
