#include "agent/rules/simulation.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <queue>

#include "agent/rules/calendar_checks.h"
#include "schedule/civil_calendar.h"
#include "schedule/minute_check.h"
#include "schedule/zone_runs.h"

namespace halyard::agent {
namespace {

using Second = std::int64_t;  // a whole second of the simulated wall clock, Unix time

// The beats of a simulation: one per whole second, at a fixed fraction.
class BeatGrid {
 public:
  BeatGrid(const cctz::time_zone& zone, TimeInterval fraction) : zone_(zone), fraction_(fraction) {}

  TimeInterval beat(Second s) const {
    return joinInstant(cctz::time_point<cctz::seconds>(cctz::seconds(s)), fraction_);
  }
  Second firstAtOrAfter(TimeInterval t) const {
    auto s = static_cast<Second>(std::floor(toUnixSeconds(t) - fraction_));
    while (beat(s) < t) ++s;
    while (beat(s - 1) >= t) --s;
    return s;
  }
  bool atSecondZero(Second s) const { return secondOfMinute(beat(s), zone_) == 0; }
  // The first beat at or after `s` whose civil second is 0.
  Second firstMinuteBeat(Second s) const {
    const Second candidate = s + civil::floorMod(-(s + offsetAt(zone_, s)), 60);
    if (atSecondZero(candidate)) return candidate;
    // An offset change in between: look second by second.
    Second second = s;
    while (!atSecondZero(second)) ++second;
    return second;
  }

 private:
  const cctz::time_zone& zone_;
  TimeInterval fraction_;
};

// For each item, the next beat at second 0 at which the minute check selects
// it, kept in a heap so that the next beat with anything to hand over is at
// hand. Entries are moved on lazily; a position earlier than any asked before
// (a clock set back) rebuilds them all.
class Nominations {
 public:
  Nominations(const ScheduleItems& items, const BeatGrid& grid, const cctz::time_zone& zone, TimeInterval until)
      : items_(items), grid_(grid), zone_(zone), until_(until) {
    for (const auto& item : items)
      searches_.emplace_back(item ? std::optional(MinuteCheckSearch(*item)) : std::nullopt);
  }

  // The first beat at or after `from`, a beat at second 0, that nominates an item.
  std::optional<Second> next(Second from) {
    if (!built_ || from < position_) rebuild(from);
    position_ = from;
    while (!heap_.empty() && heap_.top().second < from) {
      const std::size_t index = heap_.top().index;
      heap_.pop();
      push(index, grid_.beat(from));
    }
    if (heap_.empty()) return std::nullopt;
    return heap_.top().second;
  }

  // The items nominated at `at` (a second-0 beat reached through next()), in
  // schedule order; each then looks for its next minute.
  ScheduleItems take(Second at) {
    std::vector<std::size_t> indexes;
    while (!heap_.empty() && heap_.top().second == at) {
      indexes.push_back(heap_.top().index);
      heap_.pop();
    }
    std::sort(indexes.begin(), indexes.end());
    position_ = at + 1;  // the entries taken now look beyond `at`
    ScheduleItems nominated;
    const TimeInterval following = grid_.beat(grid_.firstMinuteBeat(at + 1));
    for (const std::size_t index : indexes) {
      nominated.push_back(items_[index]);
      push(index, following);
    }
    return nominated;
  }

 private:
  struct Entry {
    Second second;
    std::size_t index;
    bool operator>(const Entry& other) const {
      return second != other.second ? second > other.second : index > other.index;
    }
  };

  void rebuild(Second from) {
    heap_ = {};
    for (std::size_t i = 0; i < items_.size(); ++i) push(i, grid_.beat(from));
    built_ = true;
  }

  // Looks from `minuteBeat`, a beat at second 0.
  void push(std::size_t index, TimeInterval minuteBeat) {
    if (!searches_[index]) return;
    const auto found = searches_[index]->next(minuteBeat, until_, zone_);
    if (found) heap_.push({static_cast<Second>(std::floor(toUnixSeconds(*found))), index});
  }

