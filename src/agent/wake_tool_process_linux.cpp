#include "agent/wake_tool_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "foundation/log_sink.h"
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

// Starts the tool with the request on its stdin and nothing in its
// environment; answers its stdout, at most the size of a request.
Expected<std::string> runTool(const std::string& tool, const std::string& request) {
  Pipe in, out;
  if (!in.open() || !out.open()) return makeError("cannot make pipes for " + tool + ": " + std::strerror(errno));
  char* argv[] = {const_cast<char*>(tool.c_str()), nullptr};
  char* envp[] = {nullptr};
  const pid_t child = ::fork();
  if (child == 0) {
    if (::dup2(in.read, STDIN_FILENO) < 0 || ::dup2(out.write, STDOUT_FILENO) < 0) ::_exit(127);
    ::execve(argv[0], argv, envp);
    ::_exit(127);
  }
  closeIfOpen(in.read);
  closeIfOpen(out.write);
  // A tool that ends early closes its stdin: the write fails, the answer tells.
  const bool sent = child > 0 && ::write(in.write, request.data(), request.size()) >= 0;
  closeIfOpen(in.write);  // the tool reads its request up to the end
  std::string answer;
  char buffer[4096];
  for (ssize_t got; sent && answer.size() <= wake::kMaxRequestBytes && (got = ::read(out.read, buffer, sizeof buffer)) > 0;)
    answer.append(buffer, static_cast<std::size_t>(got));
  closeIfOpen(out.read);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) < 0) return makeError("cannot run " + tool);
  return answer;
}

bool isRtcFailure(int error) { return error == ENOENT || error == EACCES || error == EPERM || error == EIO; }

}  // namespace

ProcessWakeTool::ProcessWakeTool(HelperToolFolders folders, std::string templatePath)
    : folders_(std::move(folders)), templatePath_(std::move(templatePath)) {}

Expected<int> ProcessWakeTool::execute(const std::string& request) {
  const auto tool = findValidHelperTool(folders_, templatePath_);
  if (!tool) return makeError("no valid WakeToSyncTool");
  auto answer = runTool(*tool, request);
  if (!answer) return answer.error();
  auto error = wake::readWakeResponse(*answer);
  if (!error) return makeError(*tool + ": " + error.error().describe());
  if (isRtcFailure(*error) && !rtcFailureLogged_.exchange(true)) {
    logLine("<Error:> The RTC wake alarm cannot be set (" + std::string(std::strerror(*error)) +
                "): this machine will not be woken for scheduled runs.",
            LogPriority::Error);
  }
  return *error;
}

}  // namespace halyard::agent
