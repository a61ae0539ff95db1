#include <ctime>

#include "agent/clock.h"

namespace halyard::agent {

SystemClock::SystemClock() : zone_(cctz::local_time_zone()) {}

TimeInterval SystemClock::now() const {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return fromUnixSeconds(static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9);
}

}  // namespace halyard::agent
