// `halyardctl simulate` as a user runs it: the built binary, a schedule in
// item form and events from files, one JSON line per hand-over; bad input
// exits with status 2 and names what is wrong.

#include <gtest/gtest.h>

#include <sstream>

#include "fileservices/test_folder.h"
#include "halyardctl_run.h"

namespace halyard {
namespace {

using fileservices::TestFolder;
using namespace halyard::testing;

class HalyardctlSimulateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_.writeFile("items.json", R"([
      {"description": "Weekdays at :31", "scheduleType": 5, "start": "2026-01-01T00:00:00-05:00",
       "daysOfWeek": "0111110", "hours": "000000000100000000000000",
       "minutes": "000000000000000000000000000000010000000000000000000000000000"},
      {"description": "Daily \"quoted\" at :33", "scheduleType": 4, "start": null,
       "daysOfMonth": "1111111111111111111111111111111",
       "hours": "000000000100000000000000",
       "minutes": "000000000000000000000000000000000100000000000000000000000000"}])");
  }

  // Exit status and standard output, or standard error when it failed.
  std::pair<int, std::string> simulate(const std::string& args) const {
    std::vector<std::string> argv{"simulate", "--tz", "America/New_York", "--schedule-json", path("items.json")};
    std::istringstream words(args);
    for (std::string word; words >> word;) argv.push_back(word);
    const ChildRun run = halyardctl(argv, {"TZ=UTC", kResourceDir});
    return {run.status, run.status == 0 ? run.out : run.err};
  }

  std::string path(const std::string& name) const { return folder_.path(name); }

  TestFolder folder_;
};

TEST_F(HalyardctlSimulateTest, PrintsEachHandOverAsOneJsonLine) {
  folder_.writeFile("events.jsonl",
                    "{\"at\": \"2026-03-04T09:32:10\", \"event\": \"sleep\", \"until\": \"2026-03-04T09:34:00\"}\n"
                    "\n"
                    "{\"at\": \"2026-03-05T00:00:00-05:00\", \"event\": \"suspend\"}\n");
  const auto [status, out] = simulate("--from 2026-03-04T09:00 --to 2026-03-05T10:00 --events " + path("events.jsonl"));
  EXPECT_EQ(status, 0) << out;
  EXPECT_EQ(out,
            "{\"beat\": \"2026-03-04T09:31:00.050-05:00\", \"mode\": \"new\", \"items\": [\"Weekdays at :31\"]}\n"
            "{\"beat\": \"2026-03-04T09:34:00.050-05:00\", \"mode\": \"missed\", \"items\": [\"Daily \\\"quoted\\\" at "
            ":33\"]}\n");
}

TEST_F(HalyardctlSimulateTest, AllChecksShowTheQuietOnesWithTheGivenFractions) {
  const auto [status, out] = simulate(
      "--from 2026-03-04T09:30:30 --to 2026-03-04T09:32:00.5 --all-checks "
      "--beat-fraction 0.25 --check-cost 0.5");
  EXPECT_EQ(status, 0) << out;
  EXPECT_EQ(out,
            "{\"beat\": \"2026-03-04T09:31:00.250-05:00\", \"mode\": \"new\", \"items\": [\"Weekdays at :31\"]}\n"
            "{\"beat\": \"2026-03-04T09:32:00.250-05:00\", \"mode\": \"new\", \"items\": []}\n");
}

TEST_F(HalyardctlSimulateTest, BadInputExitsWithStatusTwoAndSaysWhy) {
  const std::string period = "--from 2026-03-04T09:00 --to 2026-03-04T10:00 ";
  folder_.writeFile("overlap.jsonl",
                    "{\"at\": \"2026-03-04T09:10:00\", \"event\": \"sleep\", \"until\": \"2026-03-04T09:20:00\"}\n"
                    "{\"at\": \"2026-03-04T09:15:00\", \"event\": \"resume\"}\n");
  folder_.writeFile("unknown.jsonl", "{\"at\": \"2026-03-04T09:10:00\", \"event\": \"nap\"}\n");
  folder_.writeFile("bad.json", R"([{"minutes": "1"}])");
  const std::pair<std::string, std::string> cases[] = {
      {period + "--events " + path("overlap.jsonl"), "event 2 starts before the previous event ends"},
      {period + "--events " + path("unknown.jsonl"), "unknown.jsonl line 1: \"event\" must be"},
      {period + "--beat-fraction 1", "the beat fraction must be whole microseconds in [0, 1)"},
      {period + "--check-cost 0.0000001", "the check cost must be whole microseconds"},
      {"--from 2026-03-04T09:00 --to yesterday", "--to: 'yesterday' is not an ISO 8601 time"},
      {"--to 2026-03-04T09:00", "--from is required"},
      {period + "--schedule-json " + path("bad.json"), "item 1 field \"minutes\" has 1 characters, not 60"},
  };
  for (const auto& [args, message] : cases) {
    SCOPED_TRACE(args);
    const auto [status, err] = simulate(args);
    EXPECT_EQ(status, 2);
    EXPECT_NE(err.find(message), std::string::npos) << err;
  }
}

}  // namespace
}  // namespace halyard
