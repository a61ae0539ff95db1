// The mounted-volume check against a machine described in data: which
// type-6 items a mounted path makes due.

#include "daemon_fixture.h"
#include "volumes/fake_volume_queries.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent::testing {
namespace {

FakeVolume volume(const std::string& label, std::uint64_t device) {
  return fakeVolume(label, device, "/media/u/" + label);
}

class MountedVolumeCheckTest : public DaemonFixture {
 protected:
  MountedVolumeCheckTest() {
    machine_->volumes = allMounted();
    fileManager_ = fileservices::VTFileManager::make();
    fileManager_->setVolumeQueries(machine_);
    makeDaemon();
  }
  std::shared_ptr<VolumeSpecifier> specifierOf(const std::string& label) {
    return VolumeSpecifier::volumeSpecifierWithPath("/media/u/" + label, fileManager_);
  }
  // A type-6 item for the Left and Right volumes, run on the sides given.
  std::shared_ptr<KSScheduledItem> item(bool onLeft, bool onRight, int type = 6) {
    auto i = makeItem("mount", 0, 0, type);
    i->setLeftTargetVolumeSpecifier(specifierOf("Left"));
    i->setRightTargetVolumeSpecifier(specifierOf("Right"));
    i->setScheduledLeftTargetMounts(onLeft);
    i->setScheduledRightTargetMounts(onRight);
    return i;
  }
  static std::vector<FakeVolume> allMounted() { return {volume("Left", 1), volume("Right", 2), volume("Other", 3)}; }
  std::shared_ptr<FakeVolumeQueries> machine_ = std::make_shared<FakeVolumeQueries>();
};

TEST_F(MountedVolumeCheckTest, AMountedTargetMakesTheItemDueOnceBothWantedSidesAreMounted) {
  struct Case {
    const char* name;
    std::shared_ptr<KSScheduledItem> item;
    std::vector<std::string> mounted;
    std::size_t due;
    const char* absent = "";  // a volume not mounted on the machine
  } cases[] = {
      {"left volume mounted", item(true, false), {"/media/u/Left"}, 1},
      {"an unrelated volume", item(true, true), {"/media/u/Other"}, 0},
      {"right volume, but only the left side triggers", item(true, false), {"/media/u/Right"}, 0},
      {"both sides wanted and both mounted", item(true, true), {"/media/u/Right"}, 1},
      {"both sides wanted, the other not mounted yet", item(true, true), {"/media/u/Left"}, 0, "Right"},
      {"both mounted in one beat: once per path", item(true, true), {"/media/u/Left", "/media/u/Right"}, 2},
      {"no side triggers", item(false, false), {"/media/u/Left"}, 0},
      {"not a volume-mount item", item(true, false, 5), {"/media/u/Left"}, 0},
      {"a path that is gone", item(true, false), {"/media/u/Gone"}, 0},
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

}  // namespace
}  // namespace halyard::agent::testing
