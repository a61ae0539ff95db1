#include "foundation/strings_table.h"

#include <cstdlib>

#include "foundation/file_io.h"

namespace halyard {
namespace {

// The English texts used when the table cannot be read.
const std::map<std::string_view, std::string_view> kBuiltInTexts = {
    {"NO_DESC", "No description"},
    {"USER_PATH", "~/.local/share/Halyard"},
};

constexpr std::string_view kDataHomeDefault = "~/.local/share";

// One quoted string starting at `pos` (on the opening quote); advances `pos`
// past the closing quote.
std::optional<std::string> parseQuoted(std::string_view line, std::size_t& pos) {
  if (pos >= line.size() || line[pos] != '"') return std::nullopt;
  std::string text;
  for (++pos; pos < line.size(); ++pos) {
    char c = line[pos];
    if (c == '"') {
      ++pos;
      return text;
    }
    if (c == '\\') {
      if (++pos >= line.size()) return std::nullopt;
      c = line[pos];
      if (c == 'n') c = '\n';
      else if (c == 't') c = '\t';
      else if (c != '"' && c != '\\') return std::nullopt;
    }
    text.push_back(c);
  }
  return std::nullopt;
}

void skipSpaces(std::string_view line, std::size_t& pos) {
  while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t')) ++pos;
}

bool parseEntry(std::string_view line, std::string& key, std::string& text) {
  std::size_t pos = 0;
  skipSpaces(line, pos);
  auto k = parseQuoted(line, pos);
  skipSpaces(line, pos);
  if (!k || pos >= line.size() || line[pos] != '=') return false;
  ++pos;
  skipSpaces(line, pos);
  auto t = parseQuoted(line, pos);
  skipSpaces(line, pos);
  if (!t || pos >= line.size() || line[pos] != ';') return false;
  ++pos;
  skipSpaces(line, pos);
  if (pos != line.size() && line[pos] != '\r') return false;
  key = std::move(*k);
  text = std::move(*t);
  return true;
}

}  // namespace

StringsTable StringsTable::parse(std::string_view text) {
  StringsTable table;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    std::string key, value;
    if (parseEntry(line, key, value)) table.entries_[std::move(key)] = std::move(value);
  }
  return table;
}

StringsTable StringsTable::loadFromResourceFolder(const std::string& folder) {
  auto text = readWholeFile(folder + "/strings/en.strings");
  return text ? parse(*text) : StringsTable();
}

const StringsTable& StringsTable::shared() {
  static const StringsTable table = loadFromResourceFolder(resourceFolder());
  return table;
}

std::optional<std::string> StringsTable::find(std::string_view key) const {
  auto found = entries_.find(key);
  if (found == entries_.end()) return std::nullopt;
  return found->second;
}

std::string StringsTable::lookup(std::string_view key) const {
  if (auto text = find(key)) return *text;
  auto builtIn = kBuiltInTexts.find(key);
  return std::string(builtIn != kBuiltInTexts.end() ? builtIn->second : key);
}

std::string localizedString(std::string_view key) { return StringsTable::shared().lookup(key); }

std::string expandUserFolder(std::string_view text, const char* home, const char* xdgDataHome) {
  const bool underDataHome = text.substr(0, kDataHomeDefault.size()) == kDataHomeDefault &&
                             (text.size() == kDataHomeDefault.size() || text[kDataHomeDefault.size()] == '/');
  if (underDataHome && xdgDataHome && xdgDataHome[0] == '/') {
    return std::string(xdgDataHome) + std::string(text.substr(kDataHomeDefault.size()));
  }
  if (!text.empty() && text[0] == '~' && (text.size() == 1 || text[1] == '/') && home && home[0] != '\0') {
    return std::string(home) + std::string(text.substr(1));
  }
  return std::string(text);
}

std::string expandUserFolder(std::string_view text) {
  return expandUserFolder(text, std::getenv("HOME"), std::getenv("XDG_DATA_HOME"));
}

}  // namespace halyard
