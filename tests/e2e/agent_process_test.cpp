// The agent executable on private buses with the real clock: the power
// registration failure, one agent per session, stopping by signal or by a
// quit notification, and a due item handed over at the next whole minute.

#include <gtest/gtest.h>

#include <csignal>
#include <ctime>

#include "agent/agent_test_support.h"
#include "agent/dbus_notification_bus.h"
#include "agent/hand_over.h"
#include "schedule/scheduled_item.h"

namespace halyard::agent::testing {
namespace {

class AgentProcessTest : public ::testing::Test {
 protected:
  AgentProcessTest() { ensureApplication(); }
  // The agent's files in the temporary folder; its zone is UTC whatever the host's.
  TestProcess::Environment environment() const {
    return {{"XDG_DATA_HOME", home_.path() + "/data"}, {"XDG_CONFIG_HOME", home_.path() + "/config"}, {"TZ", "UTC"}};
  }
  std::unique_ptr<TestProcess> startAgent() {
    auto agent = std::make_unique<TestProcess>(backgrounderPath(), std::vector<std::string>{"--log-stderr"},
                                               session_.address(), system_.address(), environment());
    EXPECT_TRUE(agent->waitForOutput("Halyard Backgrounder v4.0.5 is running."));
    return agent;
  }
  std::unique_ptr<TestProcess> startLogind() {
    auto logind = std::make_unique<TestProcess>("/usr/bin/python3", std::vector<std::string>{fakeLogindPath()},
                                                session_.address(), system_.address());
    EXPECT_TRUE(logind->waitForOutput("ready"));
    return logind;
  }

  QTemporaryDir home_;
  PrivateBus session_;
  PrivateBus system_{"system"};
};

TEST_F(AgentProcessTest, WithoutASystemBusTheRegistrationFailsWithStatus1) {
  TestProcess agent(backgrounderPath(), {}, session_.address(), {}, environment());
  ASSERT_TRUE(agent.waitForExit());
  EXPECT_EQ(agent.process().exitCode(), 1);
  EXPECT_EQ(agent.output(), "IORegisterForSystemPower failed\n");
}

TEST_F(AgentProcessTest, ASecondAgentLeavesTheFirstAlone) {
  auto logind = startLogind();
  auto first = startAgent();
  TestProcess second(backgrounderPath(), {}, session_.address(), system_.address(), environment());
  ASSERT_TRUE(second.waitForExit());
  EXPECT_EQ(second.process().exitCode(), 0);
  EXPECT_NE(second.output().find("another agent already runs"), std::string::npos);
  EXPECT_EQ(first->process().state(), QProcess::Running);
}

TEST_F(AgentProcessTest, StoppingEndsThroughTheWillTerminatePath) {
  struct Case {
    const char* name;
    int signal;  // 0: a "VTHalyardBackgrounderShouldQuit" notification
  } cases[] = {{"SIGTERM", SIGTERM}, {"SIGINT", SIGINT}, {"quit notification", 0}};
  auto logind = startLogind();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto agent = startAgent();
    if (c.signal) {
      ::kill(static_cast<pid_t>(agent->process().processId()), c.signal);
    } else {
      TestProcess notify(halyardctlPath(), {"notify", "VTHalyardBackgrounderShouldQuit"}, session_.address());
      ASSERT_TRUE(notify.waitForExit());
    }
    ASSERT_TRUE(agent->waitForExit());
    EXPECT_EQ(agent->process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(agent->process().exitCode(), 0);
    EXPECT_NE(agent->output().find("Halyard Backgrounder v4.0.5 has terminated."), std::string::npos);
  }
}

TEST_F(AgentProcessTest, ADueItemReachesTheRunningApplicationAtTheNextMinute) {
  auto logind = startLogind();
  TestProcess app(halyardctlPath(), {"serve-app"}, session_.address());
  ASSERT_TRUE(app.waitForOutput("running as"));
  // An item at the next whole minute (UTC); a minute boundary at most away.
  std::time_t now = std::time(nullptr);
  if (now % 60 >= 58) now += 60;  // too close to the boundary to write the file in time
  const std::time_t due = now - now % 60 + 60;
  std::tm utc{};
  gmtime_r(&due, &utc);
  TestProcess add(halyardctlPath(),
                  {"schedule", "add", "--description", "next-minute", "--document", "/tmp/next-minute.hsync", "--type",
                   "4", "--hours", std::to_string(utc.tm_hour), "--minutes", std::to_string(utc.tm_min)},
                  session_.address(), {}, environment());
  ASSERT_TRUE(add.waitForExit());
  ASSERT_EQ(add.process().exitCode(), 0) << add.output();
  auto agent = startAgent();
  ASSERT_TRUE(app.waitForOutput("item \"next-minute\"", std::chrono::seconds(125)));
  const double late = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count() -
                     static_cast<double>(due);
  EXPECT_GE(late, 0.0);
  EXPECT_LT(late, 1.0);  // within the due second
}

TEST_F(AgentProcessTest, WatchShowsNotificationsWithHandOversDecoded) {
  TestProcess watch(halyardctlPath(), {"watch", "--count", "2"}, session_.address());
  ASSERT_TRUE(watch.waitForOutput("watching"));
  TestProcess notify(halyardctlPath(), {"notify", "com.vantrel.halyard.scheduler_state_changed", "--state", "false"},
                     session_.address());
  ASSERT_TRUE(notify.waitForExit());
  QDBusConnection connection = session_.connect("poster");
  {
    DBusNotificationBus bus(connection);
    bus.post("VTHalyardAddScheduledItems", handOverUserInfo({makeItem("shown", 9, 0)}));
    ASSERT_TRUE(watch.waitForExit());
  }
  QDBusConnection::disconnectFromBus("poster");
  const std::string output = watch.output();
  EXPECT_NE(output.find("com.vantrel.halyard.scheduler_state_changed state=false\n"), std::string::npos) << output;
  EXPECT_NE(output.find("1 scheduled item(s)\n  item \"shown\""), std::string::npos) << output;
}

}  // namespace
}  // namespace halyard::agent::testing
