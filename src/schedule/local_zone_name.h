#pragma once
// The user's time zone by its IANA name ("Europe/Berlin"), as the format's
// writers archive a local zone, never by the file it was loaded from
// ("/etc/localtime"): TZ when it names a zone, else the zone the
// /etc/localtime link leads to, else the first line of /etc/timezone, else
// "UTC".

#include <optional>
#include <string>
#include <string_view>

namespace halyard {

// The name from what the machine says: the TZ variable (absent when unset),
// the target of the /etc/localtime link (absent when it is no link) and the
// text of /etc/timezone (absent when missing).
std::string ianaZoneName(std::optional<std::string_view> tz, std::optional<std::string_view> localtimeLink,
                         std::optional<std::string_view> timezoneFile);

// The machine's answer (TZ, /etc/localtime, /etc/timezone).
std::string localZoneName();

}  // namespace halyard