  const ScheduleItems& items_;
  std::vector<std::optional<MinuteCheckSearch>> searches_;
  const BeatGrid& grid_;
  const cctz::time_zone& zone_;
  TimeInterval until_;
  std::priority_queue<Entry, std::vector<Entry>, std::greater<>> heap_;
  Second position_ = 0;
  bool built_ = false;
};

class Simulator {
 public:
  Simulator(const ScheduleItems& items, const std::vector<SimulationEvent>& events, const SimulationOptions& options,
            const CheckReport& report)
      : items_(items),
        events_(events),
        options_(options),
        report_(report),
        grid_(options.zone, options.beatFraction),
        nominations_(items, grid_, options.zone, options.to + 120),
        active_(options.schedulerActive) {}

  void run() {
    window_.startAt(options_.from, options_.zone);
    Second s = grid_.firstAtOrAfter(options_.from);
    for (;;) {
      s = applyEventsUpTo(s);
      if (grid_.beat(s) >= options_.to) return;
      beat(s);
      s = options_.everyBeat ? s + 1 : nextVisit(s);
    }
  }

 private:
  bool eventPending() const { return nextEvent_ < events_.size() && events_[nextEvent_].at < options_.to; }

  // Events at or before the beat take effect before it; a sleep or a clock
  // change moves the next beat.
  Second applyEventsUpTo(Second s) {
    while (eventPending() && events_[nextEvent_].at <= grid_.beat(s)) {
      const SimulationEvent& event = events_[nextEvent_++];
      switch (event.kind) {
        case SimulationEvent::Kind::Sleep:
          awokeFromSleep_ = true;
          s = grid_.firstAtOrAfter(event.to);
          break;
        case SimulationEvent::Kind::Clock:
          s = grid_.firstAtOrAfter(event.to);
          break;
        case SimulationEvent::Kind::Suspend:
          active_ = false;
          break;
        case SimulationEvent::Kind::Resume:
          active_ = true;
          break;
        case SimulationEvent::Kind::Restart:
          restart(event.to);
          s = grid_.firstAtOrAfter(event.to);
          break;
      }
    }
    return s;
  }

  // A new agent process, starting at `start`: what it keeps is what it saved
  // at its last check.
  void restart(TimeInterval start) {
    awokeFromSleep_ = false;
    if (options_.catchUp) return;
    lastCheckDate_.reset();
    window_.setCovered(std::nullopt);
    window_.startAt(start, options_.zone);
  }

  ScheduleItems calendarCheck(HeartbeatMode mode, Second s, SimulatedCheck& check) {
    const TimeInterval now = check.beat;
    if (options_.exactlyOnce) {
      check.coveredTo = civilMinuteAt(now, options_.zone);
      check.coveredFrom = window_.covered() ? *window_.covered() + 1 : check.coveredTo;
      return window_.check(items_, now, options_.zone, active_);
    }
    if (!active_) return {};
    if (mode == HeartbeatMode::Missed) {
      return lastCheckDate_ ? missedJobs(
                                  items_, *lastCheckDate_, [now] { return now; }, options_.zone)
                            : ScheduleItems{};
    }
    return newJobs(options_.everyBeat ? items_ : nominatedAt(s), now, options_.zone);
  }

  // One beat, as the agent's heartbeat runs it.
  void beat(Second s) {
    const TimeInterval now = grid_.beat(s);
    const HeartbeatMode mode =
        chooseHeartbeatMode({awokeFromSleep_, lastCheckDate_, now, secondOfMinute(now, options_.zone), false});
    if (mode != HeartbeatMode::Missed && mode != HeartbeatMode::New) return;
    if (mode == HeartbeatMode::Missed) awokeFromSleep_ = false;
    SimulatedCheck check{now, mode, {}};
    check.items = calendarCheck(mode, s, check);
    lastCheckDate_ = now + options_.checkCost;
    if (!check.items.empty() || options_.allChecks) report_(check);
  }

