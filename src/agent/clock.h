#pragma once
// Clock: where the agent reads the present moment and the user's time zone.
// The heartbeat and the checks take their "now" from here, so tests can put
// the agent at any calendar moment with a fake.

#include <cctz/time_zone.h>

#include "foundation/dates.h"

namespace halyard::agent {

class Clock {
 public:
  virtual ~Clock() = default;
  // The current instant, seconds since the reference date, fractions kept.
  virtual TimeInterval now() const = 0;
  // The zone whose civil fields the schedule is matched in.
  virtual const cctz::time_zone& zone() const = 0;
};

// The wall clock and the user's own zone.
class SystemClock final : public Clock {
 public:
  SystemClock();
  TimeInterval now() const override;
  const cctz::time_zone& zone() const override { return zone_; }

 private:
  cctz::time_zone zone_;
};

}  // namespace halyard::agent
