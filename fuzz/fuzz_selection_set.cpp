// Feeds arbitrary text to the selection-set parser of `halyardctl schedule`
// (--months, --days-of-month, --days-of-week, --hours, --minutes); the first
// byte picks the set. Whatever parses must be a "0"/"1" string of the set's
// length.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "schedule/selection_set_text.h"

namespace {

constexpr std::size_t kLengths[halyard::kSetCount] = {12, 31, 7, 24, 60};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t kind = data[0] % halyard::kSetCount;
  const std::string_view value(reinterpret_cast<const char*>(data + 1), size - 1);
  auto set = halyard::parseSelectionSet(static_cast<halyard::SetKind>(kind), value);
  if (!set) return 0;
  if (set->size() != kLengths[kind] || set->find_first_not_of("01") != std::string::npos) std::abort();
  return 0;
}
