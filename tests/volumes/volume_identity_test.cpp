// The identity test, the mount checks, the case test and the buffer advice,
// against machines described in data.

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <set>

#include "foundation/log_sink.h"
#include "foundation/strings_table.h"
#include "volume_test_support.h"
#include "volumes/volume_mounts.h"

namespace halyard {
namespace {

using testing::diskVolume;
using testing::machineOf;
using testing::managerFor;
using testing::recordOn;

struct Pair {
  std::shared_ptr<FakeVolumeQueries> machine;
  std::shared_ptr<VolumeSpecifier> a, b;
};

Pair recordsOf(FakeVolume first, FakeVolume second) {
  Pair pair;
  pair.machine = machineOf({first, second});
  auto fm = managerFor(pair.machine);
  pair.a = VolumeSpecifier::volumeSpecifierWithPath(first.mount.mountPoint, fm);
  pair.b = VolumeSpecifier::volumeSpecifierWithPath(second.mount.mountPoint, fm);
  return pair;
}

struct IdentityCase {
  const char* name;
  std::function<void(FakeVolume& receiver, FakeVolume& other)> change;
  IdentityMismatch expected;
};

TEST(Identity, DecidesInItsFixedOrder) {
  using enum IdentityMismatch;
  const IdentityCase cases[] = {
      {"same volume data on two devices", [](FakeVolume&, FakeVolume&) {}, None},
      {"strict: reformatted, new creation date", [](FakeVolume&, FakeVolume& o) { o.birth->seconds += 86400; },
       CreationDate},
      {"strict: dates differ only in the fraction",
       [](FakeVolume&, FakeVolume& o) { o.birth->nanoseconds = 500000000; }, CreationDate},
      {"not strict: FAT volumes of any creation date and UUID",
       [](FakeVolume& r, FakeVolume& o) {
         r.mount.fsType = o.mount.fsType = "vfat";
         r.stats.type = o.stats.type = testing::kVfat;
         o.birth->seconds += 86400;
         o.device.uuid = "9999-9999";
       },
       None},
      {"names equal ignoring case",
       [](FakeVolume& r, FakeVolume& o) { r.device.label = "Backup", o.device.label = "BACKUP"; }, None},
      {"accented names equal ignoring case",
       [](FakeVolume& r, FakeVolume& o) { r.device.label = "Donn\u00e9es", o.device.label = "DONN\u00c9ES"; }, None},
      {"other name", [](FakeVolume&, FakeVolume& o) { o.device.label = "Archive"; }, Name},
      {"other name and date: the name is checked first",
       [](FakeVolume&, FakeVolume& o) { o.device.label = "Archive", o.birth->seconds += 1; }, Name},
      {"other block size", [](FakeVolume&, FakeVolume& o) { o.stats.blockSize = 1024; }, BlockSize},
      {"other signature", [](FakeVolume&, FakeVolume& o) { o.stats.type = 0xEF54; }, Signature},
      {"other file-system id", [](FakeVolume&, FakeVolume& o) { o.stats.type = 0x1EF53; }, FileSystemID},
      {"read-only on one side", [](FakeVolume&, FakeVolume& o) { o.stats.readOnly = true; }, ReadOnly},
      {"removable on one side", [](FakeVolume&, FakeVolume& o) { o.device.removable = true; }, MediaKind},
      {"strict: device information on one side only",
       [](FakeVolume&, FakeVolume& o) { o.device.uuid = o.device.model = o.device.bus = std::nullopt; }, None},
      {"strict: device information differs in the UUID",
       [](FakeVolume&, FakeVolume& o) { o.device.uuid = "3333-4444"; }, DeviceInfo},
  };
  for (const IdentityCase& c : cases) {
    SCOPED_TRACE(c.name);
    FakeVolume receiver = diskVolume("/media/u/A", 1);
    FakeVolume other = diskVolume("/media/u/B", 2);
    c.change(receiver, other);
    Pair pair = recordsOf(receiver, other);
    ASSERT_TRUE(pair.a && pair.b);
    const IdentityMismatch found = pair.a->identityMismatch(*pair.b);
    EXPECT_EQ(found, c.expected) << describeIdentityMismatch(found);
    EXPECT_EQ(pair.a->isEqual(pair.b), c.expected == None);
  }
}

TEST(Identity, TheReceiversStrictnessDecidesWhetherDatesCount) {
  FakeVolume other = diskVolume("/media/u/B", 2);
  other.birth->seconds += 3600;
  Pair pair = recordsOf(diskVolume("/media/u/A", 1), other);
  EXPECT_FALSE(pair.a->isEqual(pair.b));
  pair.a->setStrictVolumeIdentification(false);
  EXPECT_TRUE(pair.a->isEqual(pair.b));
  EXPECT_FALSE(pair.b->isEqual(pair.a));
}

TEST(Identity, NothingAndOtherClassesAreNeverEqual) {
  Pair pair = recordsOf(diskVolume("/media/u/A", 1), diskVolume("/media/u/B", 2));
  EXPECT_FALSE(pair.a->isEqual(nullptr));
  EXPECT_FALSE(pair.a->isEqual(String::make("Backup")));
}

TEST(Identity, AuditLinesTellWhichCheckFailed) {
  FakeVolume other = diskVolume("/media/u/B", 2, "BACKUP");
  other.birth->nanoseconds = 1000000;
  Pair pair = recordsOf(diskVolume("/media/u/A", 1), other);
  const std::string host = pair.a->fileManager()->hostName();
  testing::SwitchOn audit("VolumeSpecAudit");
  LogCapture capture;
  EXPECT_FALSE(pair.a->isEqual(pair.b));
  const std::vector<std::string> expected{"isEqual:Comparing Backup to BACKUP",
                                          "isEqual:Hostname: " + host + " to " + host,
                                          "isEqual:isRemote: 0 to 0",
                                          "isEqual:isDistantRemote: 0 to 0",
                                          "isEqual:blockSize: 4096 to 4096",
                                          "isEqual:fileSystemID: 0 to 0",
                                          "isEqual:isCaseSensitive: 1 to 1",
                                          "isEqual:isReadOnly: 0 to 0",
                                          "isEqual:isFileServer: 0 to 0",
                                          "isEqual:isRemovableMedia: 0 to 0",
                                          "isEqual:Creation dates did NOT match!!!",
                                          "isEqual:Result: 0"};
  EXPECT_EQ(capture.lines(), expected);
}

TEST(Identity, RecordsOfTheMachinesFields) {
  FakeVolume nfs = diskVolume("/mnt/share", 7);
  nfs.mount = {.source = "server:/export",
               .mountPoint = "/mnt/share",
               .fsType = "nfs4",
               .options = "rw",
               .root = "/",
               .device = 7};
  nfs.stats.type = testing::kNfs;
  Pair pair = recordsOf(diskVolume("/", 1, ""), nfs);
  EXPECT_EQ(pair.a->volumeName(), "/");
  EXPECT_TRUE(pair.a->strictVolumeIdentification());
  EXPECT_EQ(pair.a->fsKind(), testing::kExt4);
  EXPECT_EQ(pair.a->volumeFormat(), "ext4");
  EXPECT_EQ(pair.a->deviceGUID(), "1111-2222");
  EXPECT_TRUE(pair.b->isFileServer());
  EXPECT_FALSE(pair.b->strictVolumeIdentification());
  EXPECT_FALSE(pair.b->deviceInfoValid());
  EXPECT_EQ(pair.b->deviceModel(), "");
  EXPECT_EQ(pair.b->volumeName(), "share");
  ASSERT_TRUE(pair.b->url());
  EXPECT_EQ(pair.b->url()->relative, "nfs://server/export");
  EXPECT_EQ(pair.b->serverMedia(), fourCharCode("nfs "));
  EXPECT_EQ(pair.b->optimalBufferSize(), 262144u);
  EXPECT_EQ(pair.a->optimalBufferSize(), 4194304u);
}

TEST(Identity, ARecordOfAMissingPathHasOnlyItsFileManager) {
  auto machine = machineOf({diskVolume("/media/u/A", 1)});
  auto missing = recordOn(machine, "/nowhere");
  ASSERT_TRUE(missing);
  EXPECT_FALSE(missing->volumeName());
  EXPECT_FALSE(missing->isMounted(0));
  EXPECT_EQ(missing->deviceModel(), "");
}

TEST(MountCheck, FindsTheVolumeUnderItsNewMountPoint) {
  auto machine = machineOf({diskVolume("/", 1, "root"), diskVolume("/media/u/Backup", 2)});
  auto wanted = recordOn(machine, "/media/u/Backup");
  machine->volumes[1].mount.mountPoint = "/media/u/Backup1";
  EXPECT_TRUE(wanted->isMounted(100.0));
  EXPECT_EQ(wanted->volumePath(), "/media/u/Backup1");
  EXPECT_EQ(wanted->lastMountCheck(), 100.0);
  machine->volumes.pop_back();
  wanted->setMountedByMe(true);
  EXPECT_FALSE(wanted->isMounted(101.0));
  EXPECT_FALSE(wanted->mountedByMe());
  EXPECT_FALSE(wanted->lastMountCheck());
}

// btrfs gives a path a device number (40) that the mount table does not
// show (39), and here another volume's table number is 40: a lookup by
// st_dev would find that one or none.
TEST(MountCheck, APathsVolumeIsFoundByItsMountNotItsDeviceNumber) {
  auto machine = std::make_shared<FakeVolumeQueries>();
  FakeVolume pool = diskVolume("/media/u/Pool", 39, "Pool");
  pool.mount.fsType = "btrfs";
  pool.mount.options = "rw,subvolid=5,subvol=/";
  pool.stats.type = 0x9123683E;
  pool.pathDevice = 40;
  machine->volumes = {diskVolume("/", 1, "root"), diskVolume("/media/u/Other", 40, "Other"), pool};
  machine->files = {{"/media/u/Pool/a/b/deep.txt", 7}};
  auto fm = managerFor(machine);
  auto deep = VolumeSpecifier::volumeSpecifierWithPath("/media/u/Pool/a/b/deep.txt", fm);
  auto top = VolumeSpecifier::volumeSpecifierWithPath("/media/u/Pool", fm);
  EXPECT_EQ(deep->volumeName(), "Pool");
  EXPECT_EQ(deep->volumePath(), "/media/u/Pool");
  EXPECT_EQ(deep->volumeFormat(), "btrfs");
  EXPECT_TRUE(deep->strictVolumeIdentification());
  EXPECT_TRUE(deep->isEqual(top));
  machine->volumes[2].mount.mountPoint = "/mnt/pool";
  EXPECT_TRUE(deep->isMounted(1.0));
  EXPECT_EQ(deep->volumePath(), "/mnt/pool");
}

// Backup's record is made where it is mounted alone; then the volumes are
// mounted in a row's order. Data is Backup's twin but for its name, so that
// a covered Backup read through its mount point would pass for itself.
TEST(MountCheck, AVolumeALaterMountCoversIsNotMounted) {
  const FakeVolume root = diskVolume("/", 1, "root");
  const auto backupAt = [](const char* point) { return diskVolume(point, 2, "Backup"); };
  const auto dataAt = [](const char* point) { return diskVolume(point, 3, "Data"); };
  struct Case {
    const char* name;
    std::vector<FakeVolume> mounted;
    std::optional<std::string> backupAt;
  } cases[] = {
      {"Data mounted over it", {root, backupAt("/m/A"), dataAt("/m/A")}, std::nullopt},
      {"Data mounted at a folder above it", {root, backupAt("/m/A/in"), dataAt("/m/A")}, std::nullopt},
      {"Data mounted first, it over Data", {root, dataAt("/m/A"), backupAt("/m/A")}, "/m/A"},
      {"inside Data mounted before it", {root, dataAt("/m/A"), backupAt("/m/A/in")}, "/m/A/in"},
      {"covered at one mount point, reached at another",
       {root, backupAt("/m/A"), backupAt("/m/B"), dataAt("/m/A")},
       "/m/B"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto machine = machineOf({root, backupAt("/m/A")});
    auto backup = recordOn(machine, "/m/A");
    machine->volumes = c.mounted;
    EXPECT_EQ(backup->isMounted(1.0), c.backupAt.has_value());
    if (c.backupAt) {
      EXPECT_EQ(backup->volumePath(), c.backupAt);
    }
    const auto paths = mountedLocalVolumePaths(*machine);
    EXPECT_EQ(std::set<std::string>(paths.begin(), paths.end()).size(), paths.size()) << "each path once";
  }
}

TEST(MountCheck, CoalescedRemembersOnlyAPositiveAnswerForOneSecond) {
  auto machine = machineOf({diskVolume("/media/u/Backup", 2)});
  auto wanted = recordOn(machine, "/media/u/Backup");
  ASSERT_TRUE(wanted->isMounted(100.0));
  const int reads = machine->mountTableReads;
  EXPECT_TRUE(wanted->isMountedCoalesced(100.9));
  EXPECT_EQ(machine->mountTableReads, reads);
  EXPECT_TRUE(wanted->isMountedCoalesced(101.5));
  EXPECT_GT(machine->mountTableReads, reads);

  machine->volumes.clear();
  EXPECT_FALSE(wanted->isMounted(102.0));
  const int afterMiss = machine->mountTableReads;
  EXPECT_FALSE(wanted->isMountedCoalesced(102.1));
  EXPECT_GT(machine->mountTableReads, afterMiss);
}

struct CaseTestCase {
  const char* name;
  std::map<std::string, std::uint64_t> files;
  bool sensitive;
};

TEST(CaseTest, UndecidableFoldersCountAsCaseSensitive) {
  const CaseTestCase cases[] = {
      {"empty folder", {}, true},
      {"names without letters", {{"/v/123", 1}, {"/v/_-_", 2}}, true},
      {"swapped name missing", {{"/v/Readme", 1}}, true},
      {"swapped name is another file", {{"/v/Readme", 1}, {"/v/rEADME", 2}}, true},
      {"swapped name is the same file", {{"/v/1", 5}, {"/v/Readme", 1}, {"/v/rEADME", 1}}, false},
  };
  for (const CaseTestCase& c : cases) {
    SCOPED_TRACE(c.name);
    auto machine = machineOf({diskVolume("/v", 1)});
    machine->files = c.files;
    VolumeSpecifier record(managerFor(machine));
    EXPECT_EQ(record.testCaseSensitivityAtPath("/v"), c.sensitive);
  }
}

TEST(DynamicProperties, AreRefreshedOrAnswerTheFailingCallsStatus) {
  auto machine = machineOf({diskVolume("/v", 1)});
  auto record = recordOn(machine, "/v");
  machine->volumes[0].stats.readOnly = true;
  machine->volumes[0].mount.options = "ro,noacl";
  EXPECT_EQ(record->refreshDynamicProperties(), 0);
  EXPECT_TRUE(record->isReadOnly());
  EXPECT_FALSE(record->supportsACLs());
  machine->volumes.clear();
  EXPECT_EQ(record->refreshDynamicProperties(), ENOENT) << "statfs of a root that is gone";
  EXPECT_TRUE(record->isReadOnly()) << "nothing changes on failure";
}

TEST(BufferSize, FollowsTheVolumeGrade) {
  const std::pair<std::int32_t, std::uint32_t> cases[] = {
      {-4096, 1024}, {-100000000, 16777216}, {0, 4194304},   {1, 4194304},
      {-1, 1024},    {-6000, 1024},          {-10000, 2048}, {INT32_MIN, 16777216},
  };
  for (const auto& [grade, size] : cases) {
    SCOPED_TRACE(grade);
    EXPECT_EQ(VolumeSpecifier::bufferSizeForVolumeGrade(grade), size);
  }
}

TEST(SizeStatistics, AreCachedForTwoAndAHalfSeconds) {
  auto machine = machineOf({diskVolume("/v", 1)});
  auto record = recordOn(machine, "/v");
  EXPECT_FLOAT_EQ(record->volumePercentFull(10.0), 75.0f);
  machine->volumes[0].stats.freeBlocks = 500;
  EXPECT_FLOAT_EQ(record->volumePercentFull(12.5), 75.0f);
  EXPECT_FLOAT_EQ(record->volumePercentFull(12.6), 50.0f);
  const std::string text = record->volumeSizeStats(20.0);
  EXPECT_NE(text.find("3.9 MB"), std::string::npos) << text;
  EXPECT_NE(text.find("50.0"), std::string::npos) << text;
  machine->volumes.clear();
  EXPECT_EQ(record->volumeSizeStats(21.0), text);
  EXPECT_EQ(record->volumeSizeStatsForced(21.0), localizedString("VOLUME_CANT_DETERMINE_SIZE"));
  EXPECT_FLOAT_EQ(record->volumePercentFullForced(21.0), -1.0f);
}

}  // namespace
}  // namespace halyard
