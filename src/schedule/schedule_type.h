#pragma once
// ScheduleType: what a scheduled item's type number tells the agent. The
// item keeps (and archives) the number as it was written, so a number the
// application may write beyond these (0 to 2, 8 and up) stays representable:
// it is simply none of the named values, and no minute check selects it.

#include <cstdint>

namespace halyard {

enum class ScheduleType : std::int32_t {
  // Minute, hour and month selected, day sets ignored, and only once the
  // start date lies before the moment checked.
  FromStartDate = 3,
  // Minute, hour and month selected, every day.
  Daily = 4,
  // Minute, hour, month and day of week selected. The default of a new item.
  Weekly = 5,
  // Not time-driven: due when a target volume is mounted.
  OnVolumeMount = 6,
  // Minute, hour, month and day of month selected.
  Monthly = 7,
};

constexpr ScheduleType scheduleTypeFromNumber(std::int32_t number) { return static_cast<ScheduleType>(number); }
constexpr std::int32_t scheduleTypeNumber(ScheduleType type) { return static_cast<std::int32_t>(type); }

// One of the named types (3 to 7).
constexpr bool isNamedScheduleType(ScheduleType type) {
  return type >= ScheduleType::FromStartDate && type <= ScheduleType::Monthly;
}

}  // namespace halyard
