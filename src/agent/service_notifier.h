#pragma once
// ServiceNotifier: tells the service manager that runs the agent (a systemd
// user unit of Type=notify) that it is ready, that its event loop is alive,
// and that it is stopping. Outside such a unit ($NOTIFY_SOCKET unset) every
// call does nothing.

#include <chrono>
#include <optional>
#include <string>

namespace halyard::agent {

class ServiceNotifier {
 public:
  // Reads $NOTIFY_SOCKET and $WATCHDOG_USEC/$WATCHDOG_PID.
  static ServiceNotifier fromEnvironment();
  ServiceNotifier(std::string socketPath, std::optional<std::chrono::microseconds> watchdog);

  void ready() const { send("READY=1"); }
  void stopping() const { send("STOPPING=1"); }
  void watchdogAlive() const { send("WATCHDOG=1"); }
  // How often to call watchdogAlive(): half the manager's time limit; absent
  // when the manager keeps no watchdog for this process.
  std::optional<std::chrono::milliseconds> watchdogInterval() const;

 private:
  void send(const std::string& state) const;

  std::string socketPath_;
  std::optional<std::chrono::microseconds> watchdog_;
};

}  // namespace halyard::agent
