#pragma once
// What a ZIP archive's central directory declares, read before anything is
// extracted: how many bytes its members will take, and the declared size of
// the member "metadata.plist". The archive comes from outside: every offset
// and length is checked against the bytes there are, and a malformed
// directory is an Error naming the archive.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/expected.h"

namespace halyard::fileservices {

struct ZipDirectorySurvey {
  std::uint64_t memberCount = 0;
  std::uint64_t declaredBytes = 0;             // uncompressed, all members but the metadata
  std::optional<std::uint64_t> metadataBytes;  // of "metadata.plist", when there is one
};

// The central directory's members, from the directory's own bytes.
Expected<ZipDirectorySurvey> surveyCentralDirectory(std::string_view directory, std::uint64_t memberCount);

// Finds and surveys the central directory of the archive file.
Expected<ZipDirectorySurvey> surveyZipArchive(const std::string& path);

}  // namespace halyard::fileservices
