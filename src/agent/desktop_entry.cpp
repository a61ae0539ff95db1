#include "agent/desktop_entry.h"

#include <cstdlib>
#include <sstream>

#include "foundation/file_io.h"

namespace halyard::agent {

namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::vector<std::string> splitColons(const std::string& text) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, ':');) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

// Splits an Exec value: blanks separate arguments, double quotes group them
// and a backslash inside quotes escapes the next character.
std::vector<std::string> splitExec(std::string_view exec) {
  std::vector<std::string> args;
  std::string current;
  bool inArgument = false, quoted = false;
  for (std::size_t i = 0; i < exec.size(); ++i) {
    const char c = exec[i];
    if (quoted && c == '\\' && i + 1 < exec.size()) {
      current += exec[++i];
    } else if (c == '"') {
      quoted = !quoted;
      inArgument = true;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      if (inArgument) args.push_back(std::move(current));
      current.clear();
      inArgument = false;
    } else {
      current += c;
      inArgument = true;
    }
  }
  if (inArgument) args.push_back(std::move(current));
  return args;
}

// Drops the field codes: an argument that is only a code goes, "%%" becomes "%".
std::vector<std::string> expandFieldCodes(const std::vector<std::string>& args) {
  std::vector<std::string> out;
  for (const std::string& arg : args) {
    if (arg.size() == 2 && arg[0] == '%' && arg[1] != '%') continue;
    std::string text;
    for (std::size_t i = 0; i < arg.size(); ++i) {
      if (arg[i] != '%' || i + 1 >= arg.size()) {
        text += arg[i];
      } else if (arg[++i] == '%') {
        text += '%';
      }
    }
    out.push_back(std::move(text));
  }
  return out;
}

}  // namespace

std::vector<std::string> xdgDataDirs() {
  std::string home = environment("XDG_DATA_HOME");
  if (home.empty()) home = environment("HOME") + "/.local/share";
  std::vector<std::string> dirs{home};
  std::vector<std::string> system = splitColons(environment("XDG_DATA_DIRS"));
  if (system.empty()) system = {"/usr/local/share", "/usr/share"};
  dirs.insert(dirs.end(), system.begin(), system.end());
  return dirs;
}

std::optional<std::vector<std::string>> parseDesktopEntryExec(std::string_view text) {
  bool inEntryGroup = false;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.starts_with('[')) {
      inEntryGroup = line == "[Desktop Entry]";
    } else if (inEntryGroup && line.starts_with("Exec=")) {
      std::vector<std::string> args = expandFieldCodes(splitExec(std::string_view(line).substr(5)));
      if (args.empty() || args.front().empty()) return std::nullopt;
      return args;
    }
  }
  return std::nullopt;
}

std::optional<std::vector<std::string>> findDesktopEntryCommand(const std::vector<std::string>& dataDirs) {
  for (const std::string& dir : dataDirs) {
    auto text = readWholeFile(dir + "/applications/" + kDesktopEntryName);
    if (text) return parseDesktopEntryExec(*text);
  }
  return std::nullopt;
}

}  // namespace halyard::agent
