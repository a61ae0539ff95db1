#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

#include <QCoreApplication>
#include <QSocketNotifier>

#include "agent/termination_signals.h"

namespace halyard::agent {

namespace {

int signalPipe[2] = {-1, -1};

void forwardSignal(int signal) {
  const char byte = static_cast<char>(signal);
  (void)!write(signalPipe[1], &byte, 1);
}

}  // namespace

void ignoreBrokenPipes() {
  // Failure is of no consequence: start-up goes on either way.
  struct sigaction current {};
  if (sigaction(SIGPIPE, nullptr, &current) != 0) return;
  current.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &current, nullptr);
}

void onTerminationSignals(std::function<void()> terminate) {
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) return;
  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
  QObject::connect(notifier, &QSocketNotifier::activated, notifier, [terminate = std::move(terminate)] {
    char byte = 0;
    if (read(signalPipe[0], &byte, 1) == 1) terminate();
  });
  struct sigaction action {};
  action.sa_handler = forwardSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  // SIGHUP too: the agent has no configuration to reload, and a closed
  // terminal should end it as cleanly as a kill.
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &action, nullptr);
}

}  // namespace halyard::agent
