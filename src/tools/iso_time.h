#pragma once
// ISO 8601 instants as halyardctl reads and writes them: read with an offset
// ("2026-03-08T02:30:00-05:00", "...Z") or without one (wall time in the
// given zone, the earlier reading in a repeated hour); written with
// milliseconds and the zone's offset ("2026-03-08T03:00:00.050-04:00").

#include <string>
#include <string_view>

#include <cctz/time_zone.h>

#include "foundation/dates.h"
#include "foundation/expected.h"

namespace halyard::tools {

Expected<TimeInterval> parseIsoInstant(std::string_view text, const cctz::time_zone& zone);
std::string formatIsoInstant(TimeInterval t, const cctz::time_zone& zone);

}  // namespace halyard::tools
