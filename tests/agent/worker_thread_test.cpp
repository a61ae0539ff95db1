// The agent's work on threads of its own, without Qt, so that the thread
// checker sees every access: mounted-volume checks probing the machine while
// the owner goes on checking the calendar, and an owner that goes first.

#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <future>

#include "agent/rules/background_tasks.h"
#include "agent/rules/calendar_checks.h"
#include "agent/rules/mounted_volume_jobs.h"
#include "schedule/schedule_file.h"
#include "simulation_support.h"
#include "volumes/fake_volume_queries.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent {
namespace {

using namespace std::chrono_literals;

// The owner's side: deliveries queue here and run when the owner drains them.
class OwnerQueue {
 public:
  BackgroundTasks::Poster poster() {
    return [this](std::function<void()> delivery) {
      std::lock_guard lock(mutex_);
      queue_.push_back(std::move(delivery));
      posted_.notify_all();
    };
  }
  // Runs the queued deliveries until `done` holds; false when none came for 10 s.
  bool runUntil(const std::function<bool()>& done) {
    std::unique_lock lock(mutex_);
    while (!done()) {
      if (!posted_.wait_for(lock, 10s, [this] { return !queue_.empty(); })) return false;
      auto delivery = std::move(queue_.front());
      queue_.pop_front();
      lock.unlock();
      delivery();
      lock.lock();
    }
    return true;
  }
  std::size_t queued() {
    std::lock_guard lock(mutex_);
    return queue_.size();
  }

 private:
  std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<std::function<void()>> queue_;
};

// 2001-01-01 10:01:00 UTC, the minute the calendar items are due.
constexpr TimeInterval kNow = 10 * 3600 + 60;

std::shared_ptr<KSScheduledItem> item(ScheduleType type, const std::shared_ptr<VolumeSpecifier>& left) {
  auto made = testing::timedItem("", scheduleTypeNumber(type), testing::oneHour(10), testing::minutes(1, 1), 0);
  made->setScheduledMonths(std::string(12, '1'));
  made->setLeftTargetVolumeSpecifier(left);
  made->setScheduledLeftTargetMounts(1);
  return made;
}

// A schedule read afresh, as every beat reads the file.
ScheduleItems readAfresh(const std::string& bytes) {
  const CalendarClock clock = [] { return CalendarDate::make(kNow, TimeZone::make("UTC")); };
  return decodeScheduleData(bytes, scheduleClassRegistry(clock)).value().items.value();
}

TEST(WorkerThreads, MountChecksOnTheirOwnThreadsMatchWhileTheOwnerChecksTheCalendar) {
  auto machine = std::make_shared<FakeVolumeQueries>();
  machine->volumes = {fakeVolume("Left", 1, "/media/u/Left"), fakeVolume("Other", 3, "/media/u/Other")};
  const auto fileManager = fileservices::VTFileManager::make();
  fileManager->setVolumeQueries(machine);
  const auto left = VolumeSpecifier::volumeSpecifierWithPath("/media/u/Left", fileManager);
  const auto other = VolumeSpecifier::volumeSpecifierWithPath("/media/u/Other", fileManager);
  constexpr std::size_t kEach = 10;
  ScheduleItems written;
  for (std::size_t i = 0; i < kEach; ++i) {
    written.push_back(item(ScheduleType::OnVolumeMount, left));
    written.push_back(item(ScheduleType::OnVolumeMount, other));
    written.push_back(item(ScheduleType::Daily, left));
  }
  const std::string bytes = encodeScheduleData({nullptr, written});

  OwnerQueue owner;
  BackgroundTasks tasks(owner.poster());
  constexpr std::size_t kChecks = 8;
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < kChecks; ++i) {
    tasks.run<ScheduleItems>(
        [&bytes, fileManager] { return mountedVolumeJobs(readAfresh(bytes), {"/media/u/Left"}, fileManager, kNow); },
        [&found](ScheduleItems due) { found.push_back(due.size()); });
  }
  // Meanwhile the owner's own beats, each on its own reading of the schedule.
  for (int beat = 0; beat < 20; ++beat) {
    EXPECT_EQ(newJobs(readAfresh(bytes), kNow, cctz::utc_time_zone()).size(), kEach);
  }
  ASSERT_TRUE(owner.runUntil([&] { return found.size() == kChecks; }));
  EXPECT_EQ(found, std::vector<std::size_t>(kChecks, kEach));
}

TEST(WorkerThreads, TheResultOfAnOwnerThatWentFirstIsDroppedUndelivered) {
  OwnerQueue owner;
  std::promise<void> release;
  std::promise<void> dropped;  // kept when the last copy of the result goes
  {
    BackgroundTasks tasks(owner.poster());
    tasks.run<std::shared_ptr<int>>(
        [released = release.get_future().share(), &dropped] {
          released.wait();
          return std::shared_ptr<int>(new int(1), [&dropped](int* value) {
            delete value;
            dropped.set_value();
          });
        },
        [](std::shared_ptr<int>) { ADD_FAILURE() << "delivered after its owner went"; });
  }
  release.set_value();
  ASSERT_EQ(dropped.get_future().wait_for(10s), std::future_status::ready);
  EXPECT_EQ(owner.queued(), 0u);
}

// Tasks finishing while their owner goes: each result is posted once or
// dropped, never both. The thread checker watches the closing itself.
TEST(WorkerThreads, TasksFinishingAsTheirOwnerGoesArePostedOnceOrDropped) {
  constexpr int kTasks = 32;
  std::mutex mutex;
  std::condition_variable changed;
  int posted = 0;
  int dropped = 0;
  std::vector<std::function<void()>> queued;
  auto count = [&](int& counter) {
    std::lock_guard lock(mutex);
    ++counter;
    changed.notify_all();
  };
  {
    BackgroundTasks tasks([&](std::function<void()> delivery) {
      queued.push_back(std::move(delivery));  // under the inbox's lock
      count(posted);
    });
    for (int i = 0; i < kTasks; ++i) {
      tasks.run<std::shared_ptr<int>>(
          [&, i] { return std::shared_ptr<int>(new int(i), [&](int* value) { delete value, count(dropped); }); },
          [](std::shared_ptr<int>) {});
    }
  }
  std::unique_lock lock(mutex);
  // A posted result lives on in its queued delivery, so every task is counted once.
  ASSERT_TRUE(changed.wait_for(lock, 10s, [&] { return posted + dropped == kTasks; })) << posted << " + " << dropped;
  EXPECT_EQ(queued.size(), static_cast<std::size_t>(posted));
}

}  // namespace
}  // namespace halyard::agent
