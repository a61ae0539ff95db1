#pragma once
// Wake-to-sync: the rules that keep the machine awake shortly before a run
// and place its wake-up one minute before the next, and the seam to the
// privileged wake tool that sets the RTC alarm.

#include <memory>
#include <string>

#include "foundation/dates.h"
#include "foundation/expected.h"

namespace halyard::agent {

inline constexpr TimeInterval kWakeLeadTime = 60;          // wake this long before the run
inline constexpr TimeInterval kWakeMinimumDistance = 100;  // never sooner than this after falling asleep
inline constexpr TimeInterval kIdleSleepVetoDistance = 120;

// The wake-up for a run: one minute before it.
inline TimeInterval wakeDateForRun(TimeInterval nextRun) { return nextRun - kWakeLeadTime; }

// Idle sleep is refused while the wake-up lies less than two minutes ahead.
inline bool vetoesIdleSleep(TimeInterval nextRun, TimeInterval now) {
  return wakeDateForRun(nextRun) - now < kIdleSleepVetoDistance;
}

// The wake-up placed when the machine falls asleep at `now`: the run's, but
// at least 100 s away so that the machine sleeps at all.
inline TimeInterval wakeDateAtSleep(TimeInterval nextRun, TimeInterval now) {
  const TimeInterval wake = wakeDateForRun(nextRun);
  return wake - now < kWakeMinimumDistance ? now + kWakeMinimumDistance : wake;
}

// Runs one request (an XML property list) in the wake tool and answers the
// tool's error number. It waits for the tool, so it is called off the event
// loop; a failure to find or run the tool is an error.
class WakeTool {
 public:
  virtual ~WakeTool() = default;
  virtual Expected<int> execute(const std::string& request) = 0;
};

}  // namespace halyard::agent
