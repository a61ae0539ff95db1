// `halyardctl simulate` as a user runs it: the built binary, a schedule in
// item form and events from files, one JSON line per hand-over; bad input
// exits with status 2 and names what is wrong.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "foundation/file_io.h"

namespace halyard {
namespace {

class HalyardctlSimulateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "halyardctl-simulate-XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    ASSERT_TRUE(writeFileAtomically(file("items.json"), R"([
      {"description": "Weekdays at :31", "scheduleType": 5, "start": "2026-01-01T00:00:00-05:00",
       "daysOfWeek": "0111110", "hours": "000000000100000000000000",
       "minutes": "000000000000000000000000000000010000000000000000000000000000"},
      {"description": "Daily \"quoted\" at :33", "scheduleType": 4, "start": null,
       "daysOfMonth": "1111111111111111111111111111111",
       "hours": "000000000100000000000000",
       "minutes": "000000000000000000000000000000000100000000000000000000000000"}])"));
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string file(const std::string& name) const { return (folder_ / name).string(); }

  // Exit status and standard output, or standard error when it failed.
  std::pair<int, std::string> simulate(const std::string& args) const {
    const std::string command = "env TZ=UTC HALYARD_RESOURCE_DIR=" HALYARD_SOURCE_DIR "/resources " HALYARD_BINARY_DIR
                                "/src/tools/halyardctl simulate --tz America/New_York --schedule-json " +
                                file("items.json") + " " + args + " >" + file("out") + " 2>" + file("err");
    const int status = WEXITSTATUS(std::system(command.c_str()));
    return {status, readWholeFile(file(status == 0 ? "out" : "err")).value()};
  }

  std::filesystem::path folder_;
};

TEST_F(HalyardctlSimulateTest, PrintsEachHandOverAsOneJsonLine) {
  ASSERT_TRUE(writeFileAtomically(
      file("events.jsonl"),
      "{\"at\": \"2026-03-04T09:32:10\", \"event\": \"sleep\", \"until\": \"2026-03-04T09:34:00\"}\n"
      "\n"
      "{\"at\": \"2026-03-05T00:00:00-05:00\", \"event\": \"suspend\"}\n"));
  const auto [status, out] = simulate("--from 2026-03-04T09:00 --to 2026-03-05T10:00 --events " + file("events.jsonl"));
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
  ASSERT_TRUE(writeFileAtomically(
      file("overlap.jsonl"),
      "{\"at\": \"2026-03-04T09:10:00\", \"event\": \"sleep\", \"until\": \"2026-03-04T09:20:00\"}\n"
      "{\"at\": \"2026-03-04T09:15:00\", \"event\": \"resume\"}\n"));
  ASSERT_TRUE(writeFileAtomically(file("unknown.jsonl"), "{\"at\": \"2026-03-04T09:10:00\", \"event\": \"nap\"}\n"));
  ASSERT_TRUE(writeFileAtomically(file("bad.json"), R"([{"minutes": "1"}])"));
  const std::pair<std::string, std::string> cases[] = {
      {period + "--events " + file("overlap.jsonl"), "event 2 starts before the previous event ends"},
      {period + "--events " + file("unknown.jsonl"), "unknown.jsonl line 1: \"event\" must be"},
      {period + "--beat-fraction 1", "the beat fraction must be whole microseconds in [0, 1)"},
      {period + "--check-cost 0.0000001", "the check cost must be whole microseconds"},
      {"--from 2026-03-04T09:00 --to yesterday", "--to: 'yesterday' is not an ISO 8601 time"},
      {"--to 2026-03-04T09:00", "--from is required"},
      {period + "--schedule-json " + file("bad.json"), "item 1 field \"minutes\" has 1 characters, not 60"},
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
