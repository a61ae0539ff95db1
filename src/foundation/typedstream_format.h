#pragma once
// The typedstream format's one-byte tags and its reference-number bias,
// shared by the archive writer and reader. A head byte read as a signed char
// from kSmallestLiteral (-110) to 127 is a small integer written in place;
// below it, the byte is one of these tags.

#include <cstdint>

namespace halyard::typedstream {

constexpr std::int8_t kTagInt16 = -127;  // 0x81: a 2-byte little-endian integer follows
constexpr std::int8_t kTagInt32 = -126;  // 0x82: a 4-byte integer follows
constexpr std::int8_t kTagReal = -125;   // 0x83: an IEEE float or double follows
constexpr std::int8_t kTagNew = -124;    // 0x84: a new object, class or string follows
constexpr std::int8_t kTagNil = -123;    // 0x85: nil
constexpr std::int8_t kTagEnd = -122;    // 0x86: the end of an object's fields
constexpr std::int8_t kTagInt64 = -121;  // 0x87: an 8-byte integer follows
constexpr std::int8_t kSmallestLiteral = -110;
// Reference numbers are written as n - 110, so entry 0 is the byte 0x92.
constexpr std::int64_t kReferenceBias = 110;

// A tag as the byte written to the stream.
constexpr std::uint8_t tagByte(std::int8_t tag) { return static_cast<std::uint8_t>(tag); }

}  // namespace halyard::typedstream
