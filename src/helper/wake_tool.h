#pragma once
// What the privileged wake tool does with one request: parse, check, then
// touch only the RTC alarm and its records, one for each user. Time is
// passed in.

#include <cstdint>
#include <string_view>

#include "helper/wake_alarm.h"

namespace halyard::wake {

// Handles the request of the user `uid` (the tool's caller). Returns the
// error number of the answer: 0, or an errno value (EINVAL for a refused
// request, ERANGE for a wake date out of bounds, EBUSY when an alarm set by
// someone else is pending, or the error of the file operation).
int handleWakeRequest(std::string_view input, std::int64_t nowUnixSeconds, const AlarmFiles& files, unsigned uid);

}  // namespace halyard::wake
