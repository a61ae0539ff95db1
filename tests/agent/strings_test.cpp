// The strings table holds every key the code asks for, and the agent's paths
// come from it and from the user's environment.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "agent/halyard_daemon.h"
#include "agent_test_support.h"
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

}  // namespace
}  // namespace halyard::agent::testing
