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

constexpr unsigned kUser = 1000, kOtherUser = 1001;

std::string scheduleAt(std::int64_t when) { return writeWakeRequest({Command::SchedulePowerOn, when}); }
std::string cancel() { return writeWakeRequest({Command::CancelOwnEvents, 0}); }

TEST(WakeTool, SchedulesThenCancelsItsOwnAlarm) {
  FakeRtc rtc;
  ASSERT_EQ(handleWakeRequest(scheduleAt(kNow + 600), kNow, rtc.files(), kUser), 0);
  EXPECT_EQ(rtc.alarmText(), std::to_string(kNow + 600) + "\n");
  EXPECT_TRUE(rtc.hasRecord(kUser));
  // A second schedule replaces the tool's own pending alarm.
  ASSERT_EQ(handleWakeRequest(scheduleAt(kNow + 900), kNow, rtc.files(), kUser), 0);
  EXPECT_EQ(rtc.alarmText(), std::to_string(kNow + 900) + "\n");
  ASSERT_EQ(handleWakeRequest(cancel(), kNow, rtc.files(), kUser), 0);
  EXPECT_EQ(rtc.alarmText(), "0\n");
  EXPECT_FALSE(rtc.hasRecord(kUser));
}

TEST(WakeTool, LeavesAnAlarmSetBySomeoneElse) {
  FakeRtc rtc;
  const std::string theirs = std::to_string(kNow + 5000) + "\n";
  rtc.setAlarmText(theirs);
  EXPECT_EQ(handleWakeRequest(cancel(), kNow, rtc.files(), kUser), 0);
  EXPECT_EQ(handleWakeRequest(scheduleAt(kNow + 600), kNow, rtc.files(), kUser), EBUSY);
  EXPECT_EQ(rtc.alarmText(), theirs);
  // Ours was replaced by someone else's after we set it: cancel keeps theirs.
  FakeRtc replaced;
  ASSERT_EQ(handleWakeRequest(scheduleAt(kNow + 600), kNow, replaced.files(), kUser), 0);
  replaced.setAlarmText(theirs);
  EXPECT_EQ(handleWakeRequest(cancel(), kNow, replaced.files(), kUser), 0);
  EXPECT_EQ(replaced.alarmText(), theirs);
}

// Two runs at once: the alarm left is the one recorded, so the next cancel
// clears it.
TEST(WakeTool, RunsAtOnceLeaveNoAlarmThatACancelMisses) {
  FakeRtc rtc;
  for (int round = 0; round < 200; ++round) {
    std::thread first([&] { handleWakeRequest(scheduleAt(kNow + 600 + round), kNow, rtc.files(), kUser); });
    std::thread second([&] { handleWakeRequest(scheduleAt(kNow + 1200 + round), kNow, rtc.files(), kUser); });
    first.join();
    second.join();
    ASSERT_EQ(handleWakeRequest(cancel(), kNow, rtc.files(), kUser), 0);
    ASSERT_EQ(rtc.alarmText(), "0\n") << "round " << round;
  }
}

// Two users' wakes: the alarm is the earlier of them, and each cancel takes
// back only the caller's.
TEST(WakeTool, TheEarliestWakeOfAnyUserHoldsTheAlarm) {
  for (const bool laterFirst : {false, true}) {
    SCOPED_TRACE(laterFirst ? "the later wake scheduled first" : "the earlier wake scheduled first");
    FakeRtc rtc;
    const std::int64_t early = kNow + 600, late = kNow + 1200;
    const std::pair<unsigned, std::int64_t> requests[] = {{kUser, laterFirst ? late : early},
                                                          {kOtherUser, laterFirst ? early : late}};
    for (const auto& [uid, when] : requests) ASSERT_EQ(handleWakeRequest(scheduleAt(when), kNow, rtc.files(), uid), 0);
    EXPECT_EQ(rtc.alarmText(), std::to_string(early) + "\n");
    const unsigned earlyUser = laterFirst ? kOtherUser : kUser, lateUser = laterFirst ? kUser : kOtherUser;
    ASSERT_EQ(handleWakeRequest(cancel(), kNow, rtc.files(), earlyUser), 0);
    EXPECT_EQ(rtc.alarmText(), std::to_string(late) + "\n");
    ASSERT_EQ(handleWakeRequest(cancel(), kNow, rtc.files(), lateUser), 0);
    EXPECT_EQ(rtc.alarmText(), "0\n");
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
    EXPECT_EQ(handleWakeRequest(c.input, kNow, rtc.files(), kUser), c.error);
    EXPECT_EQ(rtc.alarmText(), "");
    EXPECT_FALSE(rtc.hasRecord(kUser));
  }
}

}  // namespace
}  // namespace halyard::wake
