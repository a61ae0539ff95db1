#include "schedule/walk_steps.h"

#include <cmath>
#include <limits>

namespace halyard {

std::int64_t exactWalkSteps(double first, int direction) {
  // Backward steps from x round exactly as forward steps from -x.
  const double value = direction > 0 ? first : -first;
  // value = mantissa * 2^unit with |mantissa| < 2^53, taking the coarsest unit
  // that still divides the step (at most 4, since 60 = 4 * 15).
  int exponent = 0;
  const double fraction = std::frexp(value, &exponent);
  auto mantissa = static_cast<std::int64_t>(std::ldexp(fraction, 53));
  int unit = exponent - 53;
  while (unit < 2 && mantissa % 2 == 0) {
    mantissa /= 2;
    ++unit;
  }
  // Every value + 60 j below 2^(53 + unit) is a multiple of 2^unit that a
  // double holds exactly, so the additions reaching it are exact.
  const unsigned __int128 room = (std::int64_t{1} << 53) - mantissa;
  const int fineness = -unit;
  if (fineness > 64) return 1;
  const unsigned __int128 span = unit >= 0 ? room << unit : room;
  const unsigned __int128 step = fineness > 0 ? static_cast<unsigned __int128>(60) << fineness : 60;
  const unsigned __int128 count = (span + step - 1) / step;
  constexpr auto kMost = static_cast<unsigned __int128>(std::numeric_limits<std::int64_t>::max());
  return static_cast<std::int64_t>(count < kMost ? count : kMost);
}

}  // namespace halyard
