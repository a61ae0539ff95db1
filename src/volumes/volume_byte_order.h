#pragma once
// The byte orders of a volume record's binary fields. Archives hold them in
// big-endian order whatever the machine, so that a record written on one
// byte order reads back on the other.
//
// The mount-info block starts with a header: a 16-bit length (offset 0), the
// 32-bit media type (offset 2) and a 16-bit flags word (offset 6). For the
// file-server protocol's block (media 'afpm') the ten 16-bit words at offsets
// 10 to 28 are offsets and a type, converted too. All other bytes are kept.
// A field that does not fit wholly in the block is left as it is.

#include <optional>
#include <string>
#include <string_view>

#include "volumes/volume_facts.h"

namespace halyard {

std::string creationDateToBigEndian(const UTCDateTime& date);
// The date of exactly 8 big-endian bytes; absent for any other length.
std::optional<UTCDateTime> creationDateFromBigEndian(std::string_view bytes);

// The media type at offset 2 in host order (0 when the block is shorter).
std::uint32_t mountInfoMedia(std::string_view block);
std::string mountInfoToBigEndian(std::string block);
std::string mountInfoToHost(std::string block);

}  // namespace halyard
