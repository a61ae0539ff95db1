#include "volumes/volume_byte_order.h"

#include <bit>
#include <cstring>

#include "volumes/volume_mounts.h"

namespace halyard {
namespace {

constexpr std::uint32_t kAppleShareMedia = fourCharCode("afpm");

template <class T>
T toBig(T v) {
  if constexpr (std::endian::native == std::endian::big) return v;
  if constexpr (sizeof(T) == 2) return static_cast<T>(__builtin_bswap16(v));
  else return static_cast<T>(__builtin_bswap32(v));
}

template <class T>
void appendBig(std::string& out, T v) {
  const T big = toBig(v);
  out.append(reinterpret_cast<const char*>(&big), sizeof big);
}

template <class T>
T readBig(std::string_view bytes, std::size_t at) {
  T v;
  std::memcpy(&v, bytes.data() + at, sizeof v);
  return toBig(v);
}

// Swaps a field in place when it fits wholly in the block.
template <class T>
void swapAt(std::string& block, std::size_t at) {
  if (at + sizeof(T) > block.size()) return;
  T v;
  std::memcpy(&v, block.data() + at, sizeof v);
  v = toBig(v);
  std::memcpy(block.data() + at, &v, sizeof v);
}

void swapHeader(std::string& block) {
  swapAt<std::uint16_t>(block, 0);
  swapAt<std::uint32_t>(block, 2);
  swapAt<std::uint16_t>(block, 6);
}

void swapAppleShareWords(std::string& block) {
  for (std::size_t at = 10; at <= 28; at += 2) swapAt<std::uint16_t>(block, at);
}

}  // namespace

std::string creationDateToBigEndian(const UTCDateTime& date) {
  std::string bytes;
  appendBig(bytes, date.highSeconds);
  appendBig(bytes, date.lowSeconds);
  appendBig(bytes, date.fraction);
  return bytes;
}

std::optional<UTCDateTime> creationDateFromBigEndian(std::string_view bytes) {
  if (bytes.size() != 8) return std::nullopt;
  return UTCDateTime{readBig<std::uint16_t>(bytes, 0), readBig<std::uint32_t>(bytes, 2),
                     readBig<std::uint16_t>(bytes, 6)};
}

std::uint32_t mountInfoMedia(std::string_view block) {
  if (block.size() < 6) return 0;
  std::uint32_t media;
  std::memcpy(&media, block.data() + 2, sizeof media);
  return media;
}

// The media type is looked at before the header is converted.
std::string mountInfoToBigEndian(std::string block) {
  const bool appleShare = mountInfoMedia(block) == kAppleShareMedia;
  swapHeader(block);
  if (appleShare) swapAppleShareWords(block);
  return block;
}

// The media type is looked at after the header is converted back.
std::string mountInfoToHost(std::string block) {
  swapHeader(block);
  if (mountInfoMedia(block) == kAppleShareMedia) swapAppleShareWords(block);
  return block;
}

}  // namespace halyard
