// The wake tool's handling of requests against a file standing for the RTC.

#include "helper/wake_tool.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "helper/wake_request.h"
#include "wake_files.h"

namespace halyard::wake {
namespace {

constexpr std::int64_t kNow = 1'790'000'000;  // 2026-09-21

std::string scheduleAt(std::int64_t when) { return writeWakeRequest({Command::SchedulePowerOn, when}); }
std::string cancel() { return writeWakeRequest({Command::CancelOwnEvents, 0}); }

TEST(WakeTool, SchedulesThenCancelsItsOwnAlarm) {
  FakeRtc rtc;
  ASSERT_EQ(handleWakeRequest(scheduleAt(kNow + 600), kNow, rtc.files()), 0);
  EXPECT_EQ(rtc.alarmText(), std::to_string(kNow + 600) + "\n");
  EXPECT_TRUE(rtc.hasRecord());
  // A second schedule replaces the tool's own pending alarm.
  ASSERT_EQ(handleWakeRequest(scheduleAt(kNow + 900), kNow, rtc.files()), 0);
  EXPECT_EQ(rtc.alarmText(), std::to_string(kNow + 900) + "\n");
  ASSERT_EQ(handleWakeRequest(cancel(), kNow, rtc.files()), 0);
  EXPECT_EQ(rtc.alarmText(), "0\n");
  EXPECT_FALSE(rtc.hasRecord());
}

TEST(WakeTool, LeavesAnAlarmSetBySomeoneElse) {
  FakeRtc rtc;
  const std::string theirs = std::to_string(kNow + 5000) + "\n";
  rtc.setAlarmText(theirs);
  EXPECT_EQ(handleWakeRequest(cancel(), kNow, rtc.files()), 0);
  EXPECT_EQ(handleWakeRequest(scheduleAt(kNow + 600), kNow, rtc.files()), EBUSY);
  EXPECT_EQ(rtc.alarmText(), theirs);
  // Ours was replaced by someone else's after we set it: cancel keeps theirs.
  FakeRtc replaced;
  ASSERT_EQ(handleWakeRequest(scheduleAt(kNow + 600), kNow, replaced.files()), 0);
  replaced.setAlarmText(theirs);
  EXPECT_EQ(handleWakeRequest(cancel(), kNow, replaced.files()), 0);
  EXPECT_EQ(replaced.alarmText(), theirs);
}

// Two runs at once, as two users' agents going to sleep together: the alarm
// left is the one recorded, so the next cancel clears it.
TEST(WakeTool, RunsAtOnceLeaveNoAlarmThatACancelMisses) {
  FakeRtc rtc;
  for (int round = 0; round < 200; ++round) {
    std::thread first([&] { handleWakeRequest(scheduleAt(kNow + 600 + round), kNow, rtc.files()); });
    std::thread second([&] { handleWakeRequest(scheduleAt(kNow + 1200 + round), kNow, rtc.files()); });
    first.join();
    second.join();
    ASSERT_EQ(handleWakeRequest(cancel(), kNow, rtc.files()), 0);
    ASSERT_EQ(rtc.alarmText(), "0\n") << "round " << round;
  }
}

std::string withKeys(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" + body + "</dict>\n</plist>\n";
}

TEST(WakeTool, RefusesWithAnErrorNumberAndWritesNothing) {
  const std::string date = "<key>PowerEventDate</key><date>2026-09-21T12:00:00Z</date>";
  std::string bomb = "bplist00";
  bomb.append(200, '\xdf');  // dictionaries nested far beyond any request
  const struct {
    const char* name;
    std::string input;
    int error;
  } cases[] = {
      {"unknown command", withKeys("<key>CommandName</key><string>RemoveAllFiles</string>"), EINVAL},
      {"date in the past", scheduleAt(kNow - 10), ERANGE},
      {"date under 30 s ahead", scheduleAt(kNow + 29), ERANGE},
      {"date beyond a year", scheduleAt(kNow + 367LL * 86400), ERANGE},
      {"garbage", "\x01\x02<plist><dict><key>", EINVAL},
      {"binary plist bomb", bomb, EINVAL},
      {"10 MB of input", std::string(10 * 1024 * 1024, ' '), E2BIG},
      {"extra key on cancel",
       withKeys("<key>CommandName</key><string>CancelMultipleScheduledPowerEvents</string>" + date), EINVAL},
      {"extra key on schedule",
       withKeys("<key>CommandName</key><string>SchedulePowerEvent</string>" + date +
                "<key>Path</key><string>/etc/shadow</string>"),
       EINVAL},
      {"nested dictionary", withKeys("<key>CommandName</key><dict></dict>"), EINVAL},
      {"date missing", withKeys("<key>CommandName</key><string>SchedulePowerEvent</string>"), EINVAL},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FakeRtc rtc;
    EXPECT_EQ(handleWakeRequest(c.input, kNow, rtc.files()), c.error);
    EXPECT_EQ(rtc.alarmText(), "");
    EXPECT_FALSE(rtc.hasRecord());
  }
}

}  // namespace
}  // namespace halyard::wake
