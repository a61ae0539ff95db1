// VTFileManager's name rules: a free file name with a numbered suffix, and a
// name under which a folder may be used. Lengths count characters (code
// points), and names are cut at character boundaries. Whatever the maximum,
// a made name also stays within the 255 bytes a Linux file name may have, so
// a name of accented or other multibyte characters can still be created.

#include <sys/stat.h>

#include "fileservices/fm_audit.h"
#include "fileservices/vt_file_manager.h"
#include "foundation/strings_table.h"

namespace halyard::fileservices {

namespace {

constexpr std::uint32_t kDefaultFileNameMax = 255;
constexpr std::uint32_t kDefaultFolderNameMax = 9999;
constexpr std::size_t kNameMaxBytes = 255;  // NAME_MAX

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  for (unsigned char c : text) count += (c & 0xC0) != 0x80;
  return count;
}

void dropLastCharacter(std::string& text) {
  while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.pop_back();
  if (!text.empty()) text.pop_back();
}

bool fitsIn(std::string_view name, std::uint32_t maxCharacters) {
  return characterCount(name) <= maxCharacters && name.size() <= kNameMaxBytes;
}

// The table's format applied to the seed. The text comes from a resource
// file, so it is never handed to printf: its one integer directive (%u, %d,
// %i, %lu) takes the number and %% stands for a percent sign.
std::string suffixForSeed(std::uint32_t seed) {
  const std::string format = localizedString("UNIQUE_NAME_FORMAT");
  std::string out;
  bool used = false;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || i + 1 == format.size()) {
      out += format[i];
      continue;
    }
    std::size_t j = i + 1;
    if (format[j] == '%') {
      out += '%';
      i = j;
      continue;
    }
    if (format[j] == 'l') ++j;
    if (!used && j < format.size() && (format[j] == 'u' || format[j] == 'd' || format[j] == 'i')) {
      out += std::to_string(seed);
      used = true;
      i = j;
      continue;
    }
    out += format[i];
  }
  return out;
}

bool itemExists(const std::string& path, bool* isFolder = nullptr) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return false;
  if (isFolder) {
    // A link to a folder serves as the folder.
    struct stat target {};
    *isFolder =
        S_ISDIR(st.st_mode) || (S_ISLNK(st.st_mode) && stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode));
  }
  return true;
}

std::string inFolder(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

}  // namespace

std::string VTFileManager::uniqueCandidate(std::string& stem, const std::optional<std::string>& extension,
                                           std::uint32_t seed, std::uint32_t maxLength) const {
  const std::string suffix = suffixForSeed(seed);
  std::string ext = extension.value_or("");
  while (!ext.empty() && !fitsIn(ext + suffix + "..", maxLength)) dropLastCharacter(ext);
  auto build = [&] { return stem + suffix + (ext.empty() ? "" : "." + ext); };
  std::string candidate = build();
  while (!fitsIn(candidate, maxLength) && !stem.empty()) {
    dropLastCharacter(stem);
    candidate = build();
  }
  return candidate;
}

std::string VTFileManager::uniqueFileName(const std::string& name, const std::string& folder, std::uint32_t maxLength,
                                          bool insertExtension, std::uint32_t* suffixSeed) {
  AuditCall audit(*this, [&] {
    return "uniqueFileName:" + auditQuoted(name) + " inFolder:" + auditQuoted(folder) +
           " maxLength:" + std::to_string(maxLength) + " insertExtension:" + auditBool(insertExtension) +
           " suffixSeed:" + auditSeed(suffixSeed ? *suffixSeed : 0);
  });
  const std::uint32_t limit = maxLength == 0 ? kDefaultFileNameMax : maxLength;
  std::string stem = name;
  std::optional<std::string> extension;
  const auto dot = name.rfind('.');
  if (insertExtension && dot != std::string::npos && dot != 0 && dot + 1 < name.size()) {
    stem = name.substr(0, dot);
    extension = name.substr(dot + 1);
  }
  std::uint32_t seed = suffixSeed ? *suffixSeed : 0;
  std::string candidate = seed != 0 ? uniqueCandidate(stem, extension, seed, limit) : name;
  while (itemExists(inFolder(folder, candidate))) candidate = uniqueCandidate(stem, extension, ++seed, limit);
  if (suffixSeed) *suffixSeed = seed;
  audit.finish(0, [&] {
    return "uniqueFileName:inFolder:maxLength:insertExtension:suffixSeed: errcode: 0 result: " +
           auditQuoted(candidate) + " suffixUsed:" + std::to_string(seed);
  });
  return candidate;
}

std::string VTFileManager::locateFolderName(const std::string& name, const std::string& folder, std::uint32_t maxLength,
                                            std::uint32_t* suffixSeed) {
  AuditCall audit(*this, [&] {
    return "locateFolderName:" + auditQuoted(name) + " inFolder:" + auditQuoted(folder) +
           " maxLength:" + std::to_string(maxLength) + " suffixSeed:" + auditSeed(suffixSeed ? *suffixSeed : 0);
  });
  const std::uint32_t limit = maxLength == 0 ? kDefaultFolderNameMax : maxLength;
  std::string stem = name;
  auto build = [&](std::uint32_t seed) {
    const std::string suffix = suffixForSeed(seed);
    while (!fitsIn(stem + suffix, limit) && !stem.empty()) dropLastCharacter(stem);
    return stem + suffix;
  };
  std::uint32_t seed = suffixSeed ? *suffixSeed : 0;
  // With a seed given, the first candidate already carries its suffix.
  std::string candidate = seed != 0 ? build(seed) : name;
  bool isFolder = false;
  while (itemExists(inFolder(folder, candidate), &isFolder) && !isFolder) candidate = build(++seed);
  if (suffixSeed) *suffixSeed = seed;
  audit.finish(0, [&] {
    return "locateFolderName:inFolder:maxLength:suffixSeed: errcode: 0 result: " + auditQuoted(candidate) +
           " suffixUsed:" + std::to_string(seed);
  });
  return candidate;
}

}  // namespace halyard::fileservices
