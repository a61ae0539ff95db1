// The status menu's model without any widget: the next run, the documents
// with their ticks and enabled states, the scheduler's titles, and the
// user's time formats.

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "agent/agent_test_support.h"
#include "agent/status_menu_model.h"
#include "agent/user_time_formats.h"
#include "menu_titles.h"

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
    return *next->item->description() + " " + formatInstant(next->date, clock_.zone());
  }
  StatusMenuModel model(const std::optional<ScheduleItems>& items, bool active) const {
    return makeStatusMenuModel({.items = items,
                                .schedulerActive = active,
                                .now = at(9, 29, 30),
                                .zone = clock_.zone(),
                                .dateFormat = "%d.%m.%Y %H:%M",
                                .fileExists = [this](const std::string& path) { return present_.count(path) > 0; }});
  }

  FakeClock clock_;
  std::set<std::string> present_;
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
      {"09:29:30: asked from 09:30:00", {at0930}, at(9, 29, 30), "at-09:30 2026-03-04 09:30:00 +0100"},
      {"09:30:00 exactly: that minute counts", {at0930}, at(9, 30, 0), "at-09:30 2026-03-04 09:30:00 +0100"},
      {"09:30:30: the next day", {at0930}, at(9, 30, 30), "at-09:30 2026-03-05 09:30:00 +0100"},
      {"same minute: the earlier in the file",
       {at1000a, at1000b},
       at(9, 50, 0),
       "first-at-10:00 2026-03-04 10:00:00 +0100"},
      {"same minute, file reversed", {at1000b, at1000a}, at(9, 50, 0), "second-at-10:00 2026-03-04 10:00:00 +0100"},
      {"the earliest date wins over file order", {at1000a, at0930}, at(9, 0, 0), "at-09:30 2026-03-04 09:30:00 +0100"},
      {"an inactive item has no run",
       {inactive0945, at1000a},
       at(9, 40, 0),
       "first-at-10:00 2026-03-04 10:00:00 +0100"},
      {"empty schedule", {}, at(9, 0, 0), "none"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(describeNext(c.items, c.now), c.expected);
  }
}

TEST_F(StatusMenuModelTest, DocumentsAndTitlesFollowTheScheduleAndTheState) {
  const auto active = makeItem("Active", 9, 45);
  const auto inactive = makeItem("Inactive", 9, 40);
  inactive->setActive(false);
  const auto gone = makeItem("Gone", 10, 0);
  present_ = {*active->documentPathName(), *inactive->documentPathName()};
  const ScheduleItems items{active, inactive, gone};
  struct Case {
    const char* name;
    std::optional<ScheduleItems> items;
    bool schedulerActive;
    Titles nextRun, documents;
    std::string toggle, state;
  } cases[] = {
      {"active scheduler",
       items,
       true,
       {"Active", "04.03.2026 09:45"},
       {"Active", "Inactive", "Gone"},
       "Suspend Scheduler",
       "Scheduler Is Active"},
      {"suspended scheduler: no next run",
       items,
       false,
       {"None"},
       {"Active", "Inactive", "Gone"},
       "Resume Scheduler",
       "Scheduler Is Suspended"},
      {"empty schedule", ScheduleItems{}, true, {"None"}, {"None"}, "Suspend Scheduler", "Scheduler Is Active"},
      {"no schedule file", std::nullopt, true, {"None"}, {"None"}, "Suspend Scheduler", "Scheduler Is Active"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const StatusMenuModel m = model(c.items, c.schedulerActive);
    EXPECT_EQ(titles(m.nextRun), c.nextRun);
    EXPECT_EQ(titles(m.documents), c.documents);
    EXPECT_EQ(m.toggleTitle, c.toggle);
    EXPECT_EQ(m.stateTitle, c.state);
    for (const auto& line : m.nextRun) EXPECT_FALSE(line.enabled || line.item) << line.title;
    if (!c.items || c.items->empty()) {
      EXPECT_FALSE(m.documents.front().enabled || m.documents.front().item);
      continue;
    }
    // Ticked when active; a document that is gone is listed but cannot be chosen.
    const bool expectedEnabled[] = {true, true, false}, expectedChecked[] = {true, false, true};
    for (std::size_t i = 0; i < 3; ++i) {
      SCOPED_TRACE(m.documents[i].title);
      EXPECT_EQ(m.documents[i].enabled, expectedEnabled[i]);
      EXPECT_EQ(m.documents[i].checked, expectedChecked[i]);
      EXPECT_EQ(m.documents[i].item, (*c.items)[i]);
    }
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

TEST(UserTimeFormats, TheCLocaleGivesItsOwnFormats) {
  const char* saved = std::getenv("LC_ALL");
  const std::string restore = saved ? saved : "";
  ::setenv("LC_ALL", "C", 1);
  const UserTimeFormats formats = readUserTimeFormats();
  saved ? ::setenv("LC_ALL", restore.c_str(), 1) : ::unsetenv("LC_ALL");
  EXPECT_EQ(formats.time, "%H:%M:%S");
  EXPECT_EQ(formats.shortDate, "%m/%d/%y");
}

}  // namespace
}  // namespace halyard::agent::testing
