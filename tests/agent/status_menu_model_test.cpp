// The status menu's model without any widget: the next run from the coming
// whole minute, the lines shown when there is nothing to list, and the
// user's time formats. The tray tests read the rest through the menu itself.

#include <gtest/gtest.h>

#include "agent/agent_test_support.h"
#include "agent/status_menu_model.h"
#include "agent/user_time_formats.h"

namespace halyard::agent::testing {
namespace {

class StatusMenuModelTest : public ::testing::Test {
 protected:
  // 2026-03-04 (a Wednesday), Berlin time.
  TimeInterval at(int h, int m, int s, double fraction = 0) const {
    return clock_.civil(2026, 3, 4, h, m, s, fraction);
  }
  std::string describeNext(const ScheduleItems& items, TimeInterval now) const {
    const auto next = nextScheduledItemInfo(items, now, clock_.zone());
    if (!next) return "none";
    // "2026-03-04 09:30:00 +0100" as "04 09:30:00": the day of this March and the time.
    const std::string date = formatInstant(next->date, clock_.zone());
    return *next->item->description() + " " + date.substr(8, date.size() - 14);
  }
  StatusMenuModel model(const std::optional<ScheduleItems>& items) const {
    return makeStatusMenuModel({.items = items,
                                .now = at(9, 29, 30),
                                .zone = clock_.zone(),
                                .dateFormat = "%d.%m.%Y %H:%M",
                                .fileExists = [](const std::string&) { return true; }});
  }

  FakeClock clock_;
};

TEST_F(StatusMenuModelTest, NextRunIsAskedFromTheComingWholeMinute) {
  const auto at0930 = makeItem("at-09:30", 9, 30);
  const auto at1000a = makeItem("first-at-10:00", 10, 0);
  const auto at1000b = makeItem("second-at-10:00", 10, 0);
  const auto inactive0945 = makeItem("inactive-09:45", 9, 45);
  inactive0945->setActive(false);
  struct Case {
    const char* name;
    ScheduleItems items;
    TimeInterval now;
    std::string expected;
  } cases[] = {
      {"09:29:30: asked from 09:30:00", {at0930}, at(9, 29, 30), "at-09:30 04 09:30:00"},
      {"09:30:00 exactly: that minute counts", {at0930}, at(9, 30, 0), "at-09:30 04 09:30:00"},
      {"09:30:30: the next day", {at0930}, at(9, 30, 30), "at-09:30 05 09:30:00"},
      {"same minute: the earlier in the file", {at1000a, at1000b}, at(9, 50, 0), "first-at-10:00 04 10:00:00"},
      {"same minute, file reversed", {at1000b, at1000a}, at(9, 50, 0), "second-at-10:00 04 10:00:00"},
      {"the earliest date wins over file order", {at1000a, at0930}, at(9, 0, 0), "at-09:30 04 09:30:00"},
      {"an inactive item has no run", {inactive0945, at1000a}, at(9, 40, 0), "first-at-10:00 04 10:00:00"},
      {"empty schedule", {}, at(9, 0, 0), "none"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(describeNext(c.items, c.now), c.expected);
  }
}

TEST_F(StatusMenuModelTest, TheRunDateTakesTheUsersFormatAndEmptyListsSayNone) {
  EXPECT_EQ(model(ScheduleItems{makeItem("Photos", 9, 45)}).nextRun.back().title, "04.03.2026 09:45");
  for (const auto& items : {std::optional<ScheduleItems>(ScheduleItems{}), std::optional<ScheduleItems>()}) {
    SCOPED_TRACE(items ? "empty schedule" : "no schedule file");
    const StatusMenuModel m = model(items);
    ASSERT_EQ(m.documents.size(), 1u);
    EXPECT_EQ(m.documents[0].title, "None");
    EXPECT_FALSE(m.documents[0].enabled || m.documents[0].item);
  }
}

TEST(UserTimeFormats, DateDirectivesLeaveTheTimeFormat) {
  struct Case {
    const char* userFormat;
    const char* expected;
  } cases[] = {{"%H:%M:%S", "%H:%M:%S"},       {"%r", "%r"},
               {"%a %d %b %Y %H:%M", "%H:%M"}, {"%A, %e. %B %y, %I:%M %p", ", .  , %I:%M %p"},
               {"%j/%m/%w %H.%M", "// %H.%M"}, {"%d%d %T", "%T"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.userFormat);
    EXPECT_EQ(stdTimeFormat(c.userFormat), c.expected);
  }
  EXPECT_EQ(preferredDateFormatter("%m/%d/%y", "%H:%M:%S"), "%m/%d/%y %H:%M:%S");
}

}  // namespace
}  // namespace halyard::agent::testing
