// The user's zone is archived by its IANA name, whichever way the machine
// names it.

#include <gtest/gtest.h>

#include "schedule/local_zone_name.h"

namespace halyard {
namespace {

TEST(LocalZoneName, IsTheIanaNameWhateverTheMachineSays) {
  using Text = std::optional<std::string_view>;
  struct Case {
    const char* name;
    Text tz, link, file;
    const char* expected;
  } cases[] = {
      {"TZ names a zone", "Europe/Berlin", "/usr/share/zoneinfo/Asia/Tokyo", std::nullopt, "Europe/Berlin"},
      {"TZ with a colon", ":America/New_York", std::nullopt, std::nullopt, "America/New_York"},
      {"TZ as a zoneinfo path", "/usr/share/zoneinfo/Asia/Kathmandu", std::nullopt, std::nullopt, "Asia/Kathmandu"},
      {"TZ says localtime: the link", ":localtime", "/usr/share/zoneinfo/Europe/Paris", std::nullopt, "Europe/Paris"},
      {"the link, relative", std::nullopt, "../usr/share/zoneinfo/Australia/Lord_Howe", std::nullopt,
       "Australia/Lord_Howe"},
      {"the link into posix/", std::nullopt, "/usr/share/zoneinfo/posix/Pacific/Apia", std::nullopt, "Pacific/Apia"},
      {"no link: /etc/timezone", std::nullopt, std::nullopt, "Europe/Lisbon\n", "Europe/Lisbon"},
      {"a link elsewhere: /etc/timezone", "", "/opt/zone", "Etc/UTC\n", "Etc/UTC"},
      {"nothing usable", std::nullopt, "/opt/zone", "not a zone\n", "UTC"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ianaZoneName(c.tz, c.link, c.file), c.expected);
  }
}

}  // namespace
}  // namespace halyard
