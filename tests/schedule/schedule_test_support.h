#pragma once
// Shared helpers of the schedule tests: a fixed present moment, and the
// scratch folder that is removed afterwards.

#include <memory>
#include <utility>
#include <vector>

#include "fileservices/test_folder.h"
#include "foundation/values.h"
#include "schedule/scheduled_item.h"

namespace halyard::testing {

// 2024-03-05 10:20:30 UTC (a Tuesday), in Europe/Berlin.
constexpr TimeInterval kFixedNow = 731326830.0;

inline std::shared_ptr<CalendarDate> fixedDate(TimeInterval seconds = kFixedNow) {
  return CalendarDate::make(seconds, TimeZone::make("Europe/Berlin"));
}

inline CalendarClock fixedClock(TimeInterval seconds = kFixedNow) {
  return [seconds] { return fixedDate(seconds); };
}

inline std::shared_ptr<KSScheduledItem> newItem() { return std::make_shared<KSScheduledItem>(fixedDate()); }

// A dictionary of `entries`, in their order.
inline std::shared_ptr<Dictionary> dictionaryOf(std::vector<std::pair<const char*, ObjectRef>> entries,
                                                bool isMutable = true) {
  auto dictionary = Dictionary::make(isMutable);
  for (auto& [key, value] : entries) dictionary->set(key, std::move(value));
  return dictionary;
}

using fileservices::TestFolder;

}  // namespace halyard::testing
