// The archived form of a scheduled item: the exact entries written, the
// round trip, the legacy repeat interval, and values of the wrong class.
// Truncated archives are the schedule file test's.

#include <cmath>
#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include "fileservices/document_alias.h"
#include "foundation/archiver.h"
#include "foundation/json_writer.h"
#include "foundation/log_sink.h"
#include "foundation/unarchiver.h"
#include "schedule/schedule_file.h"
#include "schedule_test_support.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

using namespace halyard::testing;

// A KSScheduledItem whose contents are `archive`, as the application would
// write it, and an archive holding just that.
ObjectRef itemObject(ObjectRef archive) {
  return std::make_shared<GenericObject>(rootedChain({{"KSScheduledItem", 0}}),
                                         std::vector<Group>{{"@", {{"@", std::move(archive)}}}});
}
std::string itemArchive(ObjectRef archive) { return Archiver::archivedData(itemObject(std::move(archive))); }

std::shared_ptr<KSScheduledItem> decodeItem(const std::string& bytes) {
  auto object = Unarchiver::unarchiveRootObject(bytes, scheduleClassRegistry(fixedClock()));
  if (!object) {
    ADD_FAILURE() << object.error().describe();
    return nullptr;
  }
  return objectAs<KSScheduledItem>(*object);
}

std::string selectedMinutes(const KSScheduledItem& item) {
  std::string list;
  for (std::uint32_t m = 0; m < 60; ++m) {
    if (item.minuteIsSelected(m)) list += (list.empty() ? "" : ",") + std::to_string(m);
  }
  return list;
}

TEST(ScheduledItemCodingTest, NewItemArchivesExactlyTheRequiredEntries) {
  const auto archive = newItem()->archiveDictionary();
  std::string keys;
  for (const auto& [key, value] : archive->entries) keys += objectAs<String>(key)->text + " ";
  EXPECT_EQ(keys,
            "descriptionkey scheduleTypekey startDatekey runOncekey activekey forceToRunkey scheduledMonthskey "
            "scheduledDaysOfMonthkey scheduledDaysOfWeekkey scheduledHourskey scheduledMinuteskey "
            "scheduledLeftTargetMountskey scheduledRightTargetMountskey ");

  // The type codes the application's reader expects.
  auto number = [&](const char* key) { return objectAs<Number>(archive->get(key)); };
  EXPECT_EQ(number("scheduleTypekey")->type, 'i');
  for (const char* key : {"runOncekey", "activekey", "forceToRunkey"}) EXPECT_EQ(number(key)->type, 'c') << key;
  EXPECT_TRUE(objectAs<String>(archive->get("scheduledDaysOfWeekkey"))->isMutable);
}

TEST(ScheduledItemCodingTest, RoundTripKeepsEveryFieldAndResetsTheRunState) {
  TestFolder folder;
  const std::string document = folder.writeFile("Photos.halyard", "");
  auto item = newItem();
  item->setDocumentAlias(fileservices::createAliasObjectFromNSPath(document));
  item->setDocumentPathName("/elsewhere/Photos.halyard");
  item->setDescription("Photos to the NAS");
  item->setScheduleType(7);
  item->setLastRunDate(fixedDate(kFixedNow - 3600.25));
  item->setRunOnce(true);
  item->setActive(false);
  item->setForceToRun(true);
  item->setScheduledDaysOfMonth("1" + std::string(30, '0'));
  item->setScheduledMinutes(std::string(60, '1'));
  item->setScheduledLeftTargetMounts(1);
  item->setScheduledRightTargetMounts(-3);
  auto specifier = std::make_shared<VolumeSpecifier>(fileservices::VTFileManager::make());
  specifier->applyArchiveDictionary(*dictionaryOf({{"vs00", String::make("NAS")}}));
  item->setLeftTargetVolumeSpecifier(specifier);
  item->setLastSynchInfo(dictionaryOf({{"result", String::make("ok")}}));
  item->setForceActive(true);
  item->setIsRunning(true);
  item->setIsComplete(true);

  const std::string bytes = Archiver::archivedData(item);
  auto decoded = decodeItem(bytes);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(JsonWriter::describe(decoded), JsonWriter::describe(item));
  EXPECT_EQ(decoded->documentPathName(), "/elsewhere/Photos.halyard");  // a stored path overrides the alias
  EXPECT_EQ(decoded->lastRunDate()->seconds, kFixedNow - 3600.25);
  EXPECT_FALSE(decoded->forceActive() || decoded->isRunning() || decoded->isComplete());
  EXPECT_EQ(decoded->lock(), nullptr);
  EXPECT_EQ(Archiver::archivedData(decoded), bytes);
  auto decodedSpecifier = objectAs<VolumeSpecifier>(decoded->leftTargetVolumeSpecifier());
  ASSERT_TRUE(decodedSpecifier);
  EXPECT_EQ(decodedSpecifier->volumeName(), "NAS");
}

