#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <variant>

#include <QStandardPaths>

#include "agent/child_process.h"
#include "agent/launch_platform.h"

namespace halyard::agent {

namespace {

// Resolves a bare program name through PATH before forking, since the child
// may only make async-signal-safe calls.
std::string resolveProgram(const std::string& program) {
  if (program.find('/') != std::string::npos) return program;
  const QString found = QStandardPaths::findExecutable(QString::fromStdString(program));
  return found.isEmpty() ? program : found.toStdString();
}

// The program's path and its argv, owned together until exec.
struct Command {
  std::string path;
  std::vector<char*> argv;
  explicit Command(const std::vector<std::string>& args) : path(resolveProgram(args.front())) {
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
  }
};

// In the child, before exec: what the agent changed of its own process
// state is put back to what a new program expects. Signals that cannot be
// reset (SIGKILL, SIGSTOP, the C library's own) refuse harmlessly.
void resetProcessState() {
  struct sigaction defaults {};
  defaults.sa_handler = SIG_DFL;
  sigemptyset(&defaults.sa_mask);
  for (int signal = 1; signal < NSIG; ++signal) sigaction(signal, &defaults, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  const int devnull = open("/dev/null", O_RDWR);
  for (int fd = 0; fd < 3; ++fd) dup2(devnull, fd);
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
}

// Executes the command; on failure the errno goes up the report pipe (which
// the exec would have closed) and the child ends.
[[noreturn]] void execOrReport(const Command& command, int reportFd) {
  resetProcessState();
  execv(command.path.c_str(), command.argv.data());
  const int error = errno;
  (void)!write(reportFd, &error, sizeof error);
  _exit(127);
}

// The first child of a detached start: a session of its own, then the
// grandchild that becomes the program, so that the agent never reaps it.
[[noreturn]] void forkDetached(const Command& command, int reportFd) {
  setsid();
  const pid_t grandchild = fork();
  if (grandchild == 0) execOrReport(command, reportFd);
  if (grandchild < 0) {
    const int error = errno;
    (void)!write(reportFd, &error, sizeof error);
    _exit(127);
  }
  _exit(0);
}

// Reads the exec report: 0 when the pipe closed empty (the exec happened).
int readExecError(int reportFd) {
  int execError = 0;
  ssize_t got;
  while ((got = read(reportFd, &execError, sizeof execError)) < 0 && errno == EINTR) {
  }
  close(reportFd);
  return got == sizeof execError ? execError : 0;
}

void waitForExit(pid_t pid, int* status) {
  while (waitpid(pid, status, 0) < 0 && errno == EINTR) {
  }
}

// A forked child and the read end of its exec report.
struct Forked {
  pid_t pid;
  int report;
};

// Forks; the child runs `inChild` with the report pipe's write end and never
// returns. Answers the child, or the errno of the pipe or the fork.
template <class InChild>
std::variant<Forked, int> forkWithReport(InChild inChild) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return errno;
  const pid_t child = fork();
  if (child == 0) inChild(report[1]);
  const int forkError = errno;
  close(report[1]);
  if (child >= 0) return Forked{child, report[0]};
  close(report[0]);
  return forkError;
}

}  // namespace

std::int16_t spawnDetached(const std::vector<std::string>& argv) {
  if (argv.empty()) return launch_status::kFileNotFound;
  const Command command(argv);
  const auto forked = forkWithReport([&](int reportFd) { forkDetached(command, reportFd); });
  if (const int* error = std::get_if<int>(&forked)) return static_cast<std::int16_t>(-*error);
  const Forked child = std::get<Forked>(forked);
  int status = 0;
  waitForExit(child.pid, &status);
  return readExecError(child.report) == 0 ? launch_status::kNoError : launch_status::kFileNotFound;
}

Expected<ChildProcess> spawnChild(const std::vector<std::string>& argv) {
  if (argv.empty()) return makeError("no program to start");
  const Command command(argv);
  const auto forked = forkWithReport([&](int reportFd) { execOrReport(command, reportFd); });
  if (const int* error = std::get_if<int>(&forked)) return makeError(std::string("fork: ") + std::strerror(*error));
  const Forked child = std::get<Forked>(forked);
  if (const int error = readExecError(child.report); error != 0) {
    int status = 0;
    waitForExit(child.pid, &status);
    return makeError(command.path + ": " + std::strerror(error));
  }
  // Called directly: the C library's header for it lacks C linkage here.
  const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, child.pid, 0));
  if (pidfd < 0) return makeError(std::string("pidfd_open: ") + std::strerror(errno));
  return ChildProcess{child.pid, pidfd};
}

int reapChild(const ChildProcess& child) {
  int status = 0;
  waitForExit(child.pid, &status);
  close(child.pidfd);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace halyard::agent
