#pragma once
// Simulation: the agent's heartbeat and calendar checks replayed over a
// period on a simulated wall clock, as fast as the answer allows.
//
// Beats fall once per wall-clock second, `beatFraction` after the whole
// second. Each beat chooses its check by the heartbeat's rule and runs the
// agent's own checks with the beat instant as their present; the last-check
// date becomes the beat instant plus `checkCost`. Events change the world
// between beats: a sleep (no beats until it ends, then a beat that knows the
// machine woke), a clock set to another time (beats realign to it), the
// scheduler suspended or resumed, the agent stopped and started again.
//
// Most beats cannot check anything (between whole minutes, with no gap and no
// wake), and most checks at second 0 find nothing. Unless every beat is asked
// for, those are skipped: a search for the coming minutes that the minute
// check selects names the beats that can hand something over, and the
// last-check date is set as the skipped checks would have left it. The
// answer equals visiting every beat, which the tests compare.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <cctz/time_zone.h>

#include "agent/rules/exactly_once.h"
#include "agent/rules/heartbeat_rules.h"
#include "agent/scheduled_items.h"
#include "foundation/expected.h"

namespace halyard::agent {

struct SimulationEvent {
  enum class Kind { Sleep, Clock, Suspend, Resume, Restart };
  Kind kind = Kind::Sleep;
  TimeInterval at = 0;
  // Sleep: when it ends; Clock: the time the clock is set to; Restart: when
  // the agent, stopped at `at`, starts again.
  TimeInterval to = 0;
};

struct SimulationOptions {
  TimeInterval from = 0;
  TimeInterval to = 0;
  cctz::time_zone zone;
  TimeInterval beatFraction = 0.05;
  TimeInterval checkCost = 0.002;
  bool schedulerActive = true;
  // Report the checks that found nothing too.
  bool allChecks = false;
  // Visit every beat instead of skipping those that cannot hand anything over.
  bool everyBeat = false;
  // The exactly-once mode of the checks.
  bool exactlyOnce = false;
  // A restarted agent takes up its saved last check (and covered minute)
  // instead of starting afresh.
  bool catchUp = false;
};

// One check that found items (or any check, with allChecks).
struct SimulatedCheck {
  TimeInterval beat = 0;
  HeartbeatMode mode = HeartbeatMode::None;
  ScheduleItems items;  // in due-list order
  // In the exactly-once mode, the civil minutes the check covered.
  CivilMinute coveredFrom = 0, coveredTo = 0;
};

using CheckReport = std::function<void(const SimulatedCheck&)>;

// Events must be in time order, each starting no earlier than the previous
// one ends; events at or after `options.to` are ignored. The fractions lie
// in [0, 1). An error names the event (from 1) or the option.
Status simulate(const ScheduleItems& items, const std::vector<SimulationEvent>& events,
                const SimulationOptions& options, const CheckReport& report);

}  // namespace halyard::agent
