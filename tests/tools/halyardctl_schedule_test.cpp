// `halyardctl schedule` as a user runs it: the built binary on a scratch
// schedule file, in a fixed time zone. What it writes is what the agent's
// reader reads, and a failed command leaves the file as it was.

#include <algorithm>
#include <regex>

#include <gtest/gtest.h>

#include "fileservices/test_folder.h"
#include "foundation/file_io.h"
#include "halyardctl_run.h"
#include "schedule/schedule_file.h"

namespace halyard {
namespace {

using fileservices::TestFolder;
using namespace halyard::testing;

class HalyardctlScheduleTest : public ::testing::Test {
 protected:
  ChildRun run(std::vector<std::string> args) const {
    args.insert(args.begin(), "schedule");
    return halyardctl(args, {"TZ=Europe/Berlin", kResourceDir, "XDG_DATA_HOME=" + folder_.root()});
  }

  // Adds an item to the scratch file.
  void add(std::vector<std::string> args) const {
    args.insert(args.begin(), {"add", "--file", file_});
    const ChildRun added = run(args);
    ASSERT_EQ(added.status, 0) << added.err;
  }

  TestFolder folder_;
  const std::string file_ = folder_.path("ScheduleData.sched");
};

TEST_F(HalyardctlScheduleTest, AddThenListThenDumpAgreeAndTheAgentReadsIt) {
  add({"--description", "Photos to the NAS", "--minutes", "0,30", "--hours", "9-17", "--days-of-week", "mon-fri",
       "--days-of-month", "1,15", "--months", "jan-mar", "--type", "7", "--start-date", "2024-01-02 08:00",
       "--inactive"});
  const ChildRun listed = run({"list", "--json", "--file", file_});
  ASSERT_EQ(listed.status, 0) << listed.err;
  const ChildRun dump = halyardctl({"dump", file_});
  ASSERT_EQ(dump.status, 0) << dump.err;
  const std::string minutes = "1" + std::string(29, '0') + "1" + std::string(29, '0');
  const std::string hours = std::string(9, '0') + std::string(9, '1') + std::string(6, '0');
  const std::string daysOfMonth = "1" + std::string(13, '0') + "1" + std::string(16, '0');
  const std::pair<std::string, std::string> fields[] = {
      {"\"description\": \"Photos to the NAS\"", "\"descriptionkey\": \"Photos to the NAS\""},
      {"\"scheduleType\": 7", "\"scheduleTypekey\": 7"},
      {"\"active\": false", "\"activekey\": false"},
      {"\"minutes\": \"" + minutes + "\"", "\"scheduledMinuteskey\": \"" + minutes + "\""},
      {"\"hours\": \"" + hours + "\"", "\"scheduledHourskey\": \"" + hours + "\""},
      {"\"daysOfWeek\": \"0111110\"", "\"scheduledDaysOfWeekkey\": \"0111110\""},
      {"\"daysOfMonth\": \"" + daysOfMonth + "\"", "\"scheduledDaysOfMonthkey\": \"" + daysOfMonth + "\""},
      {"\"months\": \"111000000000\"", "\"scheduledMonthskey\": \"111000000000\""},
      {"\"startDate\": \"2024-01-02 08:00:00 +0100\"", "\"utc\": \"2024-01-02 07:00:00 +0000\""},
  };
  for (const auto& [inList, inDump] : fields) {
    EXPECT_NE(listed.out.find(inList), std::string::npos) << inList << "\n" << listed.out;
    EXPECT_NE(dump.out.find(inDump), std::string::npos) << inDump;
  }

  auto items = readScheduleItems(file_);
  ASSERT_TRUE(items);
  ASSERT_EQ(items->size(), 1u);
  EXPECT_EQ(*(*items)[0]->scheduledMinutes(), minutes);
  EXPECT_EQ((*items)[0]->startDate()->seconds, 725871600.0);
  EXPECT_FALSE((*items)[0]->active());
}

TEST_F(HalyardctlScheduleTest, DefaultFileIsInTheUsersDataFolder) {
  ASSERT_EQ(run({"add", "--days-of-month", "*"}).status, 0);
  auto items = readScheduleItems(folder_.path("Halyard/ScheduleData.sched"));
  ASSERT_TRUE(items);
  EXPECT_TRUE((*items)[0]->everyDayOfMonthIsSelected());
}

TEST_F(HalyardctlScheduleTest, BadInputGivesOneLineAndLeavesTheFileAlone) {
  add({});
  const std::string before = readWholeFile(file_).value();
  // One bad set value stands for all: their messages are the parser's own
  // table tests (selection_set_text_test.cpp).
  const std::vector<std::string> cases[] = {
      {"edit", "1", "--minutes", "75"},
      {"edit", "1", "--start-date", "yesterday"},
      {"edit", "1", "--type", "12"},
      {"edit", "1", "--minutes"},
      {"edit", "2", "--active"},
      {"remove", "0"},
      {"show", "one"},
      {"list", "--hours", "5"},
      {"frobnicate"},
      {"show", "1", "--file", folder_.path("absent.sched")},
  };
  for (const auto& args : cases) {
    SCOPED_TRACE(args[0] + " " + (args.size() > 1 ? args[1] + " " + args.back() : ""));
    std::vector<std::string> withFile = args;
    if (withFile.back() != folder_.path("absent.sched")) withFile.insert(withFile.end(), {"--file", file_});
    const ChildRun result = run(withFile);
    EXPECT_NE(result.status, 0);
    EXPECT_TRUE(result.out.empty()) << result.out;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(readWholeFile(file_).value(), before);
  }
  ASSERT_TRUE(writeFileAtomically(file_, "not a schedule"));
  EXPECT_EQ(run({"add", "--file", file_}).status, 1);
  EXPECT_EQ(readWholeFile(file_).value(), "not a schedule");
}

TEST_F(HalyardctlScheduleTest, NextListsComingRunsAndNeverForAPatternThatCannotMatch) {
  add({"--description", "hourly", "--type", "3", "--start-date", "2100-01-01 00:00", "--hours", "*", "--days-of-month",
       "*", "--days-of-week", "*"});
  add({"--description", "30 Feb", "--type", "7", "--months", "feb", "--days-of-month", "30", "--days-of-week", "*"});
  const ChildRun all = run({"next", "--file", file_, "--count", "2"});
  EXPECT_EQ(all.out,
            "2100-01-01 00:00:00 +0100  1. hourly\n"
            "2100-01-01 01:00:00 +0100  1. hourly\n");
  EXPECT_EQ(run({"next", "2", "--file", file_}).out, "never\n");
  const ChildRun json = run({"next", "1", "--count", "1", "--json", "--file", file_});
  EXPECT_NE(json.out.find("\"date\": \"2100-01-01 00:00:00 +0100\""), std::string::npos) << json.out;
}

// What the agent's minute check will do, whatever the run dates say: a new
// item (weekdays, no day of month) runs, though a run it missed during a
// sleep is not caught up.
TEST_F(HalyardctlScheduleTest, NextAnswersByTheMinuteCheckAndSaysWhetherASleepIsCaughtUp) {
  add({"--description", "new item"});
  add({"--description", "switched off", "--type", "4", "--inactive"});
  const ChildRun weekdays = run({"next", "1", "--count", "3", "--file", file_});
  ASSERT_EQ(weekdays.status, 0) << weekdays.err;
  // Three runs at hours 8 to 20, minute 0, then what a sleep does.
  const std::regex expected(
      R"(([0-9-]{10} (0[89]|1[0-9]|20):00:00 \+0[12]00  1\. new item\n){3})"
      "a run missed during a sleep: not caught up, no day of month is selected, and the missed check needs one in "
      "every set\n");
  EXPECT_TRUE(std::regex_match(weekdays.out, expected)) << weekdays.out;
  EXPECT_EQ(run({"next", "2", "--file", file_}).out,
            "never\na run missed during a sleep: not caught up, the item is inactive\n");
}

// The minute check runs a daily item on every day; the missed check, by the
// run dates, looks back no further than the start date and, with one day set
// full, takes only the days both sets select.
TEST_F(HalyardctlScheduleTest, NextSaysWhichOfItsRunsASleepWouldCatchUp) {
  const std::vector<std::string> daily = {"--type", "4", "--hours", "3", "--minutes", "0", "--days-of-month", "*"};
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--start-date", "2100-01-01 00:00", "--days-of-week", "*"},
       "a run missed during a sleep: not caught up, the missed check looks back no further than the start date, "
       "2100-01-01 00:00:00 +0100\n"},
      {{"--days-of-week", "sun"},
       " and 5 more of the runs above: the missed check takes a day only when both its day of week and its day of "
       "month are selected\n"},
      {{"--days-of-week", "*"}, "a run missed during a sleep: caught up at the wake\n"},
  };
  std::size_t index = 0;
  for (const auto& [options, line] : cases) {
    SCOPED_TRACE(line);
    std::vector<std::string> args = daily;
    args.insert(args.end(), options.begin(), options.end());
    add(args);
    const std::string out = run({"next", std::to_string(++index), "--count", "7", "--file", file_}).out;
    ASSERT_GE(out.size(), line.size()) << out;
    EXPECT_EQ(out.substr(out.size() - line.size()), line) << out;
  }
}

