// The scheduled item: the selection set operations at their edges, copies,
// and the exception guard of the locked accessors.

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

using Item = KSScheduledItem;
using Operation = std::function<std::string(std::string*)>;

// An edit answers the set after it, a test "yes" or "no".
Operation edit(std::function<void(std::string*)> change) {
  return [change](std::string* set) {
    change(set);
    return text(set);
  };
}
Operation test(std::function<bool(const std::string*)> question) {
  return [question](std::string* set) { return question(set) ? "yes" : "no"; };
}

// Each set operation at its edges: zero-length ranges, characters other than
// '0' and '1', empty sets and absent ones.
TEST(ScheduledItemTest, SetOperationsAtTheirEdges) {
  constexpr SetRange kOneToThree{1, 3}, kNothingBeyond{7, 0}, kFirstTwo{0, 2}, kSecondAndThird{1, 2}, kNone{0, 0};
  const struct {
    const char* name;
    const char* set;  // nullptr: the set is absent
    Operation operation;
    const char* expected;
  } cases[] = {
      {"mark-range", "00000", edit([=](std::string* s) { Item::markRange(kOneToThree, s); }), "01110"},
      {"mark-zero-length-beyond-end", "000", edit([=](std::string* s) { Item::markRange(kNothingBeyond, s); }), "000"},
      {"clear-range", "11111", edit([=](std::string* s) { Item::clearRange(kFirstTwo, s); }), "00111"},
      {"mark-item", "000", edit([](std::string* s) { Item::markItem(2, s); }), "001"},
      {"clear-item-other-character", "1x1", edit([](std::string* s) { Item::clearItem(1, s); }), "101"},
      {"mark-all", "0x0", edit(Item::markAllItems), "111"},
      {"edit-absent-set", nullptr, edit([](std::string* s) { Item::markItem(3, s); }), "<absent>"},
      {"range-marked", "0110", test([=](const std::string* s) { return Item::rangeIsMarked(kSecondAndThird, s); }),
       "yes"},
      {"range-zero-length", "1111", test([=](const std::string* s) { return Item::rangeIsMarked(kNone, s); }), "no"},
      {"range-cleared", "1001", test([=](const std::string* s) { return Item::rangeIsCleared(kSecondAndThird, s); }),
       "yes"},
      {"item-other-character", "x", test([](const std::string* s) { return Item::itemIsMarked(0, s); }), "no"},
      {"item-absent-set", nullptr, test([](const std::string* s) { return Item::itemIsMarked(0, s); }), "no"},
      {"all-marked-empty", "", test(Item::allItemsAreMarked), "no"},
      {"all-cleared-empty", "", test(Item::allItemsAreCleared), "no"},
      {"all-cleared-absent", nullptr, test(Item::allItemsAreCleared), "no"},
      {"all-marked-other-character", "11y", test(Item::allItemsAreMarked), "no"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::optional<std::string> set;
    if (c.set) set = c.set;
    EXPECT_EQ(c.operation(set ? &*set : nullptr), c.expected);
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

// Each locked accessor, as the selector its guard names: a setter is called,
// then the getter shows whether the set is unchanged; a getter answers absent.
struct GuardedCall {
  const char* selector;
  std::function<void(Item&)> set;  // null for a getter
  std::function<bool(Item&)> answeredAbsent;
};

TEST(ScheduledItemTest, GuardLogsTheSelectorSwallowsAndReleasesTheLock) {
  const GuardedCall calls[] = {
      {"scheduledMonths", nullptr, [](Item& i) { return i.scheduledMonths() == nullptr; }},
      {"setScheduledMonths:", [](Item& i) { i.setScheduledMonths("0"); },
       [](Item& i) { return text(i.scheduledMonths()) != "0"; }},
      {"setScheduledDaysOfWeek:", [](Item& i) { i.setScheduledDaysOfWeek("1"); },
       [](Item& i) { return text(i.scheduledDaysOfWeek()) != "1"; }},
      {"scheduledMinutes", nullptr, [](Item& i) { return !i.minuteIsSelected(0); }},
      {"leftTargetVolumeSpecifier", nullptr, [](Item& i) { return i.leftTargetVolumeSpecifier() == nullptr; }},
      {"setRightTargetVolumeSpecifier:", [](Item& i) { i.setRightTargetVolumeSpecifier(std::make_shared<Null>()); },
       [](Item& i) { return i.rightTargetVolumeSpecifier() == nullptr; }},
      {"setSynchronizer:", [](Item& i) { i.setSynchronizer(std::make_shared<KSSynchronizer>()); },
       [](Item& i) { return i.synchronizer() == nullptr; }},
      {"lastSynchInfo", nullptr, [](Item& i) { return i.lastSynchInfo() == nullptr; }},
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
    if (c.set) c.set(*item);
    EXPECT_TRUE(c.answeredAbsent(*item));
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
  TestFolder folder;
  const std::string document = folder.writeFile("Backup.halyard", "");
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
