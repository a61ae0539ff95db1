// Feeds arbitrary bytes to the reader of "metadata.plist". Whatever reads
// as metadata is written again and read again, which must succeed and give
// the same metadata back.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "fileservices/item_metadata.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace halyard::fileservices;
  auto metadata = parseMetadataPlist(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!metadata) return 0;
  auto again = parseMetadataPlist(metadataPlistXML(*metadata));
  if (!again) std::abort();
  // Names and comments with bytes XML cannot carry may not come back whole;
  // the raw records and the ACL, written as data, always do.
  if (again->catalogInfo != metadata->catalogInfo || again->bsdStatus != metadata->bsdStatus ||
      again->acl != metadata->acl) {
    std::abort();
  }
  return 0;
}
