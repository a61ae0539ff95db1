#pragma once
// Runs the built halyardctl (or another program) as a user would: a child
// process with its own environment additions, output and errors captured.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace halyard::testing {

inline const std::string kHalyardctl = HALYARD_BINARY_DIR "/src/tools/halyardctl";
// The environment entry that points halyardctl at the source tree's resources.
inline const std::string kResourceDir = "HALYARD_RESOURCE_DIR=" HALYARD_SOURCE_DIR "/resources";

struct ChildRun {
  int status = -1;  // the exit status, or 128 + the signal
  std::string out;
  std::string err;
};

// Drains both pipes to their ends together, so a child that fills one while
// the other is being read never blocks.
inline void readBoth(int outFd, std::string& out, int errFd, std::string& err) {
  pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
  std::string* texts[2] = {&out, &err};
  char chunk[4096];
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    if (poll(fds, 2, -1) < 0) return;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      const ssize_t got = read(fds[i].fd, chunk, sizeof chunk);
      if (got > 0) texts[i]->append(chunk, static_cast<std::size_t>(got));
      else fds[i].fd = -1;
    }
  }
}

// Runs `args` (a program path first) with the "NAME=value" entries of `env`
// added. With a `signal`, sends it as soon as the first line of output has
// come: the command is then under way.
inline ChildRun runChild(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                         int signal = 0) {
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    for (const std::string& entry : env) putenv(const_cast<char*>(entry.c_str()));
    std::vector<char*> argv;
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out[1]);
  close(err[1]);
  ChildRun run;
  if (signal != 0) {
    char byte = 0;
    while (byte != '\n' && read(out[0], &byte, 1) == 1) run.out += byte;
    kill(child, signal);
  }
  readBoth(out[0], run.out, err[0], run.err);
  close(out[0]);
  close(err[0]);
  int status = 0;
  waitpid(child, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

// halyardctl with `args` after its path.
inline ChildRun halyardctl(std::vector<std::string> args, const std::vector<std::string>& env = {}) {
  args.insert(args.begin(), kHalyardctl);
  return runChild(args, env);
}

}  // namespace halyard::testing
