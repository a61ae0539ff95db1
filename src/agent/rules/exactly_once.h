#pragma once
// The exactly-once mode of the calendar checks. Each civil minute (a reading
// of the wall clock, not an instant) at which an item's pattern selects it by
// the type table is handed over once: a check covers the civil minutes after
// the last one covered up to its own, and hands each item over once if any
// of them selects it. So a sleep or a forward jump is caught up once per
// item, the minutes a spring change skips run right after it, the hour an
// autumn change repeats runs once, and a clock set back hands nothing over
// again until it passes the last minute covered.
//
// A type-3 item counts a civil minute only when that minute begins at or
// after its start date's civil reading (a whole-minute start counts from
// that minute, as the minute check's beat at it comes after the start).
// Minutes covered while the scheduler is suspended are not handed over
// later.

#include <cstdint>
#include <optional>
#include <vector>

#include <cctz/time_zone.h>

#include "agent/scheduled_items.h"

namespace halyard::agent {

// Civil minutes counted from 1970-01-01 00:00.
using CivilMinute = std::int64_t;

CivilMinute civilMinuteAt(TimeInterval t, const cctz::time_zone& zone);

class ExactlyOnceWindow {
 public:
  // The items due at a check at `now`: those selected in (covered, now's
  // civil minute]; the window then moves on. A first check with nothing
  // covered covers its own minute only.
  ScheduleItems check(const ScheduleItems& items, TimeInterval now, const cctz::time_zone& zone, bool active);

  // An agent starting at `start` with nothing restored: the minutes before
  // count as covered, its start minute too once that minute's second 0 has
  // passed (its check came before the agent). The first check, however late
  // a stall makes it, then covers every minute since.
  void startAt(TimeInterval start, const cctz::time_zone& zone);

  // The last civil minute covered, absent before the first check; restored
  // from the agent's saved state to catch up what passed while it was not running.
  std::optional<CivilMinute> covered() const { return covered_; }
  void setCovered(std::optional<CivilMinute> covered) { covered_ = covered; }

 private:
  std::optional<CivilMinute> covered_;
};

// The first instant that reads the same wall-clock minute and second as `t`:
// `t` itself unless the zone repeats that minute (an autumn change). The
// exactly-once mode hands a repeated minute over at its first pass only.
TimeInterval firstPassOf(TimeInterval t, const cctz::time_zone& zone);

// Whether the minute check's pattern of the item selects any civil minute in
// [first, last].
bool selectsCivilMinuteIn(const KSScheduledItem& item, CivilMinute first, CivilMinute last,
                          const cctz::time_zone& zone);

}  // namespace halyard::agent
