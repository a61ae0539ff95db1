// The daemon's new, missed and mounted-volume checks over schedule files (the
// volumes on a machine described in data), and schedule files that cannot be read.

#include "agent/hand_over.h"
#include "daemon_fixture.h"
#include "foundation/file_io.h"
#include "schedule/schedule_file.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent::testing {
namespace {

using Item = std::shared_ptr<KSScheduledItem>;

class JobSelectionTest : public DaemonFixture {
 protected:
  JobSelectionTest() {
    machine_->volumes = allMounted();
    fileManager_ = fileservices::VTFileManager::make();
    fileManager_->setVolumeQueries(machine_);
    makeDaemon();
  }
  // 2026-03-04 is a Wednesday (day of week 3, day index 3, month index 2).
  TimeInterval at(int h, int m, int s, double fraction = 0) const {
    return clock_.civil(2026, 3, 4, h, m, s, fraction);
  }
  std::optional<ScheduleItems> roundTrip(const Item& item) {
    writeSchedule(path("ScheduleData.sched"), {item});
    return daemon_->loadItems();
  }
  // A type-6 item for the Left and Right volumes, run on the sides given.
  Item volumeItem(bool onLeft, bool onRight, int type = 6) {
    auto i = makeItem("mount", 0, 0, type);
    i->setLeftTargetVolumeSpecifier(VolumeSpecifier::volumeSpecifierWithPath("/media/u/Left", fileManager_));
    i->setRightTargetVolumeSpecifier(VolumeSpecifier::volumeSpecifierWithPath("/media/u/Right", fileManager_));
    i->setScheduledLeftTargetMounts(onLeft);
    i->setScheduledRightTargetMounts(onRight);
    return i;
  }
  static std::vector<FakeVolume> allMounted() {
    return {fakeVolume("Left", 1, "/media/u/Left"), fakeVolume("Right", 2, "/media/u/Right"),
            fakeVolume("Other", 3, "/media/u/Other")};
  }
  std::shared_ptr<FakeVolumeQueries> machine_ = std::make_shared<FakeVolumeQueries>();
};

Item with(Item item, const std::function<void(KSScheduledItem&)>& change) {
  change(*item);
  return item;
}

// The type table itself: the minute check's tests. Here the daemon reads the
// items from the file and checks them at the beat's instant.
TEST_F(JobSelectionTest, NewCheckFindsTheItemsOfTheBeatsMinute) {
  const auto startAt = [&](TimeInterval t) {
    return [t](KSScheduledItem& i) { i.setStartDate(CalendarDate::make(t, TimeZone::make("Europe/Berlin"))); };
  };
  struct Case {
    const char* name;
    Item item;
    bool due;
  } cases[] = {
      {"this minute", makeItem("a", 9, 30, 5), true},
      {"another minute", makeItem("a", 9, 31, 5), false},
      {"type 3 started at 09:30:00", with(makeItem("a", 9, 30, 3), startAt(at(9, 30, 0))), true},
      {"type 3 starting at the beat", with(makeItem("a", 9, 30, 3), startAt(at(9, 30, 0, 0.4))), false},
  };
  clock_.set(at(9, 30, 0, 0.4));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScheduleItems due;
    EXPECT_EQ(daemon_->checkForNewJobs(roundTrip(c.item), &due), c.due);
    EXPECT_EQ(due.size(), c.due ? 1u : 0u);
  }
}

TEST_F(JobSelectionTest, MissedCheckFindsRunsInsideTheGapOncePerItem) {
  const Item every5 = with(makeItem("every-5", 9, 0, 5), [](auto& i) {
    for (std::uint32_t m = 0; m < 60; m += 5) i.selectMinute(m);
  });
  struct Case {
    const char* name;
    Item item;
    std::optional<TimeInterval> lastChecked;
    bool due;
  } cases[] = {
      {"a run inside the gap", makeItem("a", 9, 15, 5), at(9, 0, 0), true},
      {"a run after now", makeItem("a", 9, 45, 5), at(9, 0, 0), false},
      {"many runs, one entry", every5, at(9, 0, 0), true},
      {"volume items are not caught up", makeItem("a", 9, 15, 6), at(9, 0, 0), false},
      {"inactive", with(makeItem("a", 9, 15, 5), [](auto& i) { i.setActive(false); }), at(9, 0, 0), false},
      {"no check before: nothing", makeItem("a", 9, 15, 5), std::nullopt, false},
      {"clock set back: an empty range", makeItem("a", 9, 15, 5), at(9, 50, 0), false},
  };
  clock_.set(at(9, 30, 0, 0.4));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScheduleItems due;
    EXPECT_EQ(daemon_->checkForMissedJobs(roundTrip(c.item), c.lastChecked, &due), c.due);
    EXPECT_EQ(due.size(), c.due ? 1u : 0u);
  }
}

