#pragma once
// The schedule data file: "<USER_PATH>/ScheduleData.sched", one archive whose
// root dictionary holds the array of scheduled items under
// "scheduledItemsObjectkey", in the application's order. The agent only
// reads it; halyardctl also writes it, atomically.
//
//   if (auto items = readScheduleItems(scheduleFilePath())) { ... }

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/class_registry.h"
#include "foundation/expected.h"
#include "schedule/scheduled_item.h"

namespace halyard {

// The schedule file's path: the "USER_PATH" folder + "/ScheduleData.sched".
std::string scheduleFilePath();

// The archive classes a schedule holds: Foundation's and KSScheduledItem.
ClassRegistry scheduleClassRegistry(CalendarClock clock);

// The present moment in the user's zone, from the system clock.
CalendarClock systemCalendarClock();

// A schedule file's contents: its root dictionary (other entries are kept
// when it is written back) and its items, absent when the root holds none.
struct ScheduleData {
  std::shared_ptr<Dictionary> root;
  std::optional<ScheduleItems> items;
};

// Decodes the bytes of a schedule file. Array elements that are not
// scheduled items are left out (and logged).
Expected<ScheduleData> decodeScheduleData(std::string_view bytes, const ClassRegistry& registry);
// The bytes of a schedule file: the root with the items array put in.
std::string encodeScheduleData(const ScheduleData& data);

// The agent's read: the items of the file, absent when the file is missing,
// unreadable or holds no items entry. No message in any of these cases.
std::optional<ScheduleItems> readScheduleItems(const std::string& path, const CalendarClock& clock);
std::optional<ScheduleItems> readScheduleItems(const std::string& path);

// halyardctl's write: the folder is made when missing, and the file is
// replaced atomically (temporary file, flush, rename).
Status writeScheduleFile(const std::string& path, const ScheduleData& data);

}  // namespace halyard
