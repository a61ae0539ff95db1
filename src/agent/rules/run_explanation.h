#pragma once
// Why the agent would or would not hand an item over at a moment, by the
// rule that decides: the scheduler suspended, the item inactive, its type,
// its start date, a set with nothing or not that value selected, the day
// rule of its type, a minute that daylight saving time skips; and, for a
// volume-mount item, whether its target volumes are mounted.

#include <optional>
#include <string>

#include <cctz/time_zone.h>

#include "schedule/scheduled_item.h"

namespace halyard::agent {

struct RunExplanation {
  bool handedOver = false;
  std::string rule;  // one sentence, no final full stop
};

// Whether the minute check at the beat of `at`'s minute hands the item over.
// `at` is an instant; `skippedMinute` says that the wall time the user named
// does not occur in the zone (it lies in a skipped hour).
RunExplanation explainMinuteCheck(const KSScheduledItem& item, TimeInterval at, const cctz::time_zone& zone,
                                  bool schedulerActive, bool skippedMinute);

// The last minute-check hand-over before `now` (within about a year), or absent.
std::optional<TimeInterval> lastMinuteCheckHandOver(const KSScheduledItem& item, TimeInterval now,
                                                    const cctz::time_zone& zone);

}  // namespace halyard::agent
