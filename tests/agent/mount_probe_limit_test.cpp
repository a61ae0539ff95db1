// A network volume that stops answering for 30 s while the agent checks the
// volumes mounted beside it: every beat still comes within its second, the
// check gives up on that volume after the time limit (logged once) and still
// finds the item of the volume that answered.

#include <condition_variable>
#include <mutex>

#include <QDir>

#include "daemon_fixture.h"
#include "foundation/log_sink.h"
#include "volumes/time_limited_volume_queries.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent::testing {
namespace {

// The fake machine, except that every query about one mount point blocks
// for up to 30 s, as a dead server's mount does, until released.
class BlockingVolumeQueries final : public VolumeQueries {
 public:
  BlockingVolumeQueries(std::shared_ptr<const VolumeQueries> machine, std::string blocked)
      : machine_(std::move(machine)), blocked_(std::move(blocked)) {}
  void release() {
    std::lock_guard guard(mutex_);
    released_ = true;
    changed_.notify_all();
  }
  int blockedCalls() const {
    std::lock_guard guard(mutex_);
    return blockedCalls_;
  }

  std::vector<MountEntry> mountTable() const override { return machine_->mountTable(); }
  std::optional<PathPlace> placeOf(const std::string& p) const override { return block(p), machine_->placeOf(p); }
  int pathStatus(const std::string& p) const override { return block(p), machine_->pathStatus(p); }
  std::optional<std::uint64_t> deviceOf(const std::string& p) const override { return block(p), machine_->deviceOf(p); }
  std::optional<FileSystemStats> fileSystemStats(const std::string& p) const override {
    return block(p), machine_->fileSystemStats(p);
  }
  std::optional<KernelTime> birthTime(const std::string& p) const override { return block(p), machine_->birthTime(p); }
  DeviceProperties deviceProperties(const MountEntry& m) const override {
    return block(m.mountPoint), machine_->deviceProperties(m);
  }
  std::optional<std::vector<std::string>> listDirectory(const std::string& p) const override {
    return block(p), machine_->listDirectory(p);
  }
  std::optional<std::uint64_t> fileNumber(const std::string& p) const override {
    return block(p), machine_->fileNumber(p);
  }
  std::string defaultUserPath() const override { return machine_->defaultUserPath(); }

 private:
  void block(const std::string& path) const {
    if (path != blocked_) return;
    std::unique_lock lock(mutex_);
    ++blockedCalls_;
    changed_.wait_for(lock, std::chrono::seconds(30), [this] { return released_; });
  }

  std::shared_ptr<const VolumeQueries> machine_;
  std::string blocked_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  mutable int blockedCalls_ = 0;
  bool released_ = false;
};

class MountProbeLimitTest : public DaemonFixture {
 protected:
  MountProbeLimitTest() {
    QDir(dir_.path()).mkpath("media/Net");
    QDir(dir_.path()).mkpath("media/Left");
    machine_->volumes = {fakeVolume("Net", 7, path("media/Net")), fakeVolume("Left", 1, path("media/Left"))};
    machine_->volumes[0].mount.fsType = "nfs4";
    fileManager_ = fileservices::VTFileManager::make();
    fileManager_->setVolumeQueries(std::make_shared<TimeLimitedVolumeQueries>(blocking_));
  }
  ~MountProbeLimitTest() override { blocking_->release(); }

  std::shared_ptr<FakeVolumeQueries> machine_ = std::make_shared<FakeVolumeQueries>();
  std::shared_ptr<BlockingVolumeQueries> blocking_ =
      std::make_shared<BlockingVolumeQueries>(machine_, path("media/Net"));
  RealTimeClock realClock_;
};

TEST_F(MountProbeLimitTest, EveryBeatDuringTheBlockComesWithinItsSecond) {
  auto item = makeItem("left-item", 0, 0, 6);
  item->setLeftTargetVolumeSpecifier(VolumeSpecifier::volumeSpecifierWithPath(path("media/Left"), fileManager_));
  item->setScheduledLeftTargetMounts(true);
  writeSchedule(path("ScheduleData.sched"), {item});
  makeDaemon(realClock_, false);
  LogCapture log;
  daemon_->awakeFromNib();  // the heartbeat timer on the real clock
  mounts_.mount(path("media/Left"));
  mounts_.mount(path("media/Net"));
  ASSERT_TRUE(waitUntil([&] { return blocking_->blockedCalls() > 0; }));
  const std::size_t beatsBefore = daemon_->timings().beatLateness.count();
  ASSERT_TRUE(waitUntil([&] { return daemon_->pendingMountChecks() == 0; }));  // given up after the limit
  EXPECT_GE(daemon_->timings().beatLateness.count(), beatsBefore + 1) << "beats went on during the block";
  EXPECT_LT(*daemon_->timings().beatLateness.worst(realClock_.now()), 1.0);
  EXPECT_EQ(parked(), Names{"left-item"});
  int stuckLines = 0;
  for (const std::string& line : log.lines()) stuckLines += line.find("did not answer") != std::string::npos;
  EXPECT_EQ(stuckLines, 1);
}

}  // namespace
}  // namespace halyard::agent::testing
