// Job launching against a real private bus: the running application gets
// the items at once; otherwise they are parked and the application is
// started from a fixed location, by D-Bus activation or by its desktop entry.

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "daemon_fixture.h"
#include "foundation/file_io.h"

namespace halyard::agent::testing {
namespace {

using Names = std::vector<std::string>;

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
  bool waitForLaunch(const std::string& text) {
    return waitUntil([&] { return launched().find(text) != std::string::npos; });
  }
  // Waits for the one launch expected and answers the full path that ran.
  std::string launchedProgram() {
    waitUntil([&] { return !launched().empty(); });
    const std::string line = launched();
    return line.substr(0, line.find(' '));
  }
  bool waitForOutput(const std::string& text) {
    return waitUntil([&] { return out_.str().find(text) != std::string::npos; });
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

TEST_F(LaunchTest, WithNoApplicationAnywhereBothFailuresArePrintedAndTheItemsStayParked) {
  EXPECT_EQ(daemon_->launchJobs({makeItem("stays", 9, 0)}), 0);  // the bus answers later
  EXPECT_EQ(parked(), Names{"stays"});
  ASSERT_TRUE(waitForOutput("giving up!"));
  EXPECT_EQ(out_.str(), "No application with signature 'dylH' found.\nNSWorkspace failed, giving up!\n");
  EXPECT_EQ(parked(), Names{"stays"});
  EXPECT_TRUE(daemon_->notifyMonitor()->lastLaunchTime().has_value());
}

TEST_F(LaunchTest, ADesktopEntryThatCannotRunIsTheWorkspaceFailure) {
  QDir().mkpath(QString::fromStdString(path("data/applications")));
  ASSERT_TRUE(writeFileAtomically(path("data/applications/halyard.desktop"),
                                  "[Desktop Entry]\nExec=" + path("opt/missing") + " %U\n")
                  .ok());
  daemon_->launchJobs({makeItem("x", 9, 0)});
  ASSERT_TRUE(waitForOutput("giving up!"));
  EXPECT_EQ(out_.str(), "No application with signature 'dylH' found.\nNSWorkspace failed, giving up!\n");
}

TEST_F(LaunchTest, AnApplicationThatNeverTakesItsNameIsAnErrorWithItsStatus) {
  bus_.addActivatableService(kApplicationBusName, "/bin/sleep 30");
  EXPECT_EQ(daemon_->launchJobs({makeItem("waits", 9, 0)}), 0);
  EXPECT_EQ(parked(), Names{"waits"});
  ASSERT_TRUE(waitForOutput("Error"));  // when the bus gives up on the start
  EXPECT_EQ(out_.str(), "Error -10810 (signature 'dylH').\n");
}

TEST_F(LaunchTest, AnOptionClickAfterShutdownStillLaunchesWithNowhereToParkTheItems) {
  makeProgram("bin/halyard");
  daemon_->shutdown();
  ASSERT_EQ(daemon_->notifyMonitor(), nullptr);
  daemon_->openSyncDocument(*makeItem("late", 9, 0), true);
  EXPECT_EQ(launchedProgram(), path("bin/halyard"));
}

TEST_F(LaunchTest, TheDesktopEntryIsTheLastResort) {
  const std::string program = makeProgram("opt/halyard-app");
  QDir().mkpath(QString::fromStdString(path("data/applications")));
  ASSERT_TRUE(writeFileAtomically(path("data/applications/halyard.desktop"),
                                  "[Desktop Entry]\nName=Halyard\nExec=" + program + " --background %U\n")
                  .ok());
  EXPECT_EQ(daemon_->launchJobs({makeItem("x", 9, 0)}), 0);
  ASSERT_TRUE(waitForLaunch(program + " --background"));
  EXPECT_EQ(out_.str(), "No application with signature 'dylH' found.\n");
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

TEST_F(LaunchTest, OptionClickRunsACopyWithTheForceFlag) {
  TestProcess app(halyardctlPath(), {"serve-app"}, bus_.address());
  ASSERT_TRUE(app.waitForOutput("running as com.vantrel.halyard"));
  ASSERT_TRUE(waitForApplication());
  const auto item = makeItem("forced", 9, 0);
  daemon_->openSyncDocument(*item, true);
  ASSERT_TRUE(app.waitForOutput("item \"forced\""));
  EXPECT_NE(app.output().find("forceToRun=yes"), std::string::npos);
  EXPECT_FALSE(item->forceToRun());
}

}  // namespace
}  // namespace halyard::agent::testing