TEST_F(JobSelectionTest, AMountedTargetMakesTheItemDueOnceBothWantedSidesAreMounted) {
  struct Case {
    const char* name;
    std::shared_ptr<KSScheduledItem> item;
    std::vector<std::string> mounted;
    std::size_t due;
    const char* absent = "";  // a volume not mounted on the machine
  } cases[] = {
      {"left volume mounted", volumeItem(true, false), {"/media/u/Left"}, 1},
      {"an unrelated volume", volumeItem(true, true), {"/media/u/Other"}, 0},
      {"right volume, but only the left side triggers", volumeItem(true, false), {"/media/u/Right"}, 0},
      {"both sides wanted and both mounted", volumeItem(true, true), {"/media/u/Right"}, 1},
      {"both sides wanted, the other not mounted yet", volumeItem(true, true), {"/media/u/Left"}, 0, "Right"},
      {"both mounted in one beat: once per path", volumeItem(true, true), {"/media/u/Left", "/media/u/Right"}, 2},
      {"no side triggers", volumeItem(false, false), {"/media/u/Left"}, 0},
      {"not a volume-mount item", volumeItem(true, false, 5), {"/media/u/Left"}, 0},
      {"a path that is gone", volumeItem(true, false), {"/media/u/Gone"}, 0},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    machine_->volumes = allMounted();
    std::erase_if(machine_->volumes, [&](const FakeVolume& v) { return v.device.label == c.absent; });
    ScheduleItems due;
    EXPECT_EQ(daemon_->checkForMountedVolumeJobs(ScheduleItems{c.item}, &c.mounted, &due), c.due > 0);
    EXPECT_EQ(due.size(), c.due);
    EXPECT_TRUE(c.mounted.empty()) << "every path is consumed";
  }
}

TEST_F(JobSelectionTest, ASuspendedSchedulerFindsNothingAndLeavesTheMountList) {
  const auto items = roundTrip(makeItem("a", 9, 15, 5));
  daemon_->setSchedulerActive(false);
  clock_.set(at(9, 15, 0));
  ScheduleItems due;
  std::vector<std::string> mounts{path("data")};
  EXPECT_FALSE(daemon_->checkForNewJobs(items, &due));
  EXPECT_FALSE(daemon_->checkForMissedJobs(items, at(9, 0, 0), &due));
  EXPECT_FALSE(daemon_->checkForMountedVolumeJobs(items, &mounts, &due));
  EXPECT_EQ(mounts.size(), 1u);
  EXPECT_TRUE(due.empty());
}

TEST_F(JobSelectionTest, AnUnreadableScheduleHandsNothingOverAndTheAgentGoesOn) {
  writeSchedule(path("ScheduleData.sched"), {makeItem("a", 9, 15, 5)});
  const std::string whole = *readWholeFile(path("ScheduleData.sched"));
  struct Case {
    const char* name;
    std::string bytes;
  } cases[] = {
      {"truncated", whole.substr(0, whole.size() / 2)},
      {"garbage", std::string("streamtyped\x81\xe8\x03\x84\x01@\x84\x84\x84\xff\xff\xff\xff", 24)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(writeFileAtomically(path("ScheduleData.sched"), c.bytes).ok());
    EXPECT_FALSE(daemon_->loadItems().has_value());
    beatAt(9, 15, 0);
    EXPECT_TRUE(parked().empty());
    EXPECT_EQ(daemon_->lastCheckDate(), at(9, 15, 0));
  }
  QFile::remove(QString::fromStdString(path("ScheduleData.sched")));
  EXPECT_FALSE(daemon_->loadItems().has_value());
}

}  // namespace
}  // namespace halyard::agent::testing