struct LegacyCase {
  const char* name;
  ObjectRef interval;
  ObjectRef minutes;  // a stored minute set, or null
  const char* selected;
};

TEST(ScheduledItemCodingTest, LegacyRepeatIntervalAddsToTheMinuteSet) {
  const LegacyCase cases[] = {
      {"every-15", Number::fromDouble(15), nullptr, "0,15,30,45"},
      {"every-45", Number::fromInt32(45), nullptr, "0,45"},
      {"every-90", Number::fromDouble(90), nullptr, "0"},
      {"zero", Number::fromDouble(0), nullptr, "0"},
      {"every-20-as-string", String::make("20"), nullptr, "0,20,40"},
      {"fraction-that-cannot-advance", Number::fromDouble(0.5), nullptr, "0"},
      {"negative", Number::fromDouble(-5), nullptr, "0"},
      {"not-a-number", Number::fromDouble(std::numeric_limits<double>::quiet_NaN()), nullptr, "0"},
      {"stored-set-replaces-it", Number::fromDouble(15), String::make(std::string(59, '0') + "1", true), "59"},
  };
  for (const LegacyCase& c : cases) {
    SCOPED_TRACE(c.name);
    auto archive = dictionaryOf({{"repeatIntervalkey", c.interval}});
    if (c.minutes) archive->set("scheduledMinuteskey", c.minutes);
    auto item = decodeItem(itemArchive(archive));
    ASSERT_TRUE(item);
    EXPECT_EQ(selectedMinutes(*item), c.selected);
  }
}

struct WrongClassCase {
  const char *name, *key;
  ObjectRef value;
  std::size_t logLines;
  std::function<bool(const KSScheduledItem&)> check;
};

TEST(ScheduledItemCodingTest, ValuesOfTheWrongClassAreConvertedOrIgnored) {
  const WrongClassCase cases[] = {
      {"type-from-string", "scheduleTypekey", String::make(" 7 days"), 0,
       [](auto& i) { return i.scheduleType() == 7; }},
      {"type-from-double", "scheduleTypekey", Number::fromDouble(6.9), 0,
       [](auto& i) { return i.scheduleType() == 6; }},
      {"type-from-array", "scheduleTypekey", Array::make(), 1, [](auto& i) { return i.scheduleType() == 5; }},
      {"active-from-string-no", "activekey", String::make("NO"), 0, [](auto& i) { return !i.active(); }},
      {"run-once-from-string-yes", "runOncekey", String::make("yes"), 0, [](auto& i) { return i.runOnce(); }},
      {"mounts-from-null", "scheduledLeftTargetMountskey", std::make_shared<Null>(), 1,
       [](auto& i) { return i.scheduledLeftTargetMounts() == 0; }},
      {"description-from-number", "descriptionkey", Number::fromInt32(3), 1,
       [](auto& i) { return i.description() == "No description"; }},
      {"start-date-from-plain-date", "startDatekey", Date::make(1.0), 1,
       [](auto& i) { return i.startDate()->seconds == kFixedNow; }},
      {"minutes-from-number", "scheduledMinuteskey", Number::fromInt32(1), 1,
       [](auto& i) { return selectedMinutes(i) == "0"; }},
      {"alias-from-string", "documentAliaskey", String::make("/tmp"), 1, [](auto& i) { return !i.documentAlias(); }},
      {"specifier-from-string", "leftTargetVolumeSpecifierkey", String::make("disk"), 1,
       [](auto& i) { return !i.leftTargetVolumeSpecifier(); }},
      {"sync-info-from-array", "lastSynchInfokey", Array::make(), 1, [](auto& i) { return !i.lastSynchInfo(); }},
  };
  for (const WrongClassCase& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture capture;
    auto item = decodeItem(itemArchive(dictionaryOf({{c.key, c.value}})));
    ASSERT_TRUE(item);
    EXPECT_TRUE(c.check(*item));
    EXPECT_EQ(capture.lines().size(), c.logLines);
  }
}

