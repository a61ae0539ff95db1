#pragma once
// What the Qt-free tests of the agent's rules share: civil moments of a named
// zone, the zones whose daylight-saving changes they cross, items run at the
// minutes given, and random draws from a seed for schedules and periods.

#include <initializer_list>
#include <random>
#include <string>

#include "agent/rules/simulation.h"

namespace halyard::agent::testing {

// New York and Berlin change on different dates; Lord Howe by half an hour.
inline constexpr const char* kZones[] = {"America/New_York", "Europe/Berlin", "Australia/Lord_Howe"};

inline TimeInterval wall(const cctz::time_zone& zone, int y, int mo, int d, int h, int mi, int s = 0,
                         double fraction = 0) {
  return joinInstant(cctz::convert(cctz::civil_second(y, mo, d, h, mi, s), zone), fraction);
}

// Selection sets of one hour, and of the minutes from `first` to `last`.
inline std::string oneHour(int hour) { return std::string(hour, '0') + "1" + std::string(23 - hour, '0'); }
inline std::string minutes(int first, int last) {
  return std::string(first, '0') + std::string(last - first + 1, '1') + std::string(59 - last, '0');
}

// An item of `type`, every day, at the hours and minutes selected, from `start`.
inline std::shared_ptr<KSScheduledItem> timedItem(const std::string& description, std::int32_t type, std::string hours,
                                                  std::string minutes, TimeInterval start) {
  auto made = std::make_shared<KSScheduledItem>(CalendarDate::make(start, TimeZone::make("UTC")));
  made->setDescription(description);
  made->setScheduleType(type);
  made->setScheduledHours(std::move(hours));
  made->setScheduledMinutes(std::move(minutes));
  made->selectEveryDayOfWeek();
  made->selectEveryDayOfMonth();
  return made;
}

// Draws from a seeded generator: the same seed gives the same period.
class RandomDraws {
 public:
  explicit RandomDraws(std::uint64_t seed) : rng_(seed) {}
  double uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(rng_); }
  bool chance(double p) { return std::bernoulli_distribution(p)(rng_); }
  int pick(std::initializer_list<int> values) {
    return *(values.begin() + std::uniform_int_distribution<std::size_t>(0, values.size() - 1)(rng_));
  }
  // A selection set ("0110..."): each of `length` entries selected with probability `density`.
  std::string set(std::size_t length, double density) {
    std::string made(length, '0');
    for (char& c : made) c = chance(density) ? '1' : '0';
    return made;
  }

 private:
  std::mt19937_64 rng_;
};

}  // namespace halyard::agent::testing
