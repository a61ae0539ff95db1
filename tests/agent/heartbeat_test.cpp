// The heartbeat's mode choice and its alignment to the wall-clock second.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "agent/heartbeat.h"
#include "agent_test_support.h"

namespace halyard::agent {
namespace {

TEST(HeartbeatMode, ChoosesAtMostOneCheckByTheRules) {
  const TimeInterval last = 1000;
  struct Case {
    const char* name;
    bool awoke;
    std::optional<TimeInterval> last;
    TimeInterval now;
    int second;
    bool mounts;
    HeartbeatMode expected;
  } cases[] = {
      {"exactly 60 s is no gap", false, last, last + 60.0, 7, false, HeartbeatMode::None},
      {"60.9 s truncates to 60", false, last, last + 60.9, 7, false, HeartbeatMode::None},
      {"61.0 s is a gap", false, last, last + 61.0, 7, false, HeartbeatMode::Missed},
      {"clock set back 61 s is a gap", false, last, last - 61.0, 7, false, HeartbeatMode::Missed},
      {"clock set back 60.9 s is none", false, last, last - 60.9, 7, false, HeartbeatMode::None},
      {"no check yet: no gap", false, std::nullopt, 5000, 7, false, HeartbeatMode::None},
      {"second 0 runs the new check", false, last, last + 30, 0, false, HeartbeatMode::New},
      {"a wake wins over second 0", true, last, last + 30, 0, false, HeartbeatMode::Missed},
      {"a gap wins over second 0", false, last, last + 120, 0, true, HeartbeatMode::Missed},
      {"a wake with no check yet", true, std::nullopt, 5000, 12, false, HeartbeatMode::Missed},
      {"second 0 wins over mounts", false, last, last + 30, 0, true, HeartbeatMode::New},
      {"mounts at second 1", false, last, last + 31, 1, true, HeartbeatMode::MountedVolume},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(chooseHeartbeatMode({c.awoke, c.last, c.now, c.second, c.mounts}), c.expected);
  }
}

TEST(HeartbeatTiming, BeatsOncePerSecondWhateverTheJitter) {
  struct Case {
    const char* name;
    TimeInterval now;
    TimeInterval target;
    bool beat;
    TimeInterval nextTarget;
    long long waitMs;  // including the 5 ms lead
  } cases[] = {
      {"on time", 100.001, 100, true, 101, 1004},
      {"late by 400 ms still beats for its second", 100.4, 100, true, 101, 605},
      {"late by 999 ms", 100.999, 100, true, 101, 6},
      {"early by 300 ms waits for the second", 99.7, 100, false, 100, 305},
      {"early by 1 ms", 99.999, 100, false, 100, 6},
      {"clock set back an hour beats at once", 100.5, 3700, true, 101, 505},
      {"clock jumped ahead beats and realigns", 5000.25, 100, true, 5001, 755},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const BeatPlan plan = planBeat(c.now, c.target);
    EXPECT_EQ(plan.beatNow, c.beat);
    EXPECT_EQ(plan.nextTarget, c.nextTarget);
    EXPECT_NEAR(static_cast<double>(plan.wait.count()), static_cast<double>(c.waitMs), 1.0);
  }
}

TEST(HeartbeatTiming, SecondZeroIsNeverSkippedUnderJitter) {
  // A timer that is up to 400 ms late or early at every firing still beats
  // once in every second, second 0 of each minute included.
  const double jitter[] = {0.4, -0.3, 0.0, 0.35, -0.4, 0.2, 0.1, -0.05};
  TimeInterval now = 59.2, target = 60;
  std::vector<long long> beatSeconds;
  for (int firing = 0; firing < 400 && now < 200; ++firing) {
    const BeatPlan plan = planBeat(now, target);
    if (plan.beatNow) beatSeconds.push_back(static_cast<long long>(std::floor(now)));
    target = plan.nextTarget;
    now += static_cast<double>(plan.wait.count()) / 1000 + jitter[firing % 8];
  }
  for (std::size_t i = 1; i < beatSeconds.size(); ++i) EXPECT_EQ(beatSeconds[i], beatSeconds[i - 1] + 1) << i;
  EXPECT_GE(beatSeconds.size(), 130u);
}

TEST(HeartbeatTimer, FiresJustAfterEachWallClockSecond) {
  testing::ensureApplication();
  SystemClock clock;
  std::vector<TimeInterval> beats, lateness;
  HeartbeatTimer timer(clock, [&](TimeInterval late) {
    beats.push_back(clock.now());
    lateness.push_back(late);
  });
  timer.start();
  ASSERT_TRUE(testing::waitUntil([&] { return beats.size() >= 3; }, std::chrono::seconds(6)));
  timer.stop();
  for (std::size_t i = 0; i < beats.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_LT(beats[i] - std::floor(beats[i]), 0.25);                 // early in its second, never before it
    EXPECT_NEAR(lateness[i], beats[i] - std::floor(beats[i]), 0.01);  // measured against that second
    if (i > 0) {
      EXPECT_EQ(std::floor(beats[i]), std::floor(beats[i - 1]) + 1);
    }
  }
}

}  // namespace
}  // namespace halyard::agent
