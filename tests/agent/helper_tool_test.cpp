// The test for a privileged copy of the wake tool, on real files, and the
// main application's switch of wake-to-sync.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "agent/helper_tool.h"
#include "agent/wake_tool_process.h"
#include "daemon_fixture.h"

namespace halyard::agent::testing {
namespace {

namespace fs = std::filesystem;

class HelperToolTest : public DaemonFixture {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to make root-owned set-user-id copies";
    helperToolTemplate_ = path("libexec/WakeToSyncToolTemplate");
    writeFile(helperToolTemplate_, "template bytes");
    helperToolFolders_ = {{path("user"), path("local")}, {path("runtime")}};
  }
  static void writeFile(const std::string& file, const std::string& bytes) {
    fs::create_directories(fs::path(file).parent_path());
    std::ofstream(file) << bytes;
  }
  // A copy in `folder`, set-user-id root unless told otherwise.
  std::string copyInto(const std::string& folder, const std::string& bytes = "template bytes", mode_t mode = 04755,
                       uid_t owner = 0) {
    const std::string tool = helperToolPath(path(folder));
    writeFile(tool, bytes);
    EXPECT_EQ(::chown(tool.c_str(), owner, 0), 0);
    EXPECT_EQ(::chmod(tool.c_str(), mode), 0);
    return tool;
  }
};

TEST_F(HelperToolTest, OnlyASetUserIdRootCopyOfTheTemplateIsValid) {
  const struct {
    const char* name;
    std::string bytes;
    mode_t mode;
    uid_t owner;
    bool valid;
  } cases[] = {
      {"set-user-id root copy", "template bytes", 04755, 0, true},
      {"not set-user-id", "template bytes", 0755, 0, false},
      {"owned by nobody", "template bytes", 04755, 65534, false},
      {"other bytes", "template bytez", 04755, 0, false},
      {"longer", "template bytes!", 04755, 0, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(isValidHelperTool(copyInto("user", c.bytes, c.mode, c.owner), helperToolTemplate_), c.valid);
  }
  const std::string link = helperToolPath(path("local"));
  fs::create_directories(fs::path(link).parent_path());
  fs::create_symlink(copyInto("user"), link);
  EXPECT_FALSE(isValidHelperTool(link, helperToolTemplate_));
  // Someone else could swap the copy between the test and the run.
  const std::string shared = copyInto("user");
  fs::permissions(fs::path(shared).parent_path(), fs::perms::others_write, fs::perm_options::add);
  EXPECT_FALSE(isValidHelperTool(shared, helperToolTemplate_));
}

TEST_F(HelperToolTest, SearchesApplicationSupportFirstThenTemporaryItems) {
  EXPECT_EQ(findValidHelperTool(helperToolFolders_, helperToolTemplate_), std::nullopt);
  const std::string temporary = copyInto("runtime");
  EXPECT_EQ(findValidHelperTool(helperToolFolders_, helperToolTemplate_), temporary);
  const std::string local = copyInto("local");
  EXPECT_EQ(findValidHelperTool(helperToolFolders_, helperToolTemplate_), local);
  fs::remove(helperToolTemplate_);
  EXPECT_EQ(findValidHelperTool(helperToolFolders_, helperToolTemplate_), std::nullopt);
}

TEST_F(HelperToolTest, TurningWakeToSyncOnNeedsAValidTool) {
  for (const bool valid : {false, true}) {
    SCOPED_TRACE(valid ? "valid tool" : "no valid tool");
    if (valid) copyInto("user");
    makeDaemon();
    alertPanel_.requests.clear();
    daemon_->wakeToSynchStateChanged({{notifications::kStateKey, true}});
    EXPECT_EQ(preferences_->boolForKey(prefs::kWakeSystemToSynch), valid);
    EXPECT_EQ(alertPanel_.requests.size(), valid ? 0u : 1u);
    ASSERT_TRUE(waitForSeen(notifications::kWakeToSynchUpdated, valid ? 2 : 1));
    EXPECT_EQ(seen(notifications::kWakeToSynchUpdated).back().value(notifications::kStateKey).toBool(), valid);
  }
}

// The installed template is the real tool; the launcher stands in for pkexec.
class WakeToolLauncherTest : public HelperToolTest {
 protected:
  void SetUp() override {
    HelperToolTest::SetUp();
    if (IsSkipped()) return;
    fs::copy_file(HALYARD_WAKE_TOOL, helperToolTemplate_, fs::copy_options::overwrite_existing);
    fs::permissions(helperToolTemplate_, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
  }
  static ino_t inodeOf(const std::string& file) {
    struct stat info {};
    return ::stat(file.c_str(), &info) == 0 ? info.st_ino : 0;
  }
};

TEST_F(WakeToolLauncherTest, TheFirstUseMakesThePrivilegedCopyAndLaterUsesFindIt) {
  ProcessWakeTool wakeTool(helperToolFolders_, helperToolTemplate_, HALYARD_FAKE_PKEXEC);
  const ToolLocation made = wakeTool.locateOrCreate(HelperFolderType::ApplicationSupport);
  ASSERT_EQ(made.tool, helperToolPath(path("user"))) << made.problem;
  EXPECT_TRUE(isValidHelperTool(made.tool, helperToolTemplate_));
  const ino_t copy = inodeOf(made.tool);
  EXPECT_EQ(wakeTool.locateOrCreate(HelperFolderType::ApplicationSupport).tool, made.tool);
  EXPECT_EQ(inodeOf(made.tool), copy);  // found, not made again

  // A stale copy (an older template) is replaced.
  std::ofstream(helperToolTemplate_, std::ios::app) << "newer";
  EXPECT_EQ(wakeTool.locateOrCreate(HelperFolderType::ApplicationSupport).tool, made.tool);
  EXPECT_TRUE(isValidHelperTool(made.tool, helperToolTemplate_));
}

// A umask of 002 makes the tool's folder group-writable, which no tool in it
// would pass as private: the agent makes its own folder private.
TEST_F(WakeToolLauncherTest, AGroupWritableFolderOfTheUsersIsMadePrivate) {
  const std::string folder = path("user/Halyard");
  fs::create_directories(folder);
  ASSERT_EQ(::chmod(folder.c_str(), 0775), 0);
  ProcessWakeTool wakeTool(helperToolFolders_, helperToolTemplate_, HALYARD_FAKE_PKEXEC);
  const ToolLocation made = wakeTool.locateOrCreate(HelperFolderType::ApplicationSupport);
  EXPECT_EQ(made.tool, helperToolPath(path("user"))) << made.problem;
  EXPECT_TRUE(isValidHelperTool(made.tool, helperToolTemplate_));
  EXPECT_EQ(fs::status(folder).permissions() & fs::perms::group_write, fs::perms::none);
}

TEST_F(WakeToolLauncherTest, AFolderThatCannotBeMadeIsPassedOver) {
  writeFile(path("plain-file"), "");
  helperToolFolders_.temporaryItems = {path("plain-file/runtime"), path("vartmp")};
  ProcessWakeTool wakeTool(helperToolFolders_, helperToolTemplate_, HALYARD_FAKE_PKEXEC);
  const ToolLocation location = wakeTool.locateOrCreate(HelperFolderType::TemporaryItems);
  EXPECT_EQ(location.tool, helperToolPath(path("vartmp"))) << location.problem;
}

TEST_F(WakeToolLauncherTest, NoCopyWhenTheLauncherIsRefused) {
  ProcessWakeTool wakeTool(helperToolFolders_, helperToolTemplate_, "/bin/false");
  const ToolLocation location = wakeTool.locateOrCreate(HelperFolderType::TemporaryItems);
  EXPECT_TRUE(location.tool.empty());
  EXPECT_FALSE(location.onBadVolume);
  EXPECT_NE(location.problem.find("/bin/false"), std::string::npos) << location.problem;
  EXPECT_FALSE(fs::exists(helperToolPath(path("runtime"))));
}

TEST_F(WakeToolLauncherTest, TurningWakeToSyncOnMakesTheCopyAndFindsTheRtcUnusable) {
  if (fs::exists("/sys/class/rtc/rtc0")) GTEST_SKIP() << "this machine has an RTC: the tool would read its alarm";
  wakeTool_ = std::make_shared<ProcessWakeTool>(helperToolFolders_, helperToolTemplate_, HALYARD_FAKE_PKEXEC);
  makeDaemon();
  daemon_->wakeToSynchStateChanged({{notifications::kStateKey, true}});
  ASSERT_TRUE(waitForSeen(notifications::kWakeToSynchUpdated));
  EXPECT_TRUE(daemon_->validHelperToolExists());
  EXPECT_TRUE(alertPanel_.requests.empty());
  // The copy's cancel could not read the RTC alarm: wake-to-sync stays off and says why.
  EXPECT_FALSE(seen(notifications::kWakeToSynchUpdated).back().value(notifications::kStateKey).toBool());
  EXPECT_FALSE(preferences_->boolForKey(prefs::kWakeSystemToSynch));
  EXPECT_EQ(daemon_->status().wakeAlarmProblem, std::strerror(ENOENT));
}

}  // namespace
}  // namespace halyard::agent::testing
