// The scheduled item: defaults, selection operations, copies, and the
// exception guard of the locked accessors.

#include <functional>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "fileservices/document_alias.h"
#include "foundation/log_sink.h"
#include "schedule_test_support.h"

namespace halyard {
namespace {

using namespace halyard::testing;

std::string text(const std::string* set) { return set ? *set : "<absent>"; }

TEST(ScheduledItemTest, NewItemHasTheDefaults) {
  auto item = newItem();
  EXPECT_EQ(item->lock(), nullptr);
  EXPECT_EQ(item->documentAlias(), nullptr);
  EXPECT_FALSE(item->documentPathName());
  EXPECT_EQ(item->description(), "No description");
  EXPECT_EQ(item->scheduleType(), 5);
  ASSERT_TRUE(item->startDate());
  EXPECT_EQ(item->startDate()->seconds, kFixedNow);
  EXPECT_EQ(item->lastRunDate(), nullptr);
  EXPECT_FALSE(item->runOnce());
  EXPECT_TRUE(item->active());
  EXPECT_FALSE(item->forceToRun() || item->forceActive() || item->isRunning() || item->isComplete());
  EXPECT_EQ(text(item->scheduledMonths()), "111111111111");
  EXPECT_EQ(text(item->scheduledDaysOfMonth()), std::string(31, '0'));
  EXPECT_EQ(text(item->scheduledDaysOfWeek()), "0111110");
  EXPECT_EQ(text(item->scheduledHours()), "000000001111111111111000");
  EXPECT_EQ(text(item->scheduledMinutes()), "1" + std::string(59, '0'));
  EXPECT_EQ(item->scheduledLeftTargetMounts(), 0);
  EXPECT_EQ(item->scheduledRightTargetMounts(), 0);
  EXPECT_EQ(item->leftTargetVolumeSpecifier(), nullptr);
  EXPECT_EQ(item->rightTargetVolumeSpecifier(), nullptr);
  EXPECT_EQ(item->synchronizer(), nullptr);
  EXPECT_EQ(item->lastSynchInfo(), nullptr);
  EXPECT_TRUE(item->noDayOfMonthIsSelected());
  EXPECT_TRUE(item->everyMonthIsSelected());
}

struct SetEdit {
  const char* name;
  const char* before;  // nullptr: the set is absent
  std::function<void(std::string*)> edit;
  const char* after;
};

TEST(ScheduledItemTest, GenericEditsChangeOnlyTheirRange) {
  using Item = KSScheduledItem;
  const SetEdit cases[] = {
      {"mark-range", "00000",
       [](std::string* s) {
         Item::markRange({1, 3}, s);
       },
       "01110"},
      {"mark-zero-length-range-beyond-end", "000",
       [](std::string* s) {
         Item::markRange({7, 0}, s);
       },
       "000"},
      {"clear-range", "11111",
       [](std::string* s) {
         Item::clearRange({0, 2}, s);
       },
       "00111"},
      {"mark-item", "000", [](std::string* s) { Item::markItem(2, s); }, "001"},
      {"clear-item-other-character", "1x1", [](std::string* s) { Item::clearItem(1, s); }, "101"},
      {"mark-all", "0x0", [](std::string* s) { Item::markAllItems(s); }, "111"},
      {"clear-all", "1x1", [](std::string* s) { Item::clearAllItems(s); }, "000"},
      {"mark-all-empty", "", [](std::string* s) { Item::markAllItems(s); }, ""},
      {"absent-set", nullptr, [](std::string* s) { Item::markItem(3, s); }, nullptr},
  };
  for (const SetEdit& c : cases) {
    SCOPED_TRACE(c.name);
    std::optional<std::string> set;
    if (c.before) set = c.before;
    c.edit(set ? &*set : nullptr);
    EXPECT_EQ(set, c.after ? std::optional<std::string>(c.after) : std::nullopt);
  }
}

struct SetTest {
  const char* name;
  const char* set;
  std::function<bool(const std::string*)> test;
  bool expected;
};

TEST(ScheduledItemTest, GenericTestsReadTheSet) {
  using Item = KSScheduledItem;
  const SetTest cases[] = {
      {"range-marked", "0110",
       [](const std::string* s) {
         return Item::rangeIsMarked({1, 2}, s);
       },
       true},
      {"range-zero-length", "1111",
       [](const std::string* s) {
         return Item::rangeIsMarked({0, 0}, s);
       },
       false},
      {"range-cleared", "1001",
       [](const std::string* s) {
         return Item::rangeIsCleared({1, 2}, s);
       },
       true},
      {"item-other-character", "x", [](const std::string* s) { return Item::itemIsMarked(0, s); }, false},
      {"item-absent-set", nullptr, [](const std::string* s) { return Item::itemIsMarked(0, s); }, false},
      {"all-marked-empty", "", [](const std::string* s) { return Item::allItemsAreMarked(s); }, false},
      {"all-cleared-empty", "", [](const std::string* s) { return Item::allItemsAreCleared(s); }, false},
      {"all-cleared-absent", nullptr, [](const std::string* s) { return Item::allItemsAreCleared(s); }, false},
      {"all-marked-other-character", "11y", [](const std::string* s) { return Item::allItemsAreMarked(s); }, false},
  };
  for (const SetTest& c : cases) {
    SCOPED_TRACE(c.name);
    const std::optional<std::string> set = c.set ? std::optional<std::string>(c.set) : std::nullopt;
    EXPECT_EQ(c.test(set ? &*set : nullptr), c.expected);
  }
}

TEST(ScheduledItemTest, IndexOrRangeBeyondTheSetThrowsToTheCaller) {
  auto item = newItem();
  EXPECT_THROW(item->selectMinute(60), std::out_of_range);
  EXPECT_THROW(item->monthIsSelected(12), std::out_of_range);
  std::string set = "0000";
  EXPECT_THROW(KSScheduledItem::markRange({3, 2}, &set), std::out_of_range);
  EXPECT_THROW((void)KSScheduledItem::rangeIsCleared({5, 1}, &set), std::out_of_range);
  EXPECT_EQ(set, "0000");
}

TEST(ScheduledItemTest, EachSetOperationEditsItsOwnSet) {
  auto item = newItem();
  item->clearEveryMonth();
  item->selectMonth(11);
  item->selectDayOfMonth(30);
  item->clearDayOfWeek(1);
  item->selectEveryHour();
  item->clearHour(23);
  item->selectMinute(59);
  EXPECT_EQ(text(item->scheduledMonths()), "000000000001");
  EXPECT_EQ(text(item->scheduledDaysOfMonth()), std::string(30, '0') + "1");
  EXPECT_EQ(text(item->scheduledDaysOfWeek()), "0011110");
  EXPECT_EQ(text(item->scheduledHours()), std::string(23, '1') + "0");
  EXPECT_EQ(text(item->scheduledMinutes()), "1" + std::string(58, '0') + "1");
  EXPECT_TRUE(item->monthIsSelected(11) && item->dayOfMonthIsSelected(30) && item->minuteIsSelected(59));
  EXPECT_FALSE(item->everyHourIsSelected());
}

TEST(ScheduledItemTest, CopyHasItsOwnLockAndSetsAndSharesTheSynchronizer) {
  auto source = newItem();
  auto synchronizer = std::make_shared<KSSynchronizer>();
  source->setSynchronizer(synchronizer);
  source->setIsRunning(true);
  source->setLastSynchInfo(Dictionary::make());
  source->setLeftTargetVolumeSpecifier(
      std::make_shared<GenericObject>(rootedChain({{"VolumeSpecifier", 0}}), std::vector<Group>{}));

  auto copy = source->copyWithZone();
  ASSERT_NE(copy->lock(), nullptr);
  EXPECT_EQ(source->lock(), nullptr);
  copy->selectMinute(30);
  EXPECT_FALSE(source->minuteIsSelected(30));
  EXPECT_TRUE(copy->minuteIsSelected(30));
  EXPECT_EQ(copy->synchronizer(), synchronizer);
  EXPECT_TRUE(copy->isRunning());
  EXPECT_NE(copy->startDate(), source->startDate());
  EXPECT_EQ(copy->startDate()->seconds, source->startDate()->seconds);
  EXPECT_NE(copy->lastSynchInfo(), source->lastSynchInfo());
  EXPECT_NE(copy->leftTargetVolumeSpecifier(), source->leftTargetVolumeSpecifier());

  auto second = copy->copyWithZone();
  EXPECT_NE(second->lock(), copy->lock());
}

// Each locked accessor, as the selector its guard names.
struct GuardedCall {
  const char* selector;
  std::function<bool(KSScheduledItem&)> call;  // true when it answered absent
};

TEST(ScheduledItemTest, GuardLogsTheSelectorSwallowsAndReleasesTheLock) {
  const GuardedCall calls[] = {
      {"scheduledMonths", [](KSScheduledItem& i) { return i.scheduledMonths() == nullptr; }},
      {"setScheduledMonths:",
       [](KSScheduledItem& i) {
         i.setScheduledMonths("0");
         return text(i.scheduledMonths()) != "0";
       }},
      {"scheduledDaysOfMonth", [](KSScheduledItem& i) { return i.scheduledDaysOfMonth() == nullptr; }},
      {"setScheduledDaysOfWeek:",
       [](KSScheduledItem& i) {
         i.setScheduledDaysOfWeek("1");
         return text(i.scheduledDaysOfWeek()) != "1";
       }},
      {"scheduledHours", [](KSScheduledItem& i) { return i.scheduledHours() == nullptr; }},
      {"scheduledMinutes", [](KSScheduledItem& i) { return !i.minuteIsSelected(0); }},
      {"leftTargetVolumeSpecifier", [](KSScheduledItem& i) { return i.leftTargetVolumeSpecifier() == nullptr; }},
      {"setRightTargetVolumeSpecifier:",
       [](KSScheduledItem& i) {
         i.setRightTargetVolumeSpecifier(std::make_shared<Null>());
         return i.rightTargetVolumeSpecifier() == nullptr;
       }},
      {"setSynchronizer:",
       [](KSScheduledItem& i) {
         i.setSynchronizer(std::make_shared<KSSynchronizer>());
         return i.synchronizer() == nullptr;
       }},
      {"lastSynchInfo", [](KSScheduledItem& i) { return i.lastSynchInfo() == nullptr; }},
  };
  for (const GuardedCall& c : calls) {
    SCOPED_TRACE(c.selector);
    auto item = newItem()->copyWithZone();
    item->setLeftTargetVolumeSpecifier(std::make_shared<Null>());
    item->setLastSynchInfo(Dictionary::make());
    const std::string selector = c.selector;
    item->setGuardFaultForTesting([&](std::string_view s) {
      if (s == selector) throw std::runtime_error("injected");
    });
    LogCapture capture;
    EXPECT_TRUE(c.call(*item));
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"<Error:> Exception caught in " + selector});
    bool released = false;
    std::thread([&] {
      released = item->lock()->try_lock();
      if (released) item->lock()->unlock();
    }).join();
    EXPECT_TRUE(released);
  }
}

