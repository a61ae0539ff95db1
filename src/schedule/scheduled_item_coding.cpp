// The archived form of a scheduled item: one dictionary, written with
// present-only keys in a fixed order, read back through the setters. No
// version is written or read; old forms are told by the keys they hold.

#include <array>
#include <cmath>
#include <string_view>

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

// The keys the item reads, in the order their values are applied.
enum Key : std::size_t {
  kAliasKey,
  kPathKey,
  kDescriptionKey,
  kTypeKey,
  kRepeatIntervalKey,
  kStartDateKey,
  kLastRunDateKey,
  kRunOnceKey,
  kForceToRunKey,
  kActiveKey,
  kMonthsKey,
  kDaysOfMonthKey,
  kDaysOfWeekKey,
  kHoursKey,
  kMinutesKey,
  kLeftMountsKey,
  kLeftSpecifierKey,
  kRightMountsKey,
  kRightSpecifierKey,
  kLastSynchInfoKey,
  kKeyCount
};

constexpr std::array<std::string_view, kKeyCount> kKeyNames = {
    kAlias,   kPath,       kDescription,   kType,        kRepeatInterval, kStartDate,     kLastRunDate,
    kRunOnce, kForceToRun, kActive,        kMonths,      kDaysOfMonth,    kDaysOfWeek,    kHours,
    kMinutes, kLeftMounts, kLeftSpecifier, kRightMounts, kRightSpecifier, kLastSynchInfo,
};

// The keys by the length of their names: every entry of every item is
// looked up, and no more than two names share a length.
using KeysByLength = std::array<std::array<std::int8_t, 2>, 32>;
constexpr KeysByLength kKeysByLength = [] {
  KeysByLength table{};
  for (auto& candidates : table) candidates = {-1, -1};
  for (std::size_t k = 0; k < kKeyCount; ++k) {
    auto& candidates = table[kKeyNames[k].size()];
    (candidates[0] < 0 ? candidates[0] : candidates[1]) = static_cast<std::int8_t>(k);
  }
  return table;
}();
constexpr bool everyKeyIsFound() {
  for (std::size_t k = 0; k < kKeyCount; ++k) {
    const auto& candidates = kKeysByLength[kKeyNames[k].size()];
    if (candidates[0] != static_cast<std::int8_t>(k) && candidates[1] != static_cast<std::int8_t>(k)) return false;
  }
  return true;
}
static_assert(everyKeyIsFound(), "more than two key names share a length");

