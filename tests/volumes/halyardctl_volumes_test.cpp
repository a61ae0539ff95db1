// `halyardctl volumes` and `halyardctl volumes check N` on loop-mounted
// images in a private mount namespace: the listing marks which mounts can
// start an item and why the others cannot, with each volume's identity; the
// check says where a target is mounted or which identity check each mounted
// volume fails, and a volume covered by a later mount is mounted nowhere.

#include <gtest/gtest.h>

#include "schedule/schedule_file.h"
#include "volumes/mount_namespace_support.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

using testing::Scratch;

std::string halyardctl(const std::string& arguments) {
  return testing::outputOf(std::string(HALYARD_BINARY_DIR) + "/src/tools/halyardctl " + arguments + " 2>&1");
}

TEST(HalyardctlVolumes, CheckTellsWhyAMountDidNotMatch) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  Scratch scratch;
  if (!scratch.makeImage("a.img", "Twin", 1600000000) || !scratch.makeImage("b.img", "Twin", 1600000001)) {
    GTEST_SKIP() << "mkfs.ext4 failed";
  }
  if (!scratch.mount("-o loop", scratch.path("a.img"), "a")) GTEST_SKIP() << "cannot loop-mount here";
  auto item = std::make_shared<KSScheduledItem>(CalendarDate::make(0, TimeZone::make("UTC")));
  item->setDescription("twin");
  item->setScheduleType(6);
  item->setScheduledLeftTargetMounts(1);
  item->setLeftTargetVolumeSpecifier(
      VolumeSpecifier::volumeSpecifierWithPath(scratch.path("a"), fileservices::VTFileManager::make()));
  const std::string schedule = scratch.path("ScheduleData.sched");
  ASSERT_TRUE(writeScheduleFile(schedule, ScheduleData{Dictionary::make(true), ScheduleItems{item}}).ok());
  ASSERT_TRUE(scratch.unmount("a"));
  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("b.img"), "b"));

  ASSERT_TRUE(scratch.mount("--bind", scratch.path("b"), "bound"));
  const std::string listing = halyardctl("volumes");
  EXPECT_NE(listing.find(scratch.path("b") + ": can start an item\n  name: Twin\n  type: ext4, signature 0xEF53"),
            std::string::npos)
      << listing;
  EXPECT_NE(listing.find("/proc (proc): cannot start an item: pseudo file system\n"), std::string::npos) << listing;
  EXPECT_NE(listing.find(scratch.path("bound") + " (ext4): cannot start an item: another mount of the volume at " +
                         scratch.path("b") + "\n"),
            std::string::npos)
      << listing;
  EXPECT_NE(listing.find("created: 2020-09-13 12:26:41 +0000"), std::string::npos) << listing;
  EXPECT_NE(halyardctl("volumes --json").find("\"path\": \"" + scratch.path("b") + "\""), std::string::npos);

  std::string check = halyardctl("volumes check 1 --file " + schedule);
  EXPECT_NE(check.find("left target (a mount starts a run):"), std::string::npos) << check;
  EXPECT_NE(check.find("    " + scratch.path("b") + ": the creation dates differ (strict identification)\n"),
            std::string::npos)
      << check;
  EXPECT_NE(check.find("  nearest volume: " + scratch.path("b") + "\n"), std::string::npos) << check;
  EXPECT_NE(check.find("right target: none"), std::string::npos) << check;

  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("a.img"), "again"));
  check = halyardctl("volumes check 1 --file " + schedule);
  EXPECT_NE(check.find("mounted at " + scratch.path("again")), std::string::npos) << check;

  // Covered by a second mount of b, the volume is out of reach.
  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("b.img"), "again"));
  check = halyardctl("volumes check 1 --file " + schedule);
  EXPECT_EQ(check.find("mounted at "), std::string::npos) << check;
  EXPECT_NE(halyardctl("volumes").find(scratch.path("again") +
                                       " (ext4): cannot start an item: out of reach: a later mount covers it\n"),
            std::string::npos);
  EXPECT_NE(halyardctl("volumes check 2 --file " + schedule).find("has no item 2"), std::string::npos);
}

}  // namespace
}  // namespace halyard
