#pragma once
// Clock: where the agent reads the present moment and the user's time zone.
// The heartbeat and the checks take their "now" from here, so tests can put
// the agent at any calendar moment with a fake.

#include <functional>
#include <memory>
#include <string>

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
  // Called at the start of each beat: a clock that follows the system's zone
  // looks whether it has changed.
  virtual void followZone() {}
};

// Names the system's current time zone: the process's TZ when set (it wins),
// else the zone /etc/localtime links to.
class ZoneSource {
 public:
  virtual ~ZoneSource() = default;
  // A name cctz loads: "Europe/Berlin", or "localtime" when only the file is known.
  virtual std::string zoneName() const = 0;
};

// The zone's name from TZ (`tz`, null or empty when unset; a leading ':' is
// dropped) or else from where `localtimeLink` points below a "zoneinfo/"
// folder; "localtime" when neither names one.
std::string systemZoneName(const char* tz, const std::string& localtimeLink);

class SystemZoneSource final : public ZoneSource {
 public:
  // `honourTZ` false: the link alone counts (for tests, whatever their TZ).
  explicit SystemZoneSource(std::string localtimePath = "/etc/localtime", bool honourTZ = true)
      : localtimePath_(std::move(localtimePath)), honourTZ_(honourTZ) {}
  std::string zoneName() const override;

 private:
  std::string localtimePath_;
  bool honourTZ_;
};

// The wall clock (or the instant `now` answers) in the zone the source names,
// looked up again at every beat; a change is logged once.
class SystemClock final : public Clock {
 public:
  explicit SystemClock(std::shared_ptr<const ZoneSource> zones = std::make_shared<SystemZoneSource>(),
                       std::function<TimeInterval()> now = {});
  TimeInterval now() const override;
  const cctz::time_zone& zone() const override { return zone_; }
  void followZone() override;

 private:
  std::shared_ptr<const ZoneSource> zones_;
  std::function<TimeInterval()> now_;
  std::string zoneName_;
  cctz::time_zone zone_;
};

}  // namespace halyard::agent
