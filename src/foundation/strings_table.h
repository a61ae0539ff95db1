#pragma once
// StringsTable: the program's user-visible texts and folder paths by key,
// read from resources/strings/en.strings. When the table or a key is missing,
// the built-in English text for the key is used, and for a key the program
// does not know, the key itself (the platform's behaviour for a missing key).
//
//   std::string folder = expandUserFolder(localizedString("USER_PATH"));

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace halyard {

class StringsTable {
 public:
  // Parses the table text (format documented at the top of en.strings):
  // lines `"KEY" = "text";`, with \" \\ \n \t escapes; blank lines and lines
  // starting with `//` are ignored, and so is any line that does not parse.
  static StringsTable parse(std::string_view text);
  // The table in `<folder>/strings/en.strings`; an empty table when absent.
  static StringsTable loadFromResourceFolder(const std::string& folder);
  // The program's table, loaded once from resourceFolder().
  static const StringsTable& shared();

  // The text for a key: the table's, else the built-in default, else the key.
  std::string lookup(std::string_view key) const;
  std::optional<std::string> find(std::string_view key) const;

 private:
  std::map<std::string, std::string, std::less<>> entries_;
};

// StringsTable::shared().lookup(key).
std::string localizedString(std::string_view key);

// The folder that holds the program's resources: $HALYARD_RESOURCE_DIR when
// set, else `../share/halyard` beside the executable when it exists, else
// the source tree's resources folder this program was built from.
std::string resourceFolder();

// A folder text from the table as a path. "~/.local/share" is the XDG data
// home's default, so a text starting with it is moved onto `xdgDataHome`
// when that is an absolute path; then a leading "~" becomes `home`.
std::string expandUserFolder(std::string_view text, const char* home, const char* xdgDataHome);
// The same with $HOME and $XDG_DATA_HOME.
std::string expandUserFolder(std::string_view text);

}  // namespace halyard
