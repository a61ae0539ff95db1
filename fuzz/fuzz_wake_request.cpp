// Feeds arbitrary bytes to the wake tool's request reader, which runs with
// root's rights on input from any local user. Whatever it accepts is written
// again and must read back as the same request.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "helper/wake_request.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace halyard::wake;
  auto request = readWakeRequest(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!request) return 0;
  auto again = readWakeRequest(writeWakeRequest(*request));
  if (!again || again->command != request->command || again->powerOnUnixSeconds != request->powerOnUnixSeconds)
    std::abort();
  return 0;
}