// Defaults are filled in after the archived values: an archive without a
// dictionary, or with an empty one, gives exactly a new item.
TEST(ScheduledItemCodingTest, ItemWithoutADictionaryKeepsItsDefaults) {
  const std::string fresh = JsonWriter::describe(std::make_shared<KSScheduledItem>(fixedDate()));
  for (const ObjectRef& archive : {ObjectRef{}, ObjectRef{Dictionary::make(true)}}) {
    auto item = decodeItem(itemArchive(archive));
    ASSERT_TRUE(item);
    EXPECT_EQ(JsonWriter::describe(item), fresh);
  }
  auto notDictionary =
      Unarchiver::unarchiveRootObject(itemArchive(String::make("x")), scheduleClassRegistry(fixedClock()));
  EXPECT_FALSE(notDictionary);
}

// An item's dictionary is read without making its strings, numbers or the
// dictionary itself; whatever refers to them later in the archive still gets
// them, made then, and a second item sharing the dictionary reads the same.
TEST(ScheduledItemCodingTest, ValuesReadInPlaceAreMadeWhenReferredToLater) {
  auto description = String::make("Nightly");
  auto type = Number::fromInt32(7);
  auto archive = dictionaryOf({{"descriptionkey", description}, {"scheduleTypekey", type}});
  // The first key is the archive's first string: its contents introduce the
  // type string "+", which reading it again must not add twice.
  const ObjectRef firstKey = archive->entries.front().first;
  const auto written =
      Array::make({itemObject(archive), itemObject(archive), description, type, archive, firstKey, description});
  auto root = Unarchiver::unarchiveRootObject(Archiver::archivedData(written), scheduleClassRegistry(fixedClock()));
  ASSERT_TRUE(root) << root.error().describe();
  const auto array = objectAs<Array>(*root);
  ASSERT_TRUE(array && array->items.size() == 7u);
  for (std::size_t i = 0; i < 2; ++i) {
    const auto item = objectAs<KSScheduledItem>(array->items[i]);
    ASSERT_TRUE(item) << i;
    EXPECT_EQ(item->description(), "Nightly");
    EXPECT_EQ(item->scheduleType(), 7);
  }
  // The values made later are those written, each one object wherever it is
  // referred to.
  for (std::size_t i = 2; i < 7; ++i) {
    EXPECT_EQ(JsonWriter::describe(array->items[i]), JsonWriter::describe(written->items[i])) << i;
  }
  const auto dictionary = objectAs<Dictionary>(array->items[4]);
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->get("descriptionkey"), array->items[2]);
  EXPECT_EQ(dictionary->get("scheduleTypekey"), array->items[3]);
  EXPECT_EQ(dictionary->entries.front().first, array->items[5]);
  EXPECT_EQ(array->items[6], array->items[2]);
}

}  // namespace
}  // namespace halyard
