// The system clock and the local zone of the process, for the log.

#include "logging/log_collaborators.h"

namespace halyard {
namespace {

class SystemLogClock final : public LogClock {
 public:
  TimeInterval now() const override { return systemNow(); }
  cctz::time_zone zone() const override { return cctz::local_time_zone(); }
};

}  // namespace

std::shared_ptr<const LogClock> systemLogClock() {
  static const auto clock = std::make_shared<SystemLogClock>();
  return clock;
}

}  // namespace halyard
