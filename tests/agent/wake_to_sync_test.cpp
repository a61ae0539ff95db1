// Wake-to-sync with a fake logind on a private system bus: the idle-sleep
// veto as a block inhibitor, and the wake tool's requests around a sleep.

#include <condition_variable>
#include <mutex>

#include "agent/wake_to_sync.h"
#include "helper/wake_request.h"
#include "sleep_fixture.h"

namespace halyard::agent::testing {
namespace {

using wake::Command;

// Records the requests; each waits until the test lets the tool answer.
class RecordingWakeTool final : public WakeTool {
 public:
  Expected<int> execute(const std::string& request) override {
    std::unique_lock lock(mutex_);
    auto parsed = wake::readWakeRequest(request);
    if (!parsed) return parsed.error();
    requests_.push_back(*parsed);
    answer_.wait(lock, [this] { return open_; });
    return 0;
  }
  void letAnswer() {
    std::lock_guard lock(mutex_);
    open_ = true;
    answer_.notify_all();
  }
  std::vector<wake::WakeRequest> requests() {
    std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable answer_;
  bool open_ = false;
  std::vector<wake::WakeRequest> requests_;
};

class WakeToSyncTest : public SleepTest {
 protected:
  void SetUp() override {
    logind_ = startLogind();
    writeSchedule(path("ScheduleData.sched"), {makeItem("night", 3, 0)});
    wakeTool_ = tool_;
    idleSleepVeto_ = [this](bool veto) { power_.setIdleVeto(veto); };
    ASSERT_TRUE(power_.registerForSystemPower());
    power_.setSleepPreparation([this](std::function<void()> allow) { daemon_->systemWillSleep(std::move(allow)); });
    ASSERT_TRUE(waitUntil([&] { return power_.holdsInhibitor(); }));
  }
  void setUp(bool wakeToSync, bool schedulerActive) {
    preferences_->setBool(prefs::kWakeSystemToSynch, wakeToSync);
    preferences_->setBool(prefs::kSchedulerActive, schedulerActive);
    makeDaemon();
  }
  std::unique_ptr<TestProcess> logind_;
  std::shared_ptr<RecordingWakeTool> tool_ = std::make_shared<RecordingWakeTool>();
  LogindPower power_{connector(), [this](PowerMessage message) {
                       if (message == PowerMessage::HasPoweredOn) daemon_->systemHasPoweredOn();
                     }};
};

TEST_F(WakeToSyncTest, IdleSleepIsRefusedOnlyWithinTwoMinutesOfTheWakeUp) {
  setUp(true, true);
  beatAt(2, 56, 59);  // the wake-up at 02:59:00 is 121 s ahead
  EXPECT_FALSE(daemon_->idleSleepVetoed());
  beatAt(2, 57, 30);  // 90 s ahead
  EXPECT_TRUE(daemon_->idleSleepVetoed());
  ASSERT_TRUE(waitUntil([&] { return inhibitors("block") == 1; }));
  beatAt(3, 0, 1);  // the run has passed; the next is tomorrow
  EXPECT_FALSE(daemon_->idleSleepVetoed());
  ASSERT_TRUE(waitUntil([&] { return inhibitors("block") == 0; }));
}

TEST_F(WakeToSyncTest, SleepWaitsForTheWakeUpAndWakingCancelsIt) {
  setUp(true, true);
  beatAt(2, 58, 50);
  emitPrepareForSleep(true);
  ASSERT_TRUE(waitUntil([&] { return tool_->requests().size() == 1; }));
  EXPECT_TRUE(power_.holdsInhibitor());  // the will-sleep work is not done yet
  tool_->letAnswer();
  ASSERT_TRUE(waitUntil([&] { return !power_.holdsInhibitor(); }));
  const auto requests = tool_->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].command, Command::CancelOwnEvents);
  EXPECT_EQ(requests[1].command, Command::SchedulePowerOn);
  // 02:59:00 would be only 10 s away: the wake-up is placed 100 s after falling asleep.
  EXPECT_EQ(requests[1].powerOnUnixSeconds, toUnixSeconds(clock_.civil(2026, 3, 4, 3, 0, 30)));

  emitPrepareForSleep(false);
  ASSERT_TRUE(waitUntil([&] { return daemon_->awokeFromSleep() && power_.holdsInhibitor(); }));
  ASSERT_TRUE(waitUntil([&] { return tool_->requests().size() == 3; }));
  EXPECT_EQ(tool_->requests()[2].command, Command::CancelOwnEvents);
}

TEST_F(WakeToSyncTest, SuspendedOrSwitchedOffNeitherVetoesNorAsksTheTool) {
  const struct {
    const char* name;
    bool wakeToSync, schedulerActive;
  } cases[] = {{"preference off", false, true}, {"scheduler suspended", true, false}};
  tool_->letAnswer();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    setUp(c.wakeToSync, c.schedulerActive);
    beatAt(2, 58, 50);
    EXPECT_FALSE(daemon_->idleSleepVetoed());
    emitPrepareForSleep(true);
    ASSERT_TRUE(waitUntil([&] { return !power_.holdsInhibitor(); }));
    EXPECT_EQ(inhibitors("block"), 0);
    EXPECT_TRUE(tool_->requests().empty());
    emitPrepareForSleep(false);
    ASSERT_TRUE(waitUntil([&] { return power_.holdsInhibitor(); }));
  }
}

}  // namespace
}  // namespace halyard::agent::testing
