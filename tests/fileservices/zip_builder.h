#pragma once
// ZipBuilder: writes small ZIP archives member by member for tests, so that
// hostile shapes (names that climb out, absolute names, symbolic links,
// bombs whose declared sizes tell the truth or lie) are built in the test
// itself. Members are stored, or deflated from repeated zero mebibytes.

#include <cstdint>
#include <string>
#include <vector>

namespace halyard::fileservices {

class ZipBuilder {
 public:
  // A stored member; `mode` is its Unix mode (S_IFLNK | 0777 for a link,
  // whose data is the target).
  ZipBuilder& add(const std::string& name, const std::string& data, std::uint32_t mode = 0100644);
  // A deflated member of `mebibytes` zero mebibytes (at about 1 KiB each),
  // declaring `declaredSize` bytes uncompressed (the true size when 0).
  ZipBuilder& addZeros(const std::string& name, std::uint32_t mebibytes, std::uint32_t declaredSize = 0);
  // Writes the archive; false when the file cannot be written.
  bool write(const std::string& path) const;

 private:
  struct Member {
    std::string name;
    std::string data;
    std::uint32_t crc;
    std::uint32_t size;
    std::uint16_t method;
    std::uint32_t mode;
  };
  std::vector<Member> _members;
};

}  // namespace halyard::fileservices
