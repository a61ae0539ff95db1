// The one place the core reads the wall clock. Logic takes the moment as an
// argument; the clocks handed to it at the program's edges call this.

#include <ctime>

#include "foundation/dates.h"

namespace halyard {

TimeInterval systemNow() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return fromUnixSeconds(static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9);
}

}  // namespace halyard
