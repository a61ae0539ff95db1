#include "schedule/zone_runs.h"

#include <cctz/civil_time.h>

#include <algorithm>
#include <optional>

#include "schedule/civil_calendar.h"

namespace halyard {
namespace {

// 400 Gregorian years, after which both the calendar and a zone's rules for
// the future repeat.
constexpr std::int64_t kCycleSeconds = 146097LL * 86400;

using Instant = cctz::time_point<cctz::seconds>;

Instant instant(std::int64_t unixSeconds) { return Instant(cctz::seconds(unixSeconds)); }

std::int64_t unixSeconds(const cctz::civil_second& t) {
  return civil::daysFromCivil(t.year(), t.month(), t.day()) * 86400 + t.hour() * 3600 + t.minute() * 60 + t.second();
}

// The table's next change after x, where `offset` is the offset at x.
std::optional<std::int64_t> tableChangeAfter(const cctz::time_zone& zone, std::int64_t x, int offset) {
  cctz::time_zone::civil_transition transition;
  if (!zone.next_transition(instant(x), &transition)) return std::nullopt;
  return unixSeconds(transition.from) - offset;
}

// The table's last change at or before x, where `offset` is the offset at x
// and x lies within the table.
std::optional<std::int64_t> tableChangeAtOrBefore(const cctz::time_zone& zone, std::int64_t x, int offset) {
  cctz::time_zone::civil_transition transition;
  if (!zone.prev_transition(instant(x + 1), &transition)) return std::nullopt;
  return unixSeconds(transition.to) - offset;
}

// The table's last change of all, for an x at or past it.
std::optional<std::int64_t> lastTableChange(const cctz::time_zone& zone, std::int64_t x) {
  cctz::time_zone::civil_transition transition;
  if (!zone.prev_transition(instant(x + 1), &transition)) return std::nullopt;
  return zone.lookup(transition.to).trans.time_since_epoch().count();
}

// How many whole cycles take x back to before the table's last change.
std::int64_t cyclesBack(std::int64_t x, std::int64_t lastChange) {
  return civil::floorDiv(x - lastChange, kCycleSeconds) + 1;
}

}  // namespace

int offsetAt(const cctz::time_zone& zone, std::int64_t unixSeconds) { return zone.lookup(instant(unixSeconds)).offset; }

std::int64_t runEndAfter(const cctz::time_zone& zone, std::int64_t x, int offset) {
  if (const auto change = tableChangeAfter(zone, x, offset)) return *change;
  const auto lastChange = lastTableChange(zone, x);
  if (!lastChange) return kNoRunEnd;  // a zone without changes
  // Past the table: the run ends where its image inside the table's last
  // cycle ends. For a zone whose offset stays fixed after its table this
  // reports a boundary where nothing changes, which is harmless.
  const std::int64_t cycles = cyclesBack(x, *lastChange);
  const std::int64_t image = x - cycles * kCycleSeconds;
  const auto change = tableChangeAfter(zone, image, offsetAt(zone, image));
  return change ? *change + cycles * kCycleSeconds : kNoRunEnd;
}

std::int64_t runBeginAtOrBefore(const cctz::time_zone& zone, std::int64_t x, int offset) {
  cctz::time_zone::civil_transition ignored;
  if (zone.next_transition(instant(x), &ignored)) return tableChangeAtOrBefore(zone, x, offset).value_or(kNoRunBegin);
  const auto lastChange = lastTableChange(zone, x);
  if (!lastChange) return kNoRunBegin;
  // Past the table: the later of the image's run start, shifted forward by
  // the same cycles, and the table's last change repeated one cycle fewer
  // (when the image's run reaches back before the table's last cycle).
  const std::int64_t cycles = cyclesBack(x, *lastChange);
  const std::int64_t image = x - cycles * kCycleSeconds;
  const std::int64_t repeatedLast = *lastChange + (cycles - 1) * kCycleSeconds;
  const auto change = tableChangeAtOrBefore(zone, image, offsetAt(zone, image));
  return change ? std::max(*change + cycles * kCycleSeconds, repeatedLast) : repeatedLast;
}

}  // namespace halyard
