// The service manager's notification protocol: one datagram of
// "KEY=VALUE" lines to the AF_UNIX socket named by $NOTIFY_SOCKET (a leading
// '@' names an abstract socket).

#include "agent/service_notifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "foundation/log_sink.h"

namespace halyard::agent {

namespace {

std::optional<std::chrono::microseconds> watchdogFromEnvironment() {
  const char* usec = std::getenv("WATCHDOG_USEC");
  if (!usec) return std::nullopt;
  // The limit is meant for the process the manager started, not its children.
  if (const char* pid = std::getenv("WATCHDOG_PID"); pid && std::atol(pid) != static_cast<long>(getpid())) {
    return std::nullopt;
  }
  const long long value = std::atoll(usec);
  if (value <= 0) return std::nullopt;
  return std::chrono::microseconds(value);
}

}  // namespace

ServiceNotifier ServiceNotifier::fromEnvironment() {
  const char* socket = std::getenv("NOTIFY_SOCKET");
  return ServiceNotifier(socket ? socket : "", watchdogFromEnvironment());
}

ServiceNotifier::ServiceNotifier(std::string socketPath, std::optional<std::chrono::microseconds> watchdog)
    : socketPath_(std::move(socketPath)), watchdog_(watchdog) {}

std::optional<std::chrono::milliseconds> ServiceNotifier::watchdogInterval() const {
  if (!watchdog_ || socketPath_.empty()) return std::nullopt;
  return std::chrono::duration_cast<std::chrono::milliseconds>(*watchdog_ / 2);
}

void ServiceNotifier::send(const std::string& state) const {
  sockaddr_un address{};
  if (socketPath_.empty() || socketPath_.size() >= sizeof(address.sun_path)) return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath_.data(), socketPath_.size());
  if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socketPath_.size());
  if (sendto(fd, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), length) < 0) {
    logLine("<Error:> Cannot notify the service manager (" + socketPath_ + "): " + std::strerror(errno),
            LogPriority::Error);
  }
  close(fd);
}

}  // namespace halyard::agent
