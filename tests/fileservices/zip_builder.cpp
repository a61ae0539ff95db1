#include "fileservices/zip_builder.h"

#include <zlib.h>

#include <fstream>
#include <initializer_list>
#include <utility>

namespace halyard::fileservices {

namespace {

constexpr std::uint32_t kMebibyte = 1 << 20;

// Little-endian fields, each a value and its width in bytes.
std::string fields(std::initializer_list<std::pair<std::uint64_t, int>> list) {
  std::string out;
  for (auto [value, width] : list) {
    for (int i = 0; i < width; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
  }
  return out;
}

// One mebibyte of zeros deflated and fully flushed: the same bytes may be
// repeated, each copy inflating to another mebibyte.
std::string deflatedZeroMebibyte() {
  z_stream z{};
  deflateInit2(&z, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
  std::string zeros(kMebibyte, '\0'), out(kMebibyte, '\0');
  z.next_in = reinterpret_cast<Bytef*>(zeros.data());
  z.avail_in = kMebibyte;
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = kMebibyte;
  deflate(&z, Z_FULL_FLUSH);
  out.resize(kMebibyte - z.avail_out);
  deflateEnd(&z);
  return out;
}

}  // namespace

ZipBuilder& ZipBuilder::add(const std::string& name, const std::string& data, std::uint32_t mode) {
  const auto crc =
      static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
  _members.push_back({name, data, crc, static_cast<std::uint32_t>(data.size()), 0, mode});
  return *this;
}

ZipBuilder& ZipBuilder::addZeros(const std::string& name, std::uint32_t mebibytes, std::uint32_t declaredSize) {
  static const std::string block = deflatedZeroMebibyte();
  const std::string zeros(kMebibyte, '\0');
  const uLong blockCrc = crc32(0, reinterpret_cast<const Bytef*>(zeros.data()), kMebibyte);
  std::string data;
  uLong crc = 0;
  for (std::uint32_t i = 0; i < mebibytes; ++i) {
    data += block;
    crc = crc32_combine(crc, blockCrc, kMebibyte);
  }
  data += std::string("\x03\x00", 2);  // the final, empty block
  const std::uint64_t size = std::uint64_t{mebibytes} * kMebibyte;
  _members.push_back({name, data, static_cast<std::uint32_t>(crc),
                      declaredSize ? declaredSize : static_cast<std::uint32_t>(size), 8, 0100644});
  return *this;
}

bool ZipBuilder::write(const std::string& path) const {
  std::string out, directory;
  for (const Member& m : _members) {
    // The fields a local header shares with its central directory entry.
    const std::string shared = fields({{20, 2}, {0, 2}, {m.method, 2}, {0, 4}, {m.crc, 4}}) +
                               fields({{m.data.size(), 4}, {m.size, 4}, {m.name.size(), 2}, {0, 2}});
    // Made by Unix 3.0, so that the mode counts.
    directory += fields({{0x02014b50, 4}, {0x031E, 2}}) + shared +
                 fields({{0, 6}, {std::uint64_t{m.mode} << 16, 4}, {out.size(), 4}}) + m.name;
    out += fields({{0x04034b50, 4}}) + shared + m.name + m.data;
  }
  // The end record.
  const std::uint64_t directoryOffset = out.size();
  out += directory + fields({{0x06054b50, 4}, {0, 4}, {_members.size(), 2}, {_members.size(), 2}}) +
         fields({{directory.size(), 4}, {directoryOffset, 4}, {0, 2}});
  std::ofstream file(path, std::ios::binary);
  file << out;
  return static_cast<bool>(file);
}

}  // namespace halyard::fileservices
