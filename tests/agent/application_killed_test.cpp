// The main application killed mid-hand-over. The hand-over has no
// acknowledgement: the items posted to an application that died after the
// agent last saw it running, and the items an application received but did
// not act on before dying, are lost; they are not parked nor handed over
// again. The agent goes on: the next due items are parked and handed to the
// application when it comes back.

#include <algorithm>

#include "daemon_fixture.h"

namespace halyard::agent::testing {
namespace {

using ApplicationKilledTest = DaemonFixture;

TEST_F(ApplicationKilledTest, TheItemsOfTheInterruptedHandOverAreLostAndTheAgentGoesOn) {
  writeSchedule(path("ScheduleData.sched"), {makeItem("interrupted", 10, 1), makeItem("next", 10, 2)});
  makeDaemon();
  // Killed after the agent last saw it running but before its post; else right after it received the post.
  for (const bool killedBeforeThePost : {true, false}) {
    SCOPED_TRACE(killedBeforeThePost ? "between the lookup and the post" : "after receiving the hand-over");
    auto app = std::make_unique<TestProcess>(halyardctlPath(), std::vector<std::string>{"serve-app"}, bus_.address());
    ASSERT_TRUE(app->waitForOutput("running as"));
    ASSERT_TRUE(waitForApplication());
    const std::size_t postsBefore = seen(notifications::kAddScheduledItems).size();
    // Without the event loop turning, the agent's view of the bus is that of
    // its last lookup: the application still runs.
    if (killedBeforeThePost) {
      app->process().kill();
      ASSERT_TRUE(app->process().waitForFinished());
    }
    beatAt(10, 1, 0);
    if (!killedBeforeThePost) {
      ASSERT_TRUE(app->waitForOutput("item \"interrupted\""));
      app->process().kill();
      ASSERT_TRUE(app->process().waitForFinished());
    }
    // The post went out in both cases; no one acts on it now.
    ASSERT_TRUE(waitForSeen(notifications::kAddScheduledItems, postsBefore + 1));
    ASSERT_TRUE(waitUntil([&] { return launcher_->findApplication() == launch_status::kProcessNotFound; }));
    const Names waiting = parked();
    EXPECT_EQ(std::find(waiting.begin(), waiting.end(), "interrupted"), waiting.end());

    // The agent goes on: the next item waits for the application, and only it
    // is handed over when the application starts again.
    beatAt(10, 2, 0);
    EXPECT_EQ(parked(), Names{"next"});
    TestProcess restarted(halyardctlPath(), {"serve-app"}, bus_.address());
    ASSERT_TRUE(restarted.waitForOutput("item \"next\""));
    EXPECT_EQ(restarted.output().find("interrupted"), std::string::npos) << restarted.output();
    // It may already have quit when told the hand-over was finished.
    restarted.process().kill();
    restarted.process().waitForFinished();
    ASSERT_TRUE(waitUntil([&] { return launcher_->findApplication() == launch_status::kProcessNotFound; }));
  }
}

}  // namespace
}  // namespace halyard::agent::testing
