// The agent's measurements of itself and `halyardctl status`, which reads
// them over the session bus.

#include "agent/status_service.h"
#include "agent/timings.h"
#include "daemon_fixture.h"
#include "recording_wake_tool.h"

namespace halyard::agent::testing {
namespace {

TEST(TimingSeries, WorstAndMedianOverTheLastHour) {
  struct Case {
    const char* name;
    std::vector<std::pair<TimeInterval, TimeInterval>> samples;  // (at, seconds)
    TimeInterval now;
    std::optional<TimeInterval> worst, median;
  } cases[] = {
      {"nothing measured", {}, 100, std::nullopt, std::nullopt},
      {"odd count", {{1, 0.3}, {2, 0.1}, {3, 0.2}}, 3, 0.3, 0.2},
      {"an old outlier has left the window", {{0, 9.0}, {3000, 0.1}, {3700, 0.2}}, 3700, 0.2, 0.2},
      {"asked later: the old samples no longer count", {{10, 0.5}, {20, 0.1}}, 3615, 0.1, 0.1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TimingSeries series;
    for (const auto& [at, seconds] : c.samples) series.record(at, seconds);
    EXPECT_EQ(series.worst(c.now), c.worst);
    EXPECT_EQ(series.median(c.now), c.median);
  }
}

class StatusTest : public DaemonFixture {
 protected:
  // What `halyardctl status` prints of the daemon.
  std::string statusOutput() {
    StatusService service([this] { return daemon_->status(); });
    EXPECT_TRUE(service.exportOn(agentConnection_));
    EXPECT_TRUE(agentConnection_.registerService(kAgentBusName));
    TestProcess status(halyardctlPath(), {"status"}, bus_.address(), {}, {{"TZ", "Europe/Berlin"}});
    EXPECT_TRUE(status.waitForExit());
    EXPECT_EQ(status.process().exitCode(), 0) << status.output();
    agentConnection_.unregisterService(kAgentBusName);
    agentConnection_.unregisterObject(kAgentObjectPath);
    return status.output();
  }
};

TEST_F(StatusTest, HalyardctlStatusPrintsWhatTheAgentMeasured) {
  writeSchedule(path("ScheduleData.sched"), {makeItem("a", 9, 0), makeItem("b", 10, 0)});
  clock_.setCivil(2026, 3, 4, 10, 0, 30);
  makeDaemon();
  beatAt(10, 1, 0, 0.25);  // a new check, a quarter of a second late
  beatAt(10, 1, 1, 0.05);
  beatAt(10, 1, 2, 0.15);
  const std::string output = statusOutput();
  for (const std::string& line :
       {std::string("Halyard Backgrounder 4.0.5, up 0d 00:00:32\n"), std::string("scheduler: active\n"),
        "schedule: " + path("ScheduleData.sched") + " (2 item(s))\n",
        std::string("last check: new at 2026-03-04 10:01:00.250 +0100\n"),
        std::string("beat lateness, last hour: worst 250.0 ms, median 150.0 ms\n"),
        std::string("check time, last hour: worst 0.0 ms, median 0.0 ms\n"), std::string("wake-to-sync: off\n")}) {
    EXPECT_NE(output.find(line), std::string::npos) << line << "in:\n" << output;
  }
}

TEST_F(StatusTest, StatusTellsWhetherWakeToSyncIsOnOrTheRtcCannotWake) {
  const struct {
    const char* name;
    int answer;
    std::string line;
  } cases[] = {{"the RTC wakes", 0, "wake-to-sync: on\n"},
               {"no RTC", ENOENT, "wake-to-sync: off: the RTC cannot wake this machine (No such file or directory)\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto tool = std::make_shared<RecordingWakeTool>();
    tool->letAnswer(c.answer);
    wakeTool_ = tool;
    preferences_->setBool(prefs::kWakeSystemToSynch, true);
    makeDaemon();
    daemon_->systemHasPoweredOn();  // the cancel after waking hears the tool's answer
    ASSERT_TRUE(waitUntil([&] { return tool->requests().size() == 1 && daemon_->pendingWakeRequests() == 0; }));
    const std::string output = statusOutput();
    EXPECT_NE(output.find(c.line), std::string::npos) << output;
  }
}

TEST_F(StatusTest, WithoutAnAgentStatusSaysSoAndFails) {
  TestProcess status(halyardctlPath(), {"status"}, bus_.address());
  ASSERT_TRUE(status.waitForExit());
  EXPECT_EQ(status.process().exitCode(), 1);
  EXPECT_NE(status.output().find("the agent does not answer"), std::string::npos) << status.output();
}

}  // namespace
}  // namespace halyard::agent::testing
