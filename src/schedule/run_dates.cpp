// How the searches answer as the minute walk would without walking:
//
// - The walk's candidates are doubles stepped by ±60 s. Between the rare
//   steps that round (walk_steps.h) they form exact arithmetic progressions,
//   handled one such run at a time.
// - Within a run of constant UTC offset (zone_runs.h) consecutive candidates
//   read consecutive civil minutes, each at the same second, so the first
//   matching candidate is the first matching civil minute there
//   (civil_pattern.h), found by skipping months, days and hours. A skipped
//   hour is thus never met, and a repeated one is met in both runs.
// - A pattern that no civil minute can match (30 February) lets the walk run
//   to its bound, and where it stops follows from the arithmetic alone: on
//   the bound itself, returned untested, or past it, absent. An unlimited
//   search so answers the distant future when its first candidate lies a
//   whole number of minutes before it, absent otherwise, at once.
// - A pattern that civil minutes match but the zone's instants never do
//   (one whose every match falls into skipped hours) costs one step per
//   offset change up to the bound; it takes a zone that skips the same civil
//   times year after year.

#include "schedule/run_dates.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "schedule/civil_calendar.h"
#include "schedule/civil_pattern.h"
#include "schedule/walk_steps.h"
#include "schedule/zone_runs.h"

namespace halyard {
namespace {

// Instants further than 2^50 s (about 35 million years) from the reference
// date are outside any calendar a search is asked about; a search that would
// have to read one answers absent. Every bound up to there stays exact.
constexpr double kCalendarReach = 1125899906842624.0;

// One walk: its first candidate, its bound and its direction. It goes on
// while the bound lies ahead of the candidate; a candidate that reaches the
// bound exactly ends it untested.
struct Walk {
  double first;
  double bound;
  int direction;  // +1 forward, -1 backward

