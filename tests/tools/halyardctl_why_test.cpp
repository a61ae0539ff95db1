// `halyardctl why` and `schedule next` as a user asks them about the items
// people trip over: the default weekday item, an inactive one, a suspended
// scheduler, a volume-mount item, a minute that daylight saving time skips
// or repeats.

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

#include "fileservices/test_folder.h"
#include "halyardctl_run.h"

namespace halyard {
namespace {

using fileservices::TestFolder;
using namespace halyard::testing;

class HalyardctlWhyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    run({"schedule", "add", "--description", "new item"});
    run({"schedule", "add", "--description", "off", "--type", "4", "--inactive"});
    run({"schedule", "add", "--description", "on mount", "--type", "6"});
    run({"schedule", "add", "--description", "2 am", "--type", "4", "--hours", "2", "--minutes", "*"});
  }

  // Standard output of a command that must succeed quietly.
  std::string run(const std::vector<std::string>& args) const {
    const std::string data = "XDG_DATA_HOME=" + folder_.root(), config = "XDG_CONFIG_HOME=" + folder_.root();
    const ChildRun run = halyardctl(args, {"TZ=America/New_York", kResourceDir, data, config});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    return run.out;
  }
  std::string run(const char* line) const {
    std::istringstream in(line);
    return run(std::vector<std::string>(std::istream_iterator<std::string>(in), {}));
  }
  // The last line of `why`: the verdict at the moment.
  std::string verdict(const std::string& args) const {
    const std::string out = run(("why " + args).c_str());
    return out.substr(out.rfind('\n', out.size() - 2) + 1);
  }

  TestFolder folder_;
};

TEST_F(HalyardctlWhyTest, NamesTheRuleThatDecides) {
  const std::pair<std::string, std::string> cases[] = {
      {"1 --at 2026-03-04T09:00",
       "at 2026-03-04 09:00:00 -0500: handed over: the minute check hands it over (type 5: minute, hour, month and "
       "day of week selected)\n"},
      {"1 --at 2026-03-04T09:01", "at 2026-03-04 09:01:00 -0500: not handed over: minute 1 is not selected\n"},
      {"1 --at 2026-03-04T21:00", "at 2026-03-04 21:00:00 -0500: not handed over: hour 21 is not selected\n"},
      {"1 --at 2026-03-07T09:00", "at 2026-03-07 09:00:00 -0500: not handed over: Saturday is not selected\n"},
      {"2 --at 2026-03-04T09:00", "at 2026-03-04 09:00:00 -0500: not handed over: the item is inactive\n"},
      {"3 --at 2026-03-04T09:00",
       "at 2026-03-04 09:00:00 -0500: not handed over: a volume-mount item (type 6) runs when a target volume is "
       "mounted, never by the minute; neither mount trigger is set, so it never runs\n"},
      {"4 --at 2026-03-08T02:30",
       "at 2026-03-08T02:30, a wall time that does not occur here: not handed over: that minute does not occur: the "
       "zone's clocks skip it\n"},
      {"4 --at 2026-11-01T02:30",
       "at 2026-11-01 02:30:00 -0500: handed over: the minute check hands it over (type 4: "
       "minute, hour and month selected, every day)\n"},
  };
  for (const auto& [args, expected] : cases) {
    SCOPED_TRACE(args);
    EXPECT_EQ(verdict(args), expected);
  }
  const std::string whole = run("why 1 --at 2026-03-04T09:00");
  EXPECT_NE(whole.find("item 1 \"new item\", type 5\nlast hand-over: "), std::string::npos) << whole;
  EXPECT_NE(whole.find("\nnext hand-over: "), std::string::npos) << whole;
  EXPECT_EQ(whole.find("never"), std::string::npos) << whole;
}

// The hour that autumn repeats runs at both passes, or in the exactly-once
// mode at its first pass only; `schedule next` lists what the mode runs.
TEST_F(HalyardctlWhyTest, ARepeatedHourRunsTwiceOrInTheExactlyOnceModeOnce) {
  run("schedule add --description 1am --type 4 --hours 1 --minutes 30");
  const std::string rule =
      "handed over: the minute check hands it over (type 4: minute, hour and month selected, "
      "every day); this minute occurs twice that night, and ";
  EXPECT_EQ(verdict("5 --at 2026-11-01T01:30-05:00"), "at 2026-11-01 01:30:00 -0500: " + rule + "it runs at both\n");
  run({"schedule", "add", "--description", "starts between", "--type", "3", "--hours", "1", "--minutes", "30",
       "--start-date", "2026-11-01 01:45"});
  EXPECT_EQ(verdict("6 --at 2026-11-01T01:30-05:00"),
            "at 2026-11-01 01:30:00 -0500: handed over: the minute check hands it over (type 3: minute, hour and "
            "month selected, after the start date); this minute occurs twice that night, and it runs at this second "
            "pass only: the first comes before its start date\n");
  run("config exactly-once on");
  EXPECT_EQ(verdict("5 --at 2026-11-01T01:30-04:00"),
            "at 2026-11-01 01:30:00 -0400: " + rule + "the exactly-once mode hands it over at this first pass only\n");
  EXPECT_EQ(verdict("5 --at 2026-11-01T01:30-05:00"),
            "at 2026-11-01 01:30:00 -0500: not handed over: this minute occurs twice that night, and the exactly-once "
            "mode hands it over at its first pass only, an hour earlier\n");
}

TEST_F(HalyardctlWhyTest, ASuspendedSchedulerIsTheFirstRule) {
  folder_.writeFile("vantrel/halyard.conf", "[General]\nSchedulerActivePrefKey=false\n");
  EXPECT_EQ(
      verdict("1 --at 2026-03-04T09:00"),
      "at 2026-03-04 09:00:00 -0500: not handed over: the scheduler is suspended: no check hands anything over\n");
  EXPECT_EQ(run("schedule next 3"),
            "never\na run missed during a sleep: not caught up, a volume-mount item runs only when its volume is "
            "mounted\n");
}

}  // namespace
}  // namespace halyard
