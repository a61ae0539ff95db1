// The command pool: ids, keys, properties, FIFO order without overlap,
// exceptions, and an idle worker that uses no processor time.

#include "fileservices/vt_threaded_command_pool.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <stdexcept>
#include <thread>

namespace halyard::fileservices {
namespace {

// Blocks until the command has finished, through its own latch.
void awaitFinished(VTThreadedCommandPool& pool, CommandID id) {
  auto latch = pool.getPropertyAs<std::shared_ptr<ConditionLock>>(kCondKey, id);
  ASSERT_TRUE(latch && *latch);
  (*latch)->lockWhenCondition(kLatchFinished);
  (*latch)->unlockWithCondition(kLatchFinished);
}

TEST(CommandPool, IdsStartAtOneAndNegativeIdsNameTheSameCommand) {
  VTThreadedCommandPool pool;
  std::vector<CommandID> ids;
  for (int i = 0; i < 3; ++i) ids.push_back(pool.runCommand([](CommandID) {}, nullptr, nullptr));
  EXPECT_EQ(ids, (std::vector<CommandID>{1, 2, 3}));
  awaitFinished(pool, -3);
  EXPECT_EQ(pool.getPropertyAs<std::int64_t>(kIDKey, -2), 2);
  EXPECT_EQ(pool.getPropertyAs<std::int64_t>(kStateKey, -3), kCommandFinished);
  pool.disposeCommand(-1);
  EXPECT_EQ(pool.runCommand([](CommandID) {}, nullptr, nullptr), 4) << "ids are never reused";
}

TEST(CommandPool, SpooledCommandsRunInOrderOneAtATime) {
  VTThreadedCommandPool pool;
  std::promise<void> gate;
  std::shared_future<void> open = gate.get_future().share();
  std::atomic<int> running{0};
  std::atomic<int> mostAtOnce{0};
  std::vector<int> order;  // written only by the worker
  auto command = [&](int n) {
    return [&, n](CommandID id) {
      mostAtOnce = std::max(mostAtOnce.load(), ++running);
      if (n == 0) open.wait();
      EXPECT_EQ(pool.getPropertyAs<std::int64_t>(kStateKey, id), kCommandRunning);
      order.push_back(n);
      --running;
    };
  };
  CommandID last = 0;
  for (int n = 0; n < 5; ++n) last = pool.runCommand(command(n), nullptr, nullptr);
  // All five are spooled while the first one is held.
  EXPECT_EQ(pool.getPropertyAs<std::int64_t>(kStateKey, last), kCommandSpooled);
  gate.set_value();
  awaitFinished(pool, last);
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(mostAtOnce.load(), 1);
}

TEST(CommandPool, ExceptionBecomesCodeFourAndTheNextCommandRuns) {
  VTThreadedCommandPool pool;
  const CommandID failing =
      pool.runCommand([](CommandID) { throw std::invalid_argument("bad path"); }, nullptr, nullptr);
  const CommandID next =
      pool.runCommand([&pool](CommandID id) { pool.setProperty(kECodeKey, id, std::int64_t{0}); }, nullptr, nullptr);
  awaitFinished(pool, next);
  EXPECT_EQ(pool.getPropertyAs<std::int64_t>(kStateKey, failing), kCommandFinished);
  EXPECT_EQ(pool.getPropertyAs<std::int64_t>(kECodeKey, failing), kCommandRaisedCode);
  EXPECT_EQ(pool.getPropertyAs<std::string>(kENameKey, failing), "std::invalid_argument");
  EXPECT_EQ(pool.getPropertyAs<std::string>(kEDescKey, failing), "bad path");
  EXPECT_EQ(pool.getPropertyAs<std::int64_t>(kECodeKey, next), 0);
}

TEST(CommandPool, UnknownIdsAndNilValuesChangeNothing) {
  VTThreadedCommandPool pool;
  const CommandID id = pool.runCommand([](CommandID) {}, nullptr, nullptr);
  awaitFinished(pool, id);
  pool.setProperty(kResultKey, id, std::string("kept"));
  struct Case {
    const char* what;
    CommandID id;
    std::optional<PropertyValue> value;
  };
  const Case cases[] = {
      {"nothing", id, std::nullopt},
      {"null object", id, ObjectRef{}},
      {"null delegate", id, std::shared_ptr<ProgressDelegate>{}},
      {"unknown id", 99, std::string("new")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    pool.setProperty(kResultKey, c.id, c.value);
    EXPECT_EQ(pool.getPropertyAs<std::string>(kResultKey, id), "kept");
    EXPECT_FALSE(pool.getProperty(kResultKey, 99));
  }
  pool.disposeCommand(id);
  pool.setProperty(kResultKey, id, std::string("after"));
  EXPECT_FALSE(pool.getProperty(kResultKey, id));
  EXPECT_FALSE(pool.getProperty(kStateKey, id));
  pool.disposeCommand(id);  // twice: nothing happens
}

TEST(CommandPool, PausedCopyLoopWaitsUntilResumedOrAborted) {
  VTThreadedCommandPool pool;
  std::promise<bool> outcome;
  std::promise<void> started;
  CommandID id = pool.runCommand(
      [&](CommandID self) {
        pool.setProperty(kPauseKey, self, true);
        started.set_value();
        outcome.set_value(pool.waitWhilePausedOrAborted(self));
      },
      nullptr, nullptr);
  started.get_future().wait();
  auto result = outcome.get_future();
  EXPECT_EQ(result.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
  pool.setProperty(kAbortKey, id, true);
  EXPECT_TRUE(result.get()) << "an abort ends the pause";
}

// Scheduler statistics of one thread: run time (ns) and voluntary switches.
std::pair<long long, long long> threadUsage(pid_t tid) {
  const std::string base = "/proc/self/task/" + std::to_string(tid);
  long long runNs = 0;
  std::ifstream(base + "/schedstat") >> runNs;
  std::ifstream status(base + "/status");
  std::string line;
  long long switches = 0;
  while (std::getline(status, line)) {
    if (line.rfind("voluntary_ctxt_switches:", 0) == 0) switches = std::stoll(line.substr(24));
  }
  return {runNs, switches};
}

TEST(CommandPool, IdleWorkerBlocksWithoutUsingTheProcessor) {
  VTThreadedCommandPool pool;
  std::atomic<pid_t> workerTid{0};
  awaitFinished(
      pool, pool.runCommand([&](CommandID) { workerTid = static_cast<pid_t>(syscall(SYS_gettid)); }, nullptr, nullptr));
  // A measurement window, not a wait for the thread: a polling worker would
  // run and switch many times in it.
  const auto before = threadUsage(workerTid);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const auto after = threadUsage(workerTid);
  EXPECT_LT(after.first - before.first, 2'000'000) << "ns of processor time while idle";
  EXPECT_LE(after.second - before.second, 1) << "wake-ups while idle";
}

// The running command finishes only once the pool is gone or after a
// bounded wait: a destructor that waited for it finds it finished, one that
// did not finds it still waiting, whatever the scheduling.
TEST(CommandPool, ShutdownLetsTheRunningCommandFinishAndJoins) {
  auto finished = std::make_shared<std::atomic<bool>>(false);
  std::promise<void> poolGone;
  auto gone = poolGone.get_future().share();
  {
    VTThreadedCommandPool pool;
    std::promise<void> started;
    pool.runCommand(
        [&started, finished, gone](CommandID) {
          started.set_value();
          gone.wait_for(std::chrono::milliseconds(300));
          *finished = true;
        },
        nullptr, nullptr);
    started.get_future().wait();
    EXPECT_TRUE(pool.isCommandMonitorAlive());
  }
  EXPECT_TRUE(*finished) << "the pool went before its running command had finished";
  poolGone.set_value();
}

}  // namespace
}  // namespace halyard::fileservices
