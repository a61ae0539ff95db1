// Feeds arbitrary bytes to the archive reader; whatever decodes is written
// back and read again, which must succeed.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundation/archiver.h"
#include "foundation/json_writer.h"
#include "foundation/unarchiver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto groups = halyard::Unarchiver::unarchiveGroups(bytes);
  if (!groups) return 0;
  halyard::Archiver archiver;
  for (const auto& group : *groups) archiver.encodeGroup(group);
  auto again = halyard::Unarchiver::unarchiveGroups(archiver.bytes());
  if (!again) std::abort();
  (void)halyard::JsonWriter::describe(*groups);
  return 0;
}
