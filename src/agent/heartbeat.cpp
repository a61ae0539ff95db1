#include "agent/heartbeat.h"

#include <cmath>

namespace halyard::agent {

namespace {
// Beats fire this long after the second turns, so that a timer that is a
// millisecond early or a clock read that rounds down still sees the new second.
constexpr TimeInterval kLead = 0.005;
// A target further ahead than this means the clock was set back.
constexpr TimeInterval kMaxAhead = 1.5;
}  // namespace

TimeInterval nextWholeSecond(TimeInterval now) { return std::floor(now) + 1; }

BeatPlan planBeat(TimeInterval now, TimeInterval target) {
  auto millis = [](TimeInterval seconds) {
    return std::chrono::milliseconds(static_cast<long long>(std::ceil((seconds + kLead) * 1000)));
  };
  if (now < target && target - now <= kMaxAhead) return {false, target, millis(target - now)};
  const TimeInterval next = nextWholeSecond(now);
  return {true, next, millis(next - now)};
}

HeartbeatTimer::HeartbeatTimer(const Clock& clock, Beat beat) : clock_(clock), beat_(std::move(beat)) {
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, &HeartbeatTimer::fire);
}

void HeartbeatTimer::start() {
  const TimeInterval now = clock_.now();
  target_ = nextWholeSecond(now);
  timer_.start(planBeat(now, target_).wait);
}

void HeartbeatTimer::stop() { timer_.stop(); }

void HeartbeatTimer::fire() {
  const TimeInterval now = clock_.now();
  const BeatPlan plan = planBeat(now, target_);
  // A clock set back leaves the target ahead: the beat belongs to its own second.
  const TimeInterval lateness = now >= target_ ? now - target_ : now - std::floor(now);
  target_ = plan.nextTarget;
  timer_.start(plan.wait);
  if (plan.beatNow) beat_(lateness);
}

}  // namespace halyard::agent
