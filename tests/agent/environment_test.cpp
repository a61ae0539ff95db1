// The agent's environment: the strings table holds every key the code asks
// for, the agent's paths come from it and from the user's environment, and the
// agent follows the system's time zone at each beat: the zone's name from TZ or
// the /etc/localtime link, and a running daemon whose link is changed under it
// runs a 09:00 item at 09:00 of the new zone.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "agent/halyard_daemon.h"
#include "daemon_fixture.h"
#include "foundation/file_io.h"
#include "foundation/strings_table.h"

namespace halyard::agent::testing {
namespace {

// Every literal key passed to localizedString() in the sources.
std::set<std::string> keysAskedFor(const std::string& sourceRoot) {
  const std::regex call(R"re(localizedString\(\s*"([^"]+)"\s*\))re");
  std::set<std::string> keys;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(sourceRoot)) {
    const auto extension = entry.path().extension();
    if (extension != ".cpp" && extension != ".h") continue;
    const auto text = readWholeFile(entry.path().string());
    if (!text) continue;
    for (std::sregex_iterator it(text->begin(), text->end(), call), end; it != end; ++it) keys.insert((*it)[1]);
  }
  return keys;
}

TEST(StringsTable, EveryKeyTheCodeAsksForIsInTheTable) {
  const StringsTable table = StringsTable::loadFromResourceFolder(HALYARD_SOURCE_DIR "/resources");
  const std::set<std::string> keys = keysAskedFor(HALYARD_SOURCE_DIR "/src");
  EXPECT_TRUE(keys.contains("GLOBAL_APP_SUPPORT_PATH"));  // the scan finds the agent's keys
  for (const std::string& key : keys) EXPECT_TRUE(table.find(key).has_value()) << "missing from en.strings: " << key;
}

TEST(AgentPaths, ForCurrentUserFollowsHomeAndTheXdgFolders) {
  QTemporaryDir home;
  const std::string h = home.path().toStdString();
  struct Case {
    const char* name;
    std::optional<std::string> dataHome, dataDirs;
    std::string expectedData;
    std::vector<std::string> expectedDirs;
  } cases[] = {
      {"defaults under HOME",
       std::nullopt,
       std::nullopt,
       h + "/.local/share",
       {h + "/.local/share", "/usr/local/share", "/usr/share"}},
      {"XDG folders set", h + "/xdg", "/opt/a:/opt/b", h + "/xdg", {h + "/xdg", "/opt/a", "/opt/b"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScopedEnvironment environment{{"HOME", h.c_str()},
                                  {"USER", "sailor"},
                                  {"XDG_DATA_HOME", c.dataHome ? c.dataHome->c_str() : nullptr},
                                  {"XDG_DATA_DIRS", c.dataDirs ? c.dataDirs->c_str() : nullptr}};
    const AgentPaths paths = AgentPaths::forCurrentUser();
    EXPECT_EQ(paths.scheduleFile, c.expectedData + "/Halyard/ScheduleData.sched");
    EXPECT_EQ(paths.launchPathFile, c.expectedData + "/Halyard/LaunchPath");
    EXPECT_EQ(paths.volumesRoot, "/media/sailor");
    EXPECT_EQ(paths.dataDirs, c.expectedDirs);
    EXPECT_EQ(paths.applicationPaths, (std::vector<std::string>{"/usr/bin/halyard", "/usr/local/bin/halyard"}));
  }
}

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
  EXPECT_EQ(parked(), Names{});
  link("Europe/Berlin");
  beatInZone("Europe/Berlin", 9, 0);  // the same instant's beat, now in the new zone
  EXPECT_EQ(parked(), Names{"nine"});
  EXPECT_EQ(zoneClock_.zone().name(), "Europe/Berlin");
}

}  // namespace
}  // namespace halyard::agent::testing
