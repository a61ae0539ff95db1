// child_state_probe OUTPUT: writes to OUTPUT what this process inherited:
// the signals whose action is not the default, the blocked signals and the
// open descriptors, one line each ("ignored: 13", "blocked:", "fds: 0 1 2").
// It looks before opening anything itself.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  std::string ignored, blocked, fds;
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};
    const bool changed = sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL;
    if (changed) ignored += " " + std::to_string(signal);
    if (sigismember(&mask, signal) == 1) blocked += " " + std::to_string(signal);
  }
  for (int fd = 0; fd < 1024; ++fd) {
    if (fcntl(fd, F_GETFD) >= 0) fds += " " + std::to_string(fd);
  }
  // Written aside and renamed, so that the test never reads half of it.
  const std::string partial = std::string(argv[1]) + ".partial";
  std::FILE* out = std::fopen(partial.c_str(), "w");
  if (!out) return 1;
  std::fprintf(out, "ignored:%s\nblocked:%s\nfds:%s\n", ignored.c_str(), blocked.c_str(), fds.c_str());
  if (std::fclose(out) != 0) return 1;
  return std::rename(partial.c_str(), argv[1]) == 0 ? 0 : 1;
}