TEST(ScheduledItemTest, FailedCopyIsReturnedWithoutALock) {
  auto source = newItem();
  source->setGuardFaultForTesting([](std::string_view s) {
    if (s == "copyWithZone:") throw std::runtime_error("injected");
  });
  LogCapture capture;
  auto copy = source->copyWithZone();
  EXPECT_EQ(copy->lock(), nullptr);
  EXPECT_EQ(text(copy->scheduledDaysOfWeek()), "0111110");
  EXPECT_EQ(capture.lines(), std::vector<std::string>{"<Error:> Exception caught in copyWithZone:"});
}

TEST(ScheduledItemTest, DocumentAliasSetsThePathItLeadsTo) {
  ScratchFolder folder;
  const std::string document = folder.file("Backup.halyard");
  std::fclose(std::fopen(document.c_str(), "w"));
  auto item = newItem();
  item->setDocumentAlias(fileservices::createAliasObjectFromNSPath(document));
  EXPECT_EQ(item->documentPathName(), document);
  item->setDocumentAlias(nullptr);
  EXPECT_FALSE(item->documentPathName());
}

TEST(ScheduledItemTest, RunPatternIsTheItemsSnapshotAndDrivesTheSearch) {
  auto item = newItem();
  const cctz::time_zone zone = *loadTimeZone("Europe/Berlin");
  EXPECT_FALSE(item->nextScheduledDateAfter(std::nullopt, std::nullopt, kFixedNow, zone));
  item->selectEveryDayOfMonth();
  item->setScheduledMinutes(std::nullopt);
  const RunPattern pattern = item->runPattern();
  EXPECT_EQ(pattern.startDate, kFixedNow);
  EXPECT_EQ(pattern.daysOfMonth, std::string(31, '1'));
  EXPECT_EQ(pattern.minutes, "");
  item->setScheduledMinutes("1" + std::string(59, '0'));
  // The start date is 11:20:30 in Berlin on a Tuesday: the next run is 12:00
  // that day, with the start date's seconds kept.
  EXPECT_EQ(item->nextScheduledDateAfter(std::nullopt, std::nullopt, kFixedNow, zone), kFixedNow + 40 * 60);
}

}  // namespace
}  // namespace halyard
