#include "schedule/local_zone_name.h"

namespace halyard {
namespace {

// "/usr/share/zoneinfo/Europe/Berlin" and "../usr/share/zoneinfo/Europe/Berlin"
// name "Europe/Berlin"; a path outside a zoneinfo folder names nothing.
std::optional<std::string> nameInZoneinfo(std::string_view path) {
  constexpr std::string_view kFolder = "zoneinfo/";
  const std::size_t at = path.rfind(kFolder);
  if (at == std::string_view::npos || at + kFolder.size() >= path.size()) return std::nullopt;
  std::string_view name = path.substr(at + kFolder.size());
  if (name.substr(0, 6) == "posix/" || name.substr(0, 6) == "right/") name.remove_prefix(6);
  return std::string(name);
}

bool looksLikeZoneName(std::string_view text) {
  return !text.empty() && text.front() != '/' && text.find("..") == std::string_view::npos &&
         text.find_first_of(" \t\n") == std::string_view::npos;
}

}  // namespace

std::string ianaZoneName(std::optional<std::string_view> tz, std::optional<std::string_view> localtimeLink,
                         std::optional<std::string_view> timezoneFile) {
  if (tz && !tz->empty()) {
    std::string_view zone = *tz;
    if (zone.front() == ':') zone.remove_prefix(1);
    if (auto name = nameInZoneinfo(zone)) return *name;
    if (looksLikeZoneName(zone) && zone != "localtime") return std::string(zone);
  }
  if (localtimeLink) {
    if (auto name = nameInZoneinfo(*localtimeLink)) return *name;
  }
  if (timezoneFile) {
    const std::string_view line = timezoneFile->substr(0, timezoneFile->find('\n'));
    if (looksLikeZoneName(line)) return std::string(line);
  }
  return "UTC";
}

}  // namespace halyard