  ScheduleItems nominatedAt(Second s) {
    const auto first = nominations_.next(s);
    return first == s ? nominations_.take(s) : ScheduleItems{};
  }

  // The next beat that can hand anything over or change what the agent knows,
  // setting the last-check date as the empty checks at second 0 in between
  // would have set it.
  Second nextVisit(Second s) {
    Second stop = grid_.firstAtOrAfter(options_.to);
    if (eventPending()) stop = std::min(stop, grid_.firstAtOrAfter(events_[nextEvent_].at));
    const Second following = s + 1;
    if (lastCheckDate_) {
      if (grid_.beat(following) - *lastCheckDate_ <= -61) return std::min(following, stop);
      const Second gap = grid_.firstAtOrAfter(*lastCheckDate_ + 61);
      const Second minute = grid_.firstMinuteBeat(following);
      if (gap < minute && gap < stop) return std::max(gap, following);
    }
    const Second first = grid_.firstMinuteBeat(following);
    // Every check of the exactly-once mode moves its window: none is skipped.
    if (first >= stop || options_.allChecks || options_.exactlyOnce) return std::min(first, stop);
    const std::optional<Second> nominated = active_ ? nominations_.next(first) : std::nullopt;
    const bool handsOver = nominated && *nominated < stop;
    const Second target = handsOver ? *nominated : stop;
    // The last beat at second 0 before the target ran an empty check.
    const Second lastEmpty = handsOver ? target - 60 : first + 60 * ((stop - 1 - first) / 60);
    if (lastEmpty >= first) {
      if (!grid_.atSecondZero(lastEmpty)) return following;  // minutes of uneven length: no skipping here
      lastCheckDate_ = grid_.beat(lastEmpty) + options_.checkCost;
    }
    return target;
  }

  const ScheduleItems& items_;
  const std::vector<SimulationEvent>& events_;
  const SimulationOptions& options_;
  const CheckReport& report_;
  BeatGrid grid_;
  Nominations nominations_;
  std::size_t nextEvent_ = 0;
  std::optional<TimeInterval> lastCheckDate_;
  ExactlyOnceWindow window_;
  bool awokeFromSleep_ = false;
  bool active_ = true;
};

bool wholeMicroseconds(TimeInterval fraction) {
  return fraction >= 0 && fraction < 1 && std::fabs(fraction * 1e6 - std::round(fraction * 1e6)) < 1e-6;
}

Status checkEvents(const std::vector<SimulationEvent>& events) {
  std::optional<TimeInterval> previousEnd;
  for (std::size_t i = 0; i < events.size(); ++i) {
    const SimulationEvent& event = events[i];
    const std::string name = "event " + std::to_string(i + 1);
    if (previousEnd && event.at < *previousEnd) return makeError(name + " starts before the previous event ends");
    const bool lasts = event.kind == SimulationEvent::Kind::Sleep || event.kind == SimulationEvent::Kind::Restart;
    if (lasts && event.to < event.at) return makeError(name + " ends before it starts");
    const bool moves = event.kind == SimulationEvent::Kind::Sleep || event.kind == SimulationEvent::Kind::Clock ||
                       event.kind == SimulationEvent::Kind::Restart;
    previousEnd = moves ? event.to : event.at;
  }
  return success();
}

}  // namespace

Status simulate(const ScheduleItems& items, const std::vector<SimulationEvent>& events,
                const SimulationOptions& options, const CheckReport& report) {
  if (!wholeMicroseconds(options.beatFraction))
    return makeError("the beat fraction must be whole microseconds in [0, 1)");
  if (!wholeMicroseconds(options.checkCost)) return makeError("the check cost must be whole microseconds in [0, 1)");
  if (!(options.from < options.to)) return makeError("the period ends before it starts");
  if (auto checked = checkEvents(events); !checked) return checked;
  Simulator(items, events, options, report).run();
  return success();
}

}  // namespace halyard::agent
