// The agent's messages to its service manager, received on a real datagram
// socket as systemd would receive them.

#include "agent/service_notifier.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

namespace halyard::agent {
namespace {

using namespace std::chrono_literals;

// A bound datagram socket standing in for the service manager.
class ManagerSocket {
 public:
  explicit ManagerSocket(const std::string& name) : name_(name) {
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@') address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    bound_ = bind(fd_, reinterpret_cast<sockaddr*>(&address), length) == 0;
  }
  ~ManagerSocket() {
    close(fd_);
    if (name_[0] != '@') std::filesystem::remove(name_);
  }
  bool bound() const { return bound_; }
  // The next message; the sender has written it before returning.
  std::string next() const {
    char buffer[256];
    const ssize_t size = recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
    return size < 0 ? std::string("(nothing)") : std::string(buffer, static_cast<std::size_t>(size));
  }

 private:
  std::string name_;
  int fd_ = -1;
  bool bound_ = false;
};

TEST(ServiceNotifier, ManagerReceivesEachStateOnPathAndAbstractSockets) {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("halyard-notify-" + std::to_string(getpid()))).string();
  for (const std::string& name : {path, "@halyard-notify-" + std::to_string(getpid())}) {
    SCOPED_TRACE(name);
    ManagerSocket manager(name);
    ASSERT_TRUE(manager.bound());
    const ServiceNotifier notifier(name, 30s);
    notifier.ready();
    notifier.watchdogAlive();
    notifier.stopping();
    EXPECT_EQ(manager.next(), "READY=1");
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
    EXPECT_EQ(manager.next(), "STOPPING=1");
    EXPECT_EQ(notifier.watchdogInterval(), 15s);
  }
}

TEST(ServiceNotifier, NoManagerOrNoWatchdogMeansNoWatchdogTimer) {
  EXPECT_EQ(ServiceNotifier("", 30s).watchdogInterval(), std::nullopt);
  EXPECT_EQ(ServiceNotifier("/run/user/1000/systemd/notify", std::nullopt).watchdogInterval(), std::nullopt);
  ServiceNotifier("", 30s).ready();  // outside a unit: nothing to tell, nothing fails
}

}  // namespace
}  // namespace halyard::agent
