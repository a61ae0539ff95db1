#pragma once
// Why the agent would or would not hand an item over at a moment, by the
// rule that decides: the scheduler suspended, the item inactive, its type,
// its start date, a set with nothing or not that value selected, the day
// rule of its type, a minute that the zone's clocks skip; and, for a
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

// How the agent is set, and what the user named.
struct ExplanationContext {
  bool schedulerActive = true;
  bool exactlyOnce = false;
  bool skippedMinute = false;  // the wall time named does not occur in the zone
};

// Whether the minute check at the beat of `at`'s minute hands the item over
// (`at` an instant).
RunExplanation explainMinuteCheck(const KSScheduledItem& item, TimeInterval at, const cctz::time_zone& zone,
                                  const ExplanationContext& context);

// The last hand-over by the minute check before `now` (within about a year),
// or absent; in exactly-once mode a repeated minute's first pass.
std::optional<TimeInterval> lastMinuteCheckHandOver(const KSScheduledItem& item, TimeInterval now,
                                                    const cctz::time_zone& zone, bool exactlyOnce);

}  // namespace halyard::agent
