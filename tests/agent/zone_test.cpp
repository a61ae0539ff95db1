// The agent follows the system's time zone at each beat: the zone's name
// from TZ or the /etc/localtime link, and a running daemon whose link is
// changed under it runs a 09:00 item at 09:00 of the new zone.

#include <unistd.h>

#include "daemon_fixture.h"

namespace halyard::agent::testing {
namespace {

TEST(SystemZoneName, TZWinsThenTheLinkNamesTheZone) {
  struct Case {
    const char* name;
    const char* tz;
    std::string link;
    std::string expected;
  } cases[] = {
      {"TZ set", "America/New_York", "/usr/share/zoneinfo/Europe/Berlin", "America/New_York"},
      {"TZ with a leading colon", ":Asia/Kathmandu", "", "Asia/Kathmandu"},
      {"TZ empty counts as unset", "", "/usr/share/zoneinfo/Europe/Berlin", "Europe/Berlin"},
      {"a relative link", nullptr, "../usr/share/zoneinfo/Pacific/Apia", "Pacific/Apia"},
      {"no link: the file itself", nullptr, "", "localtime"},
      {"a link outside zoneinfo", nullptr, "/etc/mytime", "localtime"},
      {"a link to the zoneinfo folder itself", nullptr, "/usr/share/zoneinfo/", "localtime"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(systemZoneName(c.tz, c.link), c.expected);
  }
}

class ZoneChangeTest : public DaemonFixture {
 protected:
  ZoneChangeTest() : zoneClock_(std::make_shared<SystemZoneSource>(path("localtime"), false), [this] { return now_; }) {
    link("America/New_York");
  }
  void link(const std::string& zone) {
    unlink(path("localtime").c_str());
    ASSERT_EQ(symlink(("/usr/share/zoneinfo/" + zone).c_str(), path("localtime").c_str()), 0);
  }
  // Beats at a civil moment of `zone` on 2026-03-04.
  void beatInZone(const std::string& zone, int h, int m) {
    cctz::time_zone tz;
    ASSERT_TRUE(cctz::load_time_zone(zone, &tz));
    now_ = joinInstant(cctz::convert(cctz::civil_second(2026, 3, 4, h, m, 0), tz), 0.2);
    daemon_->heartbeat();
  }

  TimeInterval now_ = 0;
  SystemClock zoneClock_;
};

TEST_F(ZoneChangeTest, AfterTheLinkChangesA0900ItemRunsAt0900OfTheNewZone) {
  writeSchedule(path("ScheduleData.sched"), {makeItem("nine", 9, 0)});
  makeDaemon(zoneClock_, true);
  beatInZone("Europe/Berlin", 9, 0);  // 03:00 in New York: not yet
  EXPECT_EQ(parked(), std::vector<std::string>{});
  link("Europe/Berlin");
  beatInZone("Europe/Berlin", 9, 0);  // the same instant's beat, now in the new zone
  EXPECT_EQ(parked(), std::vector<std::string>{"nine"});
  EXPECT_EQ(zoneClock_.zone().name(), "Europe/Berlin");
}

}  // namespace
}  // namespace halyard::agent::testing
