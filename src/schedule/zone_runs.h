#pragma once
// Runs of constant UTC offset in a time zone: the stretch of instants around
// a given one over which civil time advances exactly with elapsed time.
//
// The zone's transition table covers a few hundred years; past its end a
// zone with rules for the future repeats its offsets every 400 Gregorian
// years (the lookups map such instants back by whole cycles), so runs there
// are found from their images one or more cycles earlier. A run reported
// here may be shorter than the real one (a boundary where the offset stays
// the same), never longer.

#include <cctz/time_zone.h>

#include <cstdint>
#include <limits>

namespace halyard {

inline constexpr std::int64_t kNoRunEnd = std::numeric_limits<std::int64_t>::max();
inline constexpr std::int64_t kNoRunBegin = std::numeric_limits<std::int64_t>::min();

// Seconds east of UTC at the instant (Unix seconds).
int offsetAt(const cctz::time_zone& zone, std::int64_t unixSeconds);

// The first instant after `unixSeconds` whose offset may differ from
// `offset`, the offset at `unixSeconds`; kNoRunEnd when none ever does.
std::int64_t runEndAfter(const cctz::time_zone& zone, std::int64_t unixSeconds, int offset);

// The earliest instant from which the offset stays `offset` (the offset at
// `unixSeconds`) up to `unixSeconds`; kNoRunBegin when it always did.
std::int64_t runBeginAtOrBefore(const cctz::time_zone& zone, std::int64_t unixSeconds, int offset);

}  // namespace halyard
