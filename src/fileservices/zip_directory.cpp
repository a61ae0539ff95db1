// The ZIP end-of-central-directory records (plain and ZIP64) and central
// directory headers, read little-endian with every bound checked.

#include "fileservices/zip_directory.h"

#include <algorithm>
#include <fstream>
#include <limits>

#include "fileservices/item_metadata.h"

namespace halyard::fileservices {

namespace {

constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr std::uint32_t kZip64EndSignature = 0x06064b50;
constexpr std::uint32_t kHeaderSignature = 0x02014b50;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kLocatorSize = 20;
constexpr std::size_t kZip64EndSize = 56;
constexpr std::size_t kHeaderSize = 46;
constexpr std::size_t kMaxComment = 0xFFFF;
constexpr std::uint64_t kMaxDirectoryBytes = 256ull * 1024 * 1024;
constexpr std::uint32_t kZip64Marker = 0xFFFFFFFF;
constexpr std::uint16_t kZip64ExtraID = 0x0001;

std::uint64_t little(std::string_view bytes, std::size_t at, std::size_t width) {
  std::uint64_t v = 0;
  for (std::size_t i = width; i-- > 0;) v = (v << 8) | static_cast<unsigned char>(bytes[at + i]);
  return v;
}

std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b) {
  return b > std::numeric_limits<std::uint64_t>::max() - a ? std::numeric_limits<std::uint64_t>::max() : a + b;
}

// The uncompressed size, from the ZIP64 extra field when the header holds
// the marker.
Expected<std::uint64_t> uncompressedSize(std::string_view extra, std::uint64_t declared) {
  if (declared != kZip64Marker) return declared;
  for (std::size_t at = 0; at + 4 <= extra.size();) {
    const auto id = little(extra, at, 2);
    const auto size = static_cast<std::size_t>(little(extra, at + 2, 2));
    if (at + 4 + size > extra.size()) break;
    if (id == kZip64ExtraID && size >= 8) return little(extra, at + 4, 8);
    at += 4 + size;
  }
  return makeError("a member's ZIP64 size is missing");
}

class ArchiveFile {
 public:
  explicit ArchiveFile(const std::string& path) : in_(path, std::ios::binary | std::ios::ate) {
    size_ = in_ ? static_cast<std::uint64_t>(in_.tellg()) : 0;
  }
  bool ok() const { return static_cast<bool>(in_); }
  std::uint64_t size() const { return size_; }
  std::optional<std::string> read(std::uint64_t at, std::uint64_t length) {
    if (at > size_ || length > size_ - at) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(length), '\0');
    in_.seekg(static_cast<std::streamoff>(at));
    if (!in_.read(bytes.data(), static_cast<std::streamsize>(length))) return std::nullopt;
    return bytes;
  }

 private:
  std::ifstream in_;
  std::uint64_t size_ = 0;
};

struct DirectoryPlace {
  std::uint64_t offset;
  std::uint64_t size;
  std::uint64_t members;
};

std::optional<std::size_t> endRecordIn(std::string_view tail) {
  if (tail.size() < kEndSize) return std::nullopt;
  for (std::size_t at = tail.size() - kEndSize + 1; at-- > 0;) {
    if (little(tail, at, 4) == kEndSignature && at + kEndSize + little(tail, at + 20, 2) == tail.size()) return at;
  }
  return std::nullopt;
}

Expected<DirectoryPlace> locateDirectory(ArchiveFile& file) {
  const std::uint64_t tailLength = std::min<std::uint64_t>(file.size(), kEndSize + kMaxComment + kLocatorSize);
  const std::uint64_t tailStart = file.size() - tailLength;
  const auto tail = file.read(tailStart, tailLength);
  const auto end = tail ? endRecordIn(*tail) : std::nullopt;
  if (!end) return makeError("no end of central directory record");
  DirectoryPlace place{little(*tail, *end + 16, 4), little(*tail, *end + 12, 4), little(*tail, *end + 10, 2)};
  if (*end < kLocatorSize || little(*tail, *end - kLocatorSize, 4) != kZip64LocatorSignature) return place;
  const auto zip64 = file.read(little(*tail, *end - kLocatorSize + 8, 8), kZip64EndSize);
  if (!zip64 || little(*zip64, 0, 4) != kZip64EndSignature) return makeError("a broken ZIP64 end record");
  return DirectoryPlace{little(*zip64, 48, 8), little(*zip64, 40, 8), little(*zip64, 32, 8)};
}

}  // namespace

Expected<ZipDirectorySurvey> surveyCentralDirectory(std::string_view directory, std::uint64_t memberCount) {
  ZipDirectorySurvey survey;
  std::size_t at = 0;
  for (; survey.memberCount < memberCount; ++survey.memberCount) {
    if (directory.size() - at < kHeaderSize || little(directory, at, 4) != kHeaderSignature) {
      return makeError("central directory header " + std::to_string(survey.memberCount) + " is broken");
    }
    const auto nameLength = static_cast<std::size_t>(little(directory, at + 28, 2));
    const auto extraLength = static_cast<std::size_t>(little(directory, at + 30, 2));
    const auto commentLength = static_cast<std::size_t>(little(directory, at + 32, 2));
    const std::size_t next = at + kHeaderSize + nameLength + extraLength + commentLength;
    if (next > directory.size())
      return makeError("central directory header " + std::to_string(survey.memberCount) + " runs past the directory");
    const std::string_view name = directory.substr(at + kHeaderSize, nameLength);
    auto size =
        uncompressedSize(directory.substr(at + kHeaderSize + nameLength, extraLength), little(directory, at + 24, 4));
    if (!size) return size.error();
    if (name == kMetadataMemberName) {
      survey.metadataBytes = *size;
    } else {
      survey.declaredBytes = saturatingAdd(survey.declaredBytes, *size);
    }
    at = next;
  }
  return survey;
}

Expected<ZipDirectorySurvey> surveyZipArchive(const std::string& path) {
  ArchiveFile file(path);
  if (!file.ok()) return makeError("cannot read the archive " + path);
  auto place = locateDirectory(file);
  if (!place) return makeError(path + ": " + place.error().message);
  if (place->size > kMaxDirectoryBytes) return makeError(path + ": the central directory is larger than 256 MiB");
  auto directory = file.read(place->offset, place->size);
  if (!directory) return makeError(path + ": the central directory lies outside the file");
  auto survey = surveyCentralDirectory(*directory, place->members);
  if (!survey) return makeError(path + ": " + survey.error().message);
  return survey;
}

}  // namespace halyard::fileservices
