#pragma once
// AgentTimings: the agent's measurements of itself, kept for the last hour:
// how late each beat came after the whole second it belongs to, and how long
// each check took. `halyardctl status` shows the worst and the median of each.

#include <deque>
#include <optional>
#include <utility>

#include "foundation/dates.h"

namespace halyard::agent {

// One measured quantity over a sliding hour: (instant, seconds) samples.
class TimingSeries {
 public:
  static constexpr TimeInterval kWindow = 3600;
  void record(TimeInterval at, TimeInterval seconds);
  // Over the samples of the hour before `now`; absent when there are none.
  std::optional<TimeInterval> worst(TimeInterval now) const;
  std::optional<TimeInterval> median(TimeInterval now) const;
  std::size_t count() const { return samples_.size(); }

 private:
  std::deque<std::pair<TimeInterval, TimeInterval>> samples_;
};

struct AgentTimings {
  TimingSeries beatLateness;
  TimingSeries checkDuration;
};

}  // namespace halyard::agent
