#include "fileservices/alias_file_system.h"

#include <charconv>

namespace halyard {
namespace {

// The kernel writes space, tab, newline and backslash in paths as \ooo.
std::string unescapeMountField(std::string_view field) {
  std::string out;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const std::string_view digits = field.substr(i + 1, 3);
      if (digits.find_first_not_of("01234567") == std::string_view::npos) {
        out.push_back(static_cast<char>(((digits[0] - '0') << 6) | ((digits[1] - '0') << 3) | (digits[2] - '0')));
        i += 3;
        continue;
      }
    }
    out.push_back(field[i]);
  }
  return out;
}

std::vector<std::string_view> splitFields(std::string_view line) {
  std::vector<std::string_view> fields;
  std::size_t pos = 0;
  while (pos < line.size()) {
    const std::size_t start = line.find_first_not_of(' ', pos);
    if (start == std::string_view::npos) break;
    const std::size_t end = line.find(' ', start);
    fields.push_back(line.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    pos = end == std::string_view::npos ? line.size() : end;
  }
  return fields;
}

bool parseDevice(std::string_view field, unsigned& major, unsigned& minor) {
  const std::size_t colon = field.find(':');
  if (colon == std::string_view::npos) return false;
  const char* end = field.data() + field.size();
  auto first = std::from_chars(field.data(), field.data() + colon, major);
  auto second = std::from_chars(field.data() + colon + 1, end, minor);
  return first.ec == std::errc() && first.ptr == field.data() + colon && second.ec == std::errc() && second.ptr == end;
}

}  // namespace

std::vector<MountInfoEntry> parseMountInfo(std::string_view text) {
  std::vector<MountInfoEntry> entries;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const auto fields = splitFields(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    // id parent major:minor root mount-point options ...
    MountInfoEntry entry;
    if (fields.size() < 5 || !parseDevice(fields[2], entry.major, entry.minor)) continue;
    entry.root = unescapeMountField(fields[3]);
    entry.mountPoint = unescapeMountField(fields[4]);
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace halyard