TEST_F(HalyardctlScheduleTest, ImportedItemsExportAsTheyWereWritten) {
  const std::string items = R"([
  {"description": "Weekdays", "active": true, "scheduleType": 5, "start": "2026-03-04T09:30:00.250+01:00",
   "months": "111111111111", "daysOfMonth": "0000000000000000000000000000000", "daysOfWeek": "0111110",
   "hours": "000000001111111111111000", "minutes": "100000000000000000000000000000100000000000000000000000000000"},
  {"description": "Odd type", "active": false, "scheduleType": 9, "start": "2026-07-01T00:00:00Z",
   "months": "000000000001", "daysOfMonth": "1111111111111111111111111111111", "daysOfWeek": "1111111",
   "hours": "100000000000000000000000", "minutes": "000000000000000000000000000000000000000000000000000000000001"}
])";
  const ChildRun imported = run({"import", folder_.writeFile("items.json", items), "--file", file_});
  ASSERT_EQ(imported.status, 0) << imported.err;
  EXPECT_EQ(imported.out, "imported 2 items\n");
  const ChildRun exported = run({"export", "--json", "--file", file_});
  ASSERT_EQ(exported.status, 0) << exported.err;
  for (const char* field :
       {"\"start\": \"2026-03-04T09:30:00.250+01:00\"", "\"start\": \"2026-07-01T02:00:00.000+02:00\"",
        "\"scheduleType\": 9", "\"active\": false", "\"daysOfWeek\": \"0111110\"", "\"description\": \"Weekdays\""}) {
    EXPECT_NE(exported.out.find(field), std::string::npos) << field << "\n" << exported.out;
  }
  // What export writes, import reads back to the same items.
  const std::string second = folder_.path("second.sched");
  ASSERT_EQ(run({"import", folder_.writeFile("again.json", exported.out), "--file", second}).status, 0);
  EXPECT_EQ(run({"export", "--json", "--file", second}).out, exported.out);
}

