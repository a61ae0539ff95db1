// Feeds arbitrary bytes to the schedule file's decoder, then asks every item
// that decodes for its next and its previous run, as the agent does at every
// minute. The moment and the zone are fixed so that a finding reproduces.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <cctz/time_zone.h>

#include "schedule/schedule_file.h"

namespace {

constexpr halyard::TimeInterval kNow = 794307600;  // 2026-03-04 10:00:00 Berlin

const cctz::time_zone& zone() {
  static const cctz::time_zone berlin = [] {
    cctz::time_zone z;
    if (!cctz::load_time_zone("Europe/Berlin", &z)) z = cctz::utc_time_zone();
    return z;
  }();
  return berlin;
}

const halyard::ClassRegistry& registry() {
  static const halyard::ClassRegistry classes = halyard::scheduleClassRegistry(
      [] { return halyard::CalendarDate::make(kNow, halyard::TimeZone::make("Europe/Berlin", true)); });
  return classes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto schedule = halyard::decodeScheduleData(bytes, registry());
  if (!schedule || !schedule->items) return 0;
  for (const auto& item : *schedule->items) {
    (void)item->nextScheduledDateAfter(std::nullopt, std::nullopt, kNow, zone());
    (void)item->previousScheduledDateBefore(std::nullopt, std::nullopt, kNow, zone());
  }
  return 0;
}
