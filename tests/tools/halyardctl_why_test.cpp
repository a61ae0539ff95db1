// `halyardctl why` and `schedule next` as a user asks them about the items
// people trip over: the default weekday item, an inactive one, a suspended
// scheduler, a volume-mount item, a minute that daylight saving time skips.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "foundation/file_io.h"

namespace halyard {
namespace {

class HalyardctlWhyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "halyardctl-why-XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    add("--description", "new item");
    add("--description", "off", "--type", "4", "--inactive");
    add("--description", "on mount", "--type", "6");
    add("--description", "2 am", "--type", "4", "--hours", "2", "--minutes", "*");
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string halyardctl(const std::string& args) const {
    const std::string out = (folder_ / "out").string();
    const std::string command = "env TZ=America/New_York HALYARD_RESOURCE_DIR=" HALYARD_SOURCE_DIR
                                "/resources XDG_DATA_HOME=" +
                                folder_.string() + " XDG_CONFIG_HOME=" + folder_.string() +
                                " " HALYARD_BINARY_DIR "/src/tools/halyardctl " + args + " >" + out + " 2>&1";
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 0) << command;
    return readWholeFile(out).value();
  }
  template <class... Args>
  void add(const Args&... args) {
    std::string line = "schedule add";
    ((line += std::string(" '") + args + "'"), ...);
    halyardctl(line);
  }
  // The last line of `why`: the verdict at the moment.
  std::string verdict(const std::string& args) {
    const std::string out = halyardctl("why " + args);
    const std::size_t start = out.rfind('\n', out.size() - 2);
    return out.substr(start + 1);
  }

  std::filesystem::path folder_;
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
       "at 2026-03-08 03:30:00 -0400: not handed over: that minute does not occur: daylight saving time skips it\n"},
      {"4 --at 2026-11-01T02:30",
       "at 2026-11-01 02:30:00 -0500: handed over: the minute check hands it over (type 4: "
       "minute, hour and month selected, every day)\n"},
  };
  for (const auto& [args, expected] : cases) {
    SCOPED_TRACE(args);
    EXPECT_EQ(verdict(args), expected);
  }
  const std::string whole = halyardctl("why 1 --at 2026-03-04T09:00");
  EXPECT_NE(whole.find("item 1 \"new item\", type 5\nlast hand-over: "), std::string::npos) << whole;
  EXPECT_NE(whole.find("\nnext hand-over: "), std::string::npos) << whole;
  EXPECT_EQ(whole.find("never"), std::string::npos) << whole;
}

TEST_F(HalyardctlWhyTest, ASuspendedSchedulerIsTheFirstRule) {
  std::filesystem::create_directories(folder_ / "vantrel");
  ASSERT_TRUE(
      writeFileAtomically((folder_ / "vantrel/halyard.conf").string(), "[General]\nSchedulerActivePrefKey=false\n"));
  EXPECT_EQ(
      verdict("1 --at 2026-03-04T09:00"),
      "at 2026-03-04 09:00:00 -0500: not handed over: the scheduler is suspended: no check hands anything over\n");
  EXPECT_EQ(halyardctl("schedule next 3"),
            "never\na run missed during a sleep: not caught up, a volume-mount item runs only when its volume is "
            "mounted\n");
}

}  // namespace
}  // namespace halyard
