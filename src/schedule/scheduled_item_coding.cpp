// The archived form of a scheduled item: one dictionary, written with
// present-only keys in a fixed order, read back through the setters. No
// version is written or read; old forms are told by the keys they hold.

#include <cmath>

#include "foundation/archived_dictionary.h"
#include "foundation/archived_values.h"
#include "foundation/archiver.h"
#include "foundation/json_writer.h"
#include "foundation/log_sink.h"
#include "foundation/unarchiver.h"
#include "schedule/scheduled_item.h"

namespace halyard {
namespace {

constexpr const char* kAlias = "documentAliaskey";
constexpr const char* kPath = "documentPathNamekey";
constexpr const char* kDescription = "descriptionkey";
constexpr const char* kType = "scheduleTypekey";
constexpr const char* kRepeatInterval = "repeatIntervalkey";
constexpr const char* kStartDate = "startDatekey";
constexpr const char* kLastRunDate = "lastRunDatekey";
constexpr const char* kRunOnce = "runOncekey";
constexpr const char* kActive = "activekey";
constexpr const char* kForceToRun = "forceToRunkey";
constexpr const char* kMonths = "scheduledMonthskey";
constexpr const char* kDaysOfMonth = "scheduledDaysOfMonthkey";
constexpr const char* kDaysOfWeek = "scheduledDaysOfWeekkey";
constexpr const char* kHours = "scheduledHourskey";
constexpr const char* kMinutes = "scheduledMinuteskey";
constexpr const char* kLeftMounts = "scheduledLeftTargetMountskey";
constexpr const char* kLeftSpecifier = "leftTargetVolumeSpecifierkey";
constexpr const char* kRightMounts = "scheduledRightTargetMountskey";
constexpr const char* kRightSpecifier = "rightTargetVolumeSpecifierkey";
constexpr const char* kLastSynchInfo = "lastSynchInfokey";

// A volume specifier is whatever object archives as class VolumeSpecifier.
ObjectRef specifierOf(const ArchivedValues& values, const Dictionary& archive, const char* key) {
  const ObjectRef value = archive.get(key);
  if (!value) return nullptr;
  const ClassChain chain = value->archiveClassChain();
  if (!chain.empty() && chain.front().name == "VolumeSpecifier") return value;
  values.logIgnored(key, value, "a VolumeSpecifier");
  return nullptr;
}

void setText(Dictionary& archive, const char* key, const std::optional<std::string>& text, bool isMutable = false) {
  if (text) archive.set(key, String::make(*text, isMutable));
}

void setSet(Dictionary& archive, const char* key, const std::string* set) {
  if (set) archive.set(key, String::make(*set, true));
}

void setObject(Dictionary& archive, const char* key, ObjectRef object) {
  if (object) archive.set(key, std::move(object));
}

}  // namespace

ClassChain KSScheduledItem::archiveClassChain() const { return rootedChain({{"KSScheduledItem", 0}}); }

std::shared_ptr<Dictionary> KSScheduledItem::archiveDictionary() const {
  auto archive = Dictionary::make(true);
  setObject(*archive, kAlias, documentAlias());
  setText(*archive, kPath, documentPathName());
  setText(*archive, kDescription, description());
  archive->set(kType, Number::fromInt32(scheduleType()));
  setObject(*archive, kStartDate, std::const_pointer_cast<CalendarDate>(startDate()));
  setObject(*archive, kLastRunDate, std::const_pointer_cast<CalendarDate>(lastRunDate()));
  archive->set(kRunOnce, Number::fromBool(runOnce()));
  archive->set(kActive, Number::fromBool(active()));
  archive->set(kForceToRun, Number::fromBool(forceToRun()));
  setSet(*archive, kMonths, scheduledMonths());
  setSet(*archive, kDaysOfMonth, scheduledDaysOfMonth());
  setSet(*archive, kDaysOfWeek, scheduledDaysOfWeek());
  setSet(*archive, kHours, scheduledHours());
  setSet(*archive, kMinutes, scheduledMinutes());
  archive->set(kLeftMounts, Number::fromInt32(scheduledLeftTargetMounts()));
  setObject(*archive, kLeftSpecifier, leftTargetVolumeSpecifier());
  archive->set(kRightMounts, Number::fromInt32(scheduledRightTargetMounts()));
  setObject(*archive, kRightSpecifier, rightTargetVolumeSpecifier());
  setObject(*archive, kLastSynchInfo, lastSynchInfo());
  return archive;
}

void KSScheduledItem::encodeWithCoder(Archiver& coder) const { coder.encodeObject(archiveDictionary()); }

// The dump shows the archived entries under their archive keys.
void KSScheduledItem::writeJson(JsonWriter& json) const {
  const auto archive = archiveDictionary();
  json.key("entries");
  json.beginObject();
  for (const auto& [key, value] : archive->entries) {
    json.key(objectAs<String>(key)->text);
    if (auto number = objectAs<Number>(value)) {
      if (number->type == 'c') json.boolean(number->boolValue());
      else json.integer(number->int64Value());
    } else if (auto text = objectAs<String>(value)) {
      json.string(text->text);
    } else {
      json.object(value);
    }
  }
  json.endObject();
}

Expected<ObjectRef> KSScheduledItem::initWithCoder(Unarchiver& coder, const CalendarClock& clock) {
  auto item = std::make_shared<KSScheduledItem>(clock());
  auto archive = decodeArchivedDictionary(coder, "a scheduled item", true);
  if (!archive) return archive.error();
  if (*archive) item->applyArchiveDictionary(**archive);
  return ObjectRef{item};
}

void KSScheduledItem::applyArchiveDictionary(const Dictionary& archive) {
  const ArchivedValues values(archive, "a scheduled item");
  if (auto alias = values.objectOf<Data>(kAlias, "data")) setDocumentAlias(alias);
  if (auto path = values.textOf(kPath)) setDocumentPathName(path);
  if (auto text = values.textOf(kDescription)) setDescription(text);
  if (auto type = values.intOf(kType)) setScheduleType(*type);
  if (auto interval = values.doubleOf(kRepeatInterval)) applyLegacyRepeatInterval(*interval);
  if (auto date = values.objectOf<CalendarDate>(kStartDate, "a calendar date")) setStartDate(date);
  if (auto date = values.objectOf<CalendarDate>(kLastRunDate, "a calendar date")) setLastRunDate(date);
  if (auto v = values.boolOf(kRunOnce)) setRunOnce(*v);
  if (auto v = values.boolOf(kForceToRun)) setForceToRun(*v);
  if (auto v = values.boolOf(kActive)) setActive(*v);
  if (auto set = values.textOf(kMonths)) setScheduledMonths(set);
  if (auto set = values.textOf(kDaysOfMonth)) setScheduledDaysOfMonth(set);
  if (auto set = values.textOf(kDaysOfWeek)) setScheduledDaysOfWeek(set);
  if (auto set = values.textOf(kHours)) setScheduledHours(set);
  if (auto set = values.textOf(kMinutes)) setScheduledMinutes(set);
  if (auto v = values.intOf(kLeftMounts)) setScheduledLeftTargetMounts(*v);
  if (auto specifier = specifierOf(values, archive, kLeftSpecifier)) setLeftTargetVolumeSpecifier(specifier);
  if (auto v = values.intOf(kRightMounts)) setScheduledRightTargetMounts(*v);
  if (auto specifier = specifierOf(values, archive, kRightSpecifier)) setRightTargetVolumeSpecifier(specifier);
  if (auto info = values.objectOf<Dictionary>(kLastSynchInfo, "a dictionary")) setLastSynchInfo(info);
}

// The older form stored a repeat interval in minutes: minutes 0, r, 2r, ...
// up to 60 (60 itself meaning minute 0) are added to the minute set as it
// stands. An interval that cannot advance (below 1, negative, not a number)
// would never end the walk; only its first minute is taken.
void KSScheduledItem::applyLegacyRepeatInterval(double minutes) {
  if (minutes == 0.0) {
    selectMinute(0);
    return;
  }
  double m = std::trunc(minutes);
  while (m >= 0 && m <= 60) {
    selectMinute(m == 60 ? 0 : static_cast<std::uint32_t>(m));
    const double next = std::trunc(m + minutes);
    if (!(next > m)) break;
    m = next;
  }
}

void registerScheduleClasses(ClassRegistry& registry, CalendarClock clock) {
  registry.add("KSScheduledItem", [clock = std::move(clock)](Unarchiver& coder, const ClassChain&) {
    return KSScheduledItem::initWithCoder(coder, clock);
  });
}

}  // namespace halyard
