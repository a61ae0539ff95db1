// Feeds arbitrary text to the reader of scheduled items in their JSON item
// form (`schedule import`, `simulate --schedule-json`). Whatever it accepts
// must be written back by `schedule export --json` in a form it reads again
// to as many items.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/schedule_json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const cctz::time_zone zone = halyard::loadTimeZone("America/New_York").value_or(cctz::utc_time_zone());
  const halyard::CalendarClock clock = [] {
    return halyard::CalendarDate::make(800000000.0, halyard::TimeZone::make("America/New_York"));
  };
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  auto items = halyard::tools::readScheduleJson(text, zone, clock);
  if (!items) return 0;
  auto again = halyard::tools::readScheduleJson(halyard::tools::writeScheduleJson(*items, zone), zone, clock);
  if (!again || again->size() != items->size()) std::abort();
  return 0;
}
