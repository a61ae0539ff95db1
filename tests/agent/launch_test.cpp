// Job launching against a real private bus: the running application gets
// the items at once; otherwise they are parked and the application is
// started from a fixed location, by D-Bus activation or by its desktop entry
// (the lookup that stands for the workspace's search by name).

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "agent/desktop_entry.h"
#include "daemon_fixture.h"
#include "foundation/file_io.h"

namespace halyard::agent::testing {
namespace {

class LaunchTest : public DaemonFixture {
 protected:
  LaunchTest() { makeDaemon(); }
  // A program that records its path and arguments in launched.log.
  std::string makeProgram(const std::string& relative) {
    const std::string file = path(relative);
    QDir().mkpath(QFileInfo(QString::fromStdString(file)).path());
    const std::string script = "#!/bin/sh\necho \"$0 $*\" >> " + path("launched.log") + "\n";
    EXPECT_TRUE(writeFileAtomically(file, script).ok());
    QFile::setPermissions(QString::fromStdString(file), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return file;
  }
  std::string launched() { return contents("launched.log"); }
  // Waits for the one launch expected and answers the full path that ran.
  std::string launchedProgram() {
    waitUntil([&] { return !launched().empty(); });
    const std::string line = launched();
    return line.substr(0, line.find(' '));
  }
  // serve-app on the test bus, its output appended to serve.log.
  std::string serveAppCommand() const {
    return "/bin/sh -c 'exec " + halyardctlPath() + " serve-app >> " + path("serve.log") + " 2>&1'";
  }
  std::string serveLog() { return contents("serve.log"); }
  std::string contents(const std::string& relative) {
    auto text = readWholeFile(path(relative));
    return text ? *text : "";
  }
};

TEST_F(LaunchTest, ARunningApplicationGetsTheItemsInTheDueSecondAndNothingIsLaunched) {
  makeProgram("bin/halyard");
  TestProcess app(halyardctlPath(), {"serve-app"}, bus_.address());
  ASSERT_TRUE(app.waitForOutput("running as com.vantrel.halyard"));
  ASSERT_TRUE(waitForApplication());
  writeSchedule(path("ScheduleData.sched"), {makeItem("due", 10, 1), makeItem("later", 10, 2)});
  beatAt(10, 1, 0, 0.3);
  ASSERT_TRUE(app.waitForOutput("item \"due\""));
  EXPECT_EQ(app.output().find("later"), std::string::npos);
  EXPECT_EQ(out_.str(), "");
  EXPECT_FALSE(daemon_->notifyMonitor()->lastLaunchTime().has_value());
  EXPECT_EQ(launched(), "");
}

TEST_F(LaunchTest, TheFirstFixedLocationThatLaunchesWins) {
  struct Case {
    const char* name;
    bool firstExists, firstRunnable;
    std::string expected;
  } cases[] = {
      {"only the second exists: the first is skipped", false, false, "local/bin/halyard"},
      {"the first cannot run: the second is tried", true, false, "local/bin/halyard"},
      {"the first runs", true, true, "bin/halyard"},
  };
  makeProgram("local/bin/halyard");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    QFile::remove(QString::fromStdString(path("launched.log")));
    QFile::remove(QString::fromStdString(path("bin/halyard")));
    if (c.firstExists) makeProgram("bin/halyard");
    if (c.firstExists && !c.firstRunnable) {
      QFile::setPermissions(QString::fromStdString(path("bin/halyard")), QFile::ReadOwner);
    }
    EXPECT_EQ(daemon_->launchJobs({makeItem("x", 9, 0)}), 0);
    EXPECT_EQ(launchedProgram(), path(c.expected));
    EXPECT_EQ(parked(), Names{"x"});
    EXPECT_EQ(out_.str(), "");
  }
}

TEST_F(LaunchTest, ActivationStartsTheApplicationWhichThenGetsExactlyTheParkedItems) {
  bus_.addActivatableService(kApplicationBusName, serveAppCommand());
  EXPECT_EQ(daemon_->launchJobs({makeItem("one", 9, 0), makeItem("two", 9, 1)}), 0);
  EXPECT_EQ(parked(), (Names{"one", "two"}));
  ASSERT_TRUE(waitUntil([&] { return serveLog().find("told to quit when finished") != std::string::npos; }));
  ASSERT_TRUE(waitUntil([&] { return !bus_.nameHasOwner(kApplicationBusName); }));
  const std::string log = serveLog();
  EXPECT_NE(log.find("received 2 scheduled item(s)\n  item \"one\""), std::string::npos) << log;
  EXPECT_NE(log.find("item \"two\""), std::string::npos) << log;
  EXPECT_EQ(out_.str(), "");
}

TEST_F(LaunchTest, WhenActivationFindsNothingTheDesktopEntryIsTheLastResort) {
  const std::string program = makeProgram("opt/halyard-app");
  const std::string notFound = "No application with signature 'dylH' found.\n";
  struct Case {
    const char* name;
    std::string activation;    // the bus's command for the application; empty: none
    std::string desktopEntry;  // its Exec line; empty: no entry
    std::string printed, launched;
  } cases[] = {
      {"nothing anywhere: both failures", "", "", notFound + "NSWorkspace failed, giving up!\n", ""},
      {"an entry that cannot run", "", path("opt/missing") + " %U", notFound + "NSWorkspace failed, giving up!\n", ""},
      {"an entry that runs", "", program + " --background %U", notFound, program + " --background"},
      // The bus gives up on the start after its time limit.
      {"an application that never takes its name", "/bin/sleep 30", "", "Error -10810 (signature 'dylH').\n", ""},
  };
  QDir().mkpath(QString::fromStdString(path("data/applications")));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    out_.str("");
    QFile::remove(QString::fromStdString(path("data/applications/halyard.desktop")));
    if (!c.desktopEntry.empty()) {
      ASSERT_TRUE(writeFileAtomically(path("data/applications/halyard.desktop"),
                                      "[Desktop Entry]\nName=Halyard\nExec=" + c.desktopEntry + "\n")
                      .ok());
    }
    if (!c.activation.empty()) bus_.addActivatableService(kApplicationBusName, c.activation);
    EXPECT_EQ(daemon_->launchJobs({makeItem("stays", 9, 0)}), 0);  // the bus answers later
    EXPECT_EQ(parked(), Names{"stays"});
    EXPECT_TRUE(daemon_->notifyMonitor()->lastLaunchTime().has_value());
    EXPECT_TRUE(waitUntil([&] { return out_.str() == c.printed && launched().find(c.launched) != std::string::npos; }))
        << out_.str();
  }
}

TEST_F(LaunchTest, AnOptionClickAfterShutdownStillLaunchesWithNowhereToParkTheItems) {
  makeProgram("bin/halyard");
  daemon_->shutdown();
  ASSERT_EQ(daemon_->notifyMonitor(), nullptr);
  daemon_->openSyncDocument(*makeItem("late", 9, 0), true);
  EXPECT_EQ(launchedProgram(), path("bin/halyard"));
}

TEST_F(LaunchTest, LaunchHalyardPrefersTheRecordedLocation) {
  const std::string recorded = makeProgram("elsewhere/halyard");
  makeProgram("bin/halyard");
  ASSERT_TRUE(writeFileAtomically(path("LaunchPath"), recorded + "\n").ok());
  daemon_->launchHalyard();
  EXPECT_EQ(launchedProgram(), recorded);
  QFile::remove(QString::fromStdString(path("LaunchPath")));
  QFile::remove(QString::fromStdString(path("launched.log")));
  daemon_->launchHalyard();
  EXPECT_EQ(launchedProgram(), path("bin/halyard"));
}

TEST(DesktopEntry, ExecLineBecomesArguments) {
  using Args = std::vector<std::string>;
  struct Case {
    const char* name;
    const char* text;
    std::optional<Args> expected;
  } cases[] = {
      {"plain", "[Desktop Entry]\nName=Halyard\nExec=/opt/halyard/bin/halyard\n", Args{"/opt/halyard/bin/halyard"}},
      {"field codes dropped", "[Desktop Entry]\nExec=halyard --background %U\n", Args{"halyard", "--background"}},
      {"quoted with escapes", "[Desktop Entry]\nExec=\"/opt/my apps/halyard\" \"a \\\"b\\\"\"\n",
       Args{"/opt/my apps/halyard", "a \"b\""}},
      {"percent kept", "[Desktop Entry]\nExec=halyard --rate=50%%\n", Args{"halyard", "--rate=50%"}},
      {"CRLF lines", "[Desktop Entry]\r\nExec=halyard\r\n", Args{"halyard"}},
      {"Exec of another group ignored", "[Desktop Action New]\nExec=other\n[Desktop Entry]\nExec=halyard\n",
       Args{"halyard"}},
      {"no Exec", "[Desktop Entry]\nName=Halyard\n", std::nullopt},
      {"empty Exec", "[Desktop Entry]\nExec=\n", std::nullopt},
      {"only a field code", "[Desktop Entry]\nExec=%f\n", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(parseDesktopEntryExec(c.text), c.expected);
  }
}

TEST(DesktopEntry, FirstDataFolderWithTheEntryWins) {
  QTemporaryDir home, system;
  const std::string user = home.path().toStdString(), shared = system.path().toStdString();
  ASSERT_TRUE(QDir(system.path()).mkpath("applications"));
  ASSERT_TRUE(writeFileAtomically(shared + "/applications/halyard.desktop", "[Desktop Entry]\nExec=/usr/bin/b\n").ok());
  EXPECT_EQ(findDesktopEntryCommand({user, shared}), std::vector<std::string>{"/usr/bin/b"});
  ASSERT_TRUE(QDir(home.path()).mkpath("applications"));
  ASSERT_TRUE(writeFileAtomically(user + "/applications/halyard.desktop", "[Desktop Entry]\nExec=/home/a\n").ok());
  EXPECT_EQ(findDesktopEntryCommand({user, shared}), std::vector<std::string>{"/home/a"});
  EXPECT_EQ(findDesktopEntryCommand({user + "/none"}), std::nullopt);
}

}  // namespace
}  // namespace halyard::agent::testing