// A volume specifier is whatever object archives as class VolumeSpecifier.
ObjectRef specifierOf(const ArchivedValues& values, const ObjectView& value, const char* key) {
  if (value.kind == ObjectView::Kind::Nil) return nullptr;
  if (value.object) {
    const ClassChain chain = value.object->archiveClassChain();
    if (!chain.empty() && chain.front().name == "VolumeSpecifier") return value.object;
  }
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

// The first value of each known key, as a dictionary lookup would find it.
struct KSScheduledItem::ArchivedEntries {
  std::array<ObjectView, kKeyCount> values;
  std::array<bool, kKeyCount> seen{};

  void add(std::string_view key, const ObjectView& value) {
    if (key.size() >= kKeysByLength.size()) return;
    for (const std::int8_t k : kKeysByLength[key.size()]) {
      if (k < 0 || key != kKeyNames[static_cast<std::size_t>(k)]) continue;
      if (!seen[static_cast<std::size_t>(k)]) values[static_cast<std::size_t>(k)] = value;
      seen[static_cast<std::size_t>(k)] = true;
      return;
    }
  }
  const ObjectView& operator[](Key key) const { return values[key]; }
};

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

// The dictionary's entries are read as views: no object is made for its
// keys, strings and numbers. Defaults are filled in for what the archive
// does not give; the start date is the only one that asks the clock, so the
// clock is asked only for an item archived without one.
Expected<ObjectRef> KSScheduledItem::initWithCoder(Unarchiver& coder, const CalendarClock& clock) {
  auto item = std::make_shared<KSScheduledItem>(ArchiveKey());
  item->_scheduleType = scheduleTypeNumber(ScheduleType::Weekly);
  item->_active = true;
  ArchivedEntries entries;
  const std::size_t at = coder.offset();
  auto archive = coder.decodeDictionaryEntries(
      [&entries](std::string_view key, const ObjectView& value) { entries.add(key, value); });
  if (!archive) return archive.error();
  if (archive->kind != ObjectView::Kind::Dictionary && archive->kind != ObjectView::Kind::Nil) {
    return coder.failureAt(at, "a scheduled item holds " + archive->className() + ", not a dictionary");
  }
  item->applyArchivedEntries(entries);
  item->fillUnarchivedDefaults();
  if (!item->_startDate) item->_startDate = clock();
  return ObjectRef{item};
}

void KSScheduledItem::applyArchivedEntries(const ArchivedEntries& entries) {
  const ArchivedValues values("a scheduled item");
  if (auto alias = values.objectOf<Data>(kAlias, entries[kAliasKey], "data")) setDocumentAlias(alias);
  if (auto path = values.textOf(kPath, entries[kPathKey])) setDocumentPathName(std::move(path));
  if (auto text = values.textOf(kDescription, entries[kDescriptionKey])) setDescription(std::move(text));
  if (auto type = values.intOf(kType, entries[kTypeKey])) setScheduleType(*type);
  if (auto interval = values.doubleOf(kRepeatInterval, entries[kRepeatIntervalKey])) {
    fillUnarchivedDefaults();  // the interval adds to the minute set as it stands
    applyLegacyRepeatInterval(*interval);
  }
  const auto date = [&](const char* key, Key k) {
    return values.objectOf<CalendarDate>(key, entries[k], "a calendar date");
  };
  // The dates read are the item's own (no one changes a date in place), so
  // they are taken, not copied.
  if (auto start = date(kStartDate, kStartDateKey)) _startDate = std::move(start);
  if (auto lastRun = date(kLastRunDate, kLastRunDateKey)) _lastRunDate = std::move(lastRun);
  if (auto v = values.boolOf(kRunOnce, entries[kRunOnceKey])) setRunOnce(*v);
  if (auto v = values.boolOf(kForceToRun, entries[kForceToRunKey])) setForceToRun(*v);
  if (auto v = values.boolOf(kActive, entries[kActiveKey])) setActive(*v);
  if (auto set = values.textOf(kMonths, entries[kMonthsKey])) setScheduledMonths(std::move(set));
  if (auto set = values.textOf(kDaysOfMonth, entries[kDaysOfMonthKey])) setScheduledDaysOfMonth(std::move(set));
  if (auto set = values.textOf(kDaysOfWeek, entries[kDaysOfWeekKey])) setScheduledDaysOfWeek(std::move(set));
  if (auto set = values.textOf(kHours, entries[kHoursKey])) setScheduledHours(std::move(set));
  if (auto set = values.textOf(kMinutes, entries[kMinutesKey])) setScheduledMinutes(std::move(set));
  if (auto v = values.intOf(kLeftMounts, entries[kLeftMountsKey])) setScheduledLeftTargetMounts(*v);
  if (auto specifier = specifierOf(values, entries[kLeftSpecifierKey], kLeftSpecifier)) {
    setLeftTargetVolumeSpecifier(specifier);
  }
  if (auto v = values.intOf(kRightMounts, entries[kRightMountsKey])) setScheduledRightTargetMounts(*v);
  if (auto specifier = specifierOf(values, entries[kRightSpecifierKey], kRightSpecifier)) {
    setRightTargetVolumeSpecifier(specifier);
  }
  const auto info = values.objectOf<Dictionary>(kLastSynchInfo, entries[kLastSynchInfoKey], "a dictionary");
  if (info) setLastSynchInfo(info);
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
