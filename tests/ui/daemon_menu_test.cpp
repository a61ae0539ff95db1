// The daemon's side of the status menu: the model read from the schedule file
// at each opening, and the suspend/resume command with its broadcast.

#include <QFile>

#include "agent/daemon_fixture.h"
#include "menu_titles.h"

namespace halyard::agent::testing {
namespace {

TEST_F(DaemonFixture, TheMenuFollowsTheScheduleFileAndTheToggle) {
  makeDaemon();
  clock_.setCivil(2026, 3, 4, 9, 29, 30);
  EXPECT_EQ(titles(daemon_->menuNeedsUpdate().documents), Titles{"None"}) << "no schedule file";

  const auto item = makeItem("at-09:30", 9, 30);
  item->setDocumentPathName(path("at-09:30.hsync"));
  QFile(QString::fromStdString(path("at-09:30.hsync"))).open(QIODevice::WriteOnly);
  writeSchedule(path("ScheduleData.sched"), {item});
  StatusMenuModel model = daemon_->menuNeedsUpdate();
  ASSERT_EQ(model.nextRun.size(), 2u);
  EXPECT_EQ(model.nextRun[0].title, "at-09:30");
  ASSERT_EQ(model.documents.size(), 1u);
  EXPECT_TRUE(model.documents[0].enabled && model.documents[0].checked);

  struct Step {
    bool active;
    Titles nextRun;
    std::string toggle;
  } steps[] = {{false, {"None"}, "Resume Scheduler"}, {true, {"at-09:30"}, "Suspend Scheduler"}};
  for (const Step& step : steps) {
    SCOPED_TRACE(step.toggle);
    const std::size_t before = seen(notifications::kSchedulerStateChanged).size();
    daemon_->toggleSchedulerState();
    EXPECT_EQ(daemon_->schedulerActive(), step.active);
    EXPECT_EQ(preferences_->boolValue(prefs::kSchedulerActive), step.active);
    ASSERT_TRUE(waitForSeen(notifications::kSchedulerStateChanged, before + 1));
    EXPECT_EQ(seen(notifications::kSchedulerStateChanged).back().value("state"), QVariant(step.active));
    model = daemon_->menuNeedsUpdate();
    EXPECT_EQ(titles(model.nextRun).front(), step.nextRun.front());
    EXPECT_EQ(model.toggleTitle, step.toggle);
  }
}

}  // namespace
}  // namespace halyard::agent::testing
