#pragma once
// The application registry's lookup by name: the XDG desktop entry
// "halyard.desktop" under each data folder's "applications", and the command
// of its Exec= line.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard::agent {

inline constexpr char kDesktopEntryName[] = "halyard.desktop";

// $XDG_DATA_HOME (else ~/.local/share), then each of $XDG_DATA_DIRS (else
// /usr/local/share and /usr/share).
std::vector<std::string> xdgDataDirs();

// The command of the first desktop entry found: its Exec= line split into
// arguments, field codes (%f, %U, ...) dropped and "%%" kept as "%".
std::optional<std::vector<std::string>> findDesktopEntryCommand(const std::vector<std::string>& dataDirs);

// The Exec= value of a desktop entry's text, split as above; absent when the
// [Desktop Entry] group has no usable Exec= key.
std::optional<std::vector<std::string>> parseDesktopEntryExec(std::string_view text);

}  // namespace halyard::agent