  bool goesOnAt(double candidate, double limit) const { return direction > 0 ? limit > candidate : limit < candidate; }
  double candidate(double runStart, std::int64_t step) const {
    return runStart + direction * (kWalkStep * static_cast<double>(step));
  }
};

// How many of the exact candidates runStart + direction * 60 j, j < exact,
// come before `limit` (the walk's test is monotonic along a run).
std::int64_t stepsBefore(const Walk& walk, double runStart, std::int64_t exact, double limit) {
  const double distance = (limit - runStart) * walk.direction / kWalkStep;
  std::int64_t steps = 0;
  if (distance > 0)
    steps = distance >= static_cast<double>(exact) ? exact : static_cast<std::int64_t>(std::ceil(distance));
  while (steps > 0 && !walk.goesOnAt(walk.candidate(runStart, steps - 1), limit)) --steps;
  while (steps < exact && walk.goesOnAt(walk.candidate(runStart, steps), limit)) ++steps;
  return steps;
}

// The first j in [0, count) whose candidate, `whole` + direction * 60 j
// (Unix seconds), reads civil fields in the zone that the pattern matches.
// Within a run of constant offset the candidates meet consecutive civil
// minutes, one each, so the calendar is searched a run at a time.
std::optional<std::int64_t> firstMatchingStep(const CivilPattern& pattern, const cctz::time_zone& zone,
                                              std::int64_t whole, int direction, std::int64_t count) {
  if (!pattern.canEverMatch()) return std::nullopt;
  for (std::int64_t step = 0; step < count;) {
    const std::int64_t instant = whole + direction * 60 * step;
    const int offset = offsetAt(zone, instant);
    const std::int64_t minute = civil::floorDiv(instant + offset, 60);
    const std::int64_t left = count - step;
    std::int64_t inRun = left;
    std::optional<std::int64_t> found;
    if (direction > 0) {
      const std::int64_t end = runEndAfter(zone, instant, offset);
      if (end != kNoRunEnd) inRun = std::min(left, civil::floorDiv(end - instant + 59, 60));
      if (const auto match = pattern.firstAtOrAfter(minute, minute + inRun)) found = *match - minute;
    } else {
      const std::int64_t begin = runBeginAtOrBefore(zone, instant, offset);
      if (begin != kNoRunBegin) inRun = std::min(left, (instant - begin) / 60 + 1);
      if (const auto match = pattern.lastAtOrBefore(minute, minute - inRun)) found = minute - *match;
    }
    if (found) return step + *found;
    step += inRun;
  }
  return std::nullopt;
}

// The walk's answer, run of exact candidates by run of exact candidates.
std::optional<TimeInterval> walkResult(const CivilPattern& pattern, const Walk& walk, const cctz::time_zone& zone) {
  double runStart = walk.first;
  for (;;) {
    if (!walk.goesOnAt(runStart, walk.bound)) {
      const bool beyond = walk.direction > 0 ? walk.bound < runStart : walk.bound > runStart;
      if (beyond || !std::isfinite(runStart)) return std::nullopt;
      return runStart;  // the bound itself, untested
    }
    if (!(std::fabs(runStart) < kCalendarReach)) return std::nullopt;
    const std::int64_t exact = exactWalkSteps(runStart, walk.direction);
    const std::int64_t beforeBound = stepsBefore(walk, runStart, exact, walk.bound);
    const std::int64_t withinReach = stepsBefore(walk, runStart, beforeBound, walk.direction * kCalendarReach);
    const auto whole = static_cast<std::int64_t>(std::floor(runStart)) + kReferenceDateUnixSeconds;
    if (const auto step = firstMatchingStep(pattern, zone, whole, walk.direction, withinReach)) {
      return walk.candidate(runStart, *step);
    }
    if (withinReach < beforeBound) return std::nullopt;
    if (beforeBound < exact) {
      runStart = walk.candidate(runStart, beforeBound);
      continue;  // ends the walk at the bound or beyond it
    }
    runStart = walk.candidate(runStart, exact - 1) + walk.direction * kWalkStep;  // the rounding step
  }
}

}  // namespace

std::optional<TimeInterval> nextScheduledDateAfter(const RunPattern& pattern, std::optional<TimeInterval> after,
                                                   std::optional<TimeInterval> before, TimeInterval now,
                                                   const cctz::time_zone& zone) {
  const auto civilPattern = CivilPattern::from(pattern);
  if (!civilPattern || !pattern.startDate) return std::nullopt;
  const TimeInterval from = after.value_or(now);
  const TimeInterval start = *pattern.startDate;
  const TimeInterval first = start < from ? from : start;
  return walkResult(*civilPattern, Walk{first, before.value_or(kDistantFuture), +1}, zone);
}

std::optional<TimeInterval> firstMatchFrom(const CivilPattern& pattern, TimeInterval first, TimeInterval before,
                                           const cctz::time_zone& zone) {
  return walkResult(pattern, Walk{first, before, +1}, zone);
}

std::optional<TimeInterval> previousScheduledDateBefore(const RunPattern& pattern, std::optional<TimeInterval> before,
                                                        std::optional<TimeInterval> after, TimeInterval now,
                                                        const cctz::time_zone& zone) {
  const auto civilPattern = CivilPattern::from(pattern);
  if (!civilPattern) return std::nullopt;
  // The lower bound is the later of `after` and the start date, or whichever
  // of the two there is. With neither, the walk would compare its candidate
  // with no date at all; such a comparison answers neither "earlier" nor
  // "later", so the walk would hand back its first candidate untested, and
  // the missed-run check would take the present moment for a missed run.
  // An item without a start date has no previous run date then, just as it
  // has no next one.
  std::optional<TimeInterval> lower = pattern.startDate;
  if (after) lower = (lower && *after < *lower) ? *lower : *after;
  if (!lower) return std::nullopt;
  const TimeInterval until = before.value_or(now);
  const TimeInterval first = now > until ? until : now;
  return walkResult(*civilPattern, Walk{first, *lower, -1}, zone);
}

}  // namespace halyard
