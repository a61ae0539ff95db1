#include <unistd.h>

#include <cstdlib>

#include "agent/clock.h"
#include "foundation/log_sink.h"

namespace halyard::agent {

namespace {

constexpr std::string_view kZoneInfo = "zoneinfo/";

std::string readLink(const std::string& path) {
  char target[4096];
  const ssize_t length = readlink(path.c_str(), target, sizeof target - 1);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

std::string systemZoneName(const char* tz, const std::string& localtimeLink) {
  if (tz && tz[0] != '\0') return tz[0] == ':' ? std::string(tz + 1) : std::string(tz);
  const std::size_t found = localtimeLink.rfind(kZoneInfo);
  if (found == std::string::npos || found + kZoneInfo.size() == localtimeLink.size()) return "localtime";
  return localtimeLink.substr(found + kZoneInfo.size());
}

std::string SystemZoneSource::zoneName() const {
  return systemZoneName(honourTZ_ ? std::getenv("TZ") : nullptr, readLink(localtimePath_));
}

SystemClock::SystemClock(std::shared_ptr<const ZoneSource> zones, std::function<TimeInterval()> now)
    : zones_(std::move(zones)), now_(now ? std::move(now) : systemNow) {
  zoneName_ = zones_->zoneName();
  if (!cctz::load_time_zone(zoneName_, &zone_)) zone_ = cctz::local_time_zone();
}

TimeInterval SystemClock::now() const { return now_(); }

void SystemClock::followZone() {
  const std::string name = zones_->zoneName();
  if (name == zoneName_) return;
  zoneName_ = name;
  cctz::time_zone zone;
  if (!cctz::load_time_zone(name, &zone)) {
    logLine("<Error:> Unknown time zone \"" + name + "\"; keeping " + zone_.name(), LogPriority::Error);
    return;
  }
  zone_ = zone;
  logLine("The time zone is now " + name + ".");
}

}  // namespace halyard::agent
