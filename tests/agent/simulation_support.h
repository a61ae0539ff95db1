#pragma once
// What the simulation's tests share: civil moments of a named zone, the zones
// whose daylight-saving changes they cross, and random draws from a seed for
// schedules and periods.

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
