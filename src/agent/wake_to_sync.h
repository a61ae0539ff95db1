#pragma once
// Wake-to-sync: the rules that keep the machine awake shortly before a run
// and place its wake-up one minute before the next, and the seam to the
// privileged wake tool that sets the RTC alarm.

#include <memory>
#include <optional>
#include <string>

#include "agent/helper_tool.h"
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

// Where the privileged wake tool is, or why there is none.
struct ToolLocation {
  std::string tool = {};     // empty when there is none
  bool onBadVolume = false;  // its folder lies on a volume that ignores ownership
  std::string problem = {};
};

// The privileged wake tool that sets the RTC alarm. Both calls wait for
// other processes, so they are made off the event loop.
class WakeTool {
 public:
  virtual ~WakeTool() = default;
  // The valid copy in the folders of `type`; when there is none, one is
  // made in the first of them (which may ask for an administrator's password).
  virtual ToolLocation locateOrCreate(HelperFolderType type) = 0;
  // Runs one request (an XML property list) in `tool` and answers the
  // tool's error number; a failure to run it or read its answer is an error.
  virtual Expected<int> execute(const std::string& tool, const std::string& request) = 0;
};

// What one round with the tool came to: the answer to its last request
// (none when the tool could not be found, made or run), and whether its
// folder lies on a volume that ignores ownership.
struct WakeAttempt {
  std::optional<int> answer = std::nullopt;
  bool onBadVolume = false;
};

// Finds or makes the tool in the folders of `folderType`, cancels its
// earlier wake-ups and, when `wakeDate` is given, asks for one then. Waits.
WakeAttempt attemptWakeRequests(WakeTool& tool, HelperFolderType folderType, std::optional<TimeInterval> wakeDate);

// The tool's answers that say the RTC cannot wake this machine: no alarm
// file, or no right to write it.
bool meansRtcCannotWake(int errorNumber);

}  // namespace halyard::agent