TEST_F(HalyardctlScheduleTest, ABadImportNamesTheItemAndFieldAndChangesNothing) {
  add({"--description", "kept"});
  const std::string before = readWholeFile(file_).value();
  const std::string good = R"("months": "111111111111")";
  struct Case {
    const char* name;
    std::string json;
    std::string message;
  } cases[] = {
      {"a set too short", "[{" + good + "}, {\"months\": \"11111111111\"}]",
       "item 2 field \"months\" has 11 characters, not 12"},
      {"a set with another character", R"([{"hours": "00000000111111111111100x"}])",
       "item 1 field \"hours\" holds a character other than"},
      {"a fractional type", R"([{"scheduleType": 4.5}])", "item 1 field \"scheduleType\" is not a whole number"},
      {"a start that is no time", R"([{"start": "yesterday"}])", "item 1 field \"start\" 'yesterday' is not an ISO"},
      {"a wrong kind", R"([{"active": "yes"}])", "item 1 field \"active\" is a string, not a boolean"},
      {"an unknown field", R"([{"colour": "red"}])", "item 1 field \"colour\" is not a field of an item"},
      {"not a list", R"({"months": "1"})", "the schedule is an object, not a list of items"},
      {"not JSON", R"([{"months": )", "not JSON: unexpected end"},
      {"nested too deep", std::string(200, '[') + std::string(200, ']'), "not JSON: nesting deeper than 64"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const ChildRun outcome = run({"import", folder_.writeFile("bad.json", c.json), "--file", file_});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find(c.message), std::string::npos) << outcome.err;
    EXPECT_EQ(readWholeFile(file_).value(), before);
  }
}

}  // namespace
}  // namespace halyard
