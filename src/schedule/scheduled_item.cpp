#include "schedule/scheduled_item.h"

#include <algorithm>
#include <stdexcept>

#include "fileservices/document_alias.h"
#include "foundation/exception_guard.h"
#include "foundation/strings_table.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

// Specifiers are carried as the objects they were read as; an object kept
// as read is copied member by member, like the specifier's own copy.
ObjectRef copyArchivedObject(const ObjectRef& object) {
  if (auto specifier = objectAs<VolumeSpecifier>(object)) return specifier->copyWithZone();
  if (auto generic = objectAs<GenericObject>(object)) return std::make_shared<GenericObject>(*generic);
  return object;
}

void checkRange(const std::string& set, SetRange range) {
  if (range.location > set.size() || range.length > set.size() - range.location) {
    throw std::out_of_range("range beyond the end of a selection set");
  }
}

void fillRange(SetRange range, std::string* set, char c) {
  if (!set || range.length == 0) return;
  checkRange(*set, range);
  set->replace(range.location, range.length, range.length, c);
}

bool rangeIsAll(SetRange range, const std::string* set, char c) {
  if (!set || range.length == 0) return false;
  checkRange(*set, range);
  const auto begin = set->begin() + static_cast<std::ptrdiff_t>(range.location);
  return std::all_of(begin, begin + static_cast<std::ptrdiff_t>(range.length), [c](char x) { return x == c; });
}

}  // namespace

// ---- the exception guard of the locked accessors ----

KSScheduledItem::LockHold KSScheduledItem::holdLock() const {
  LockHold held{_lock, {}};
  if (held.lock) held.hold = std::unique_lock(*held.lock);
  return held;
}

template <class Body>
auto KSScheduledItem::guarded(const char* selector, Body&& body) const {
  const LockHold held = holdLock();  // held through the body and the guard's log line
  return runGuarded(selector, guardFault_, std::forward<Body>(body));
}

KSScheduledItem::KSScheduledItem(std::shared_ptr<CalendarDate> now) { setToDefaults(std::move(now)); }

KSScheduledItem::KSScheduledItem(const KSScheduledItem& other)
    : Object(other),
      _documentAlias(other._documentAlias ? std::make_shared<Data>(*other._documentAlias) : nullptr),
      _documentPathName(other._documentPathName),
      _description(other._description),
      _scheduleType(other._scheduleType),
      _startDate(copyOf(other._startDate)),
      _lastRunDate(copyOf(other._lastRunDate)),
      _runOnce(other._runOnce),
      _active(other._active),
      _forceToRun(other._forceToRun),
      _scheduledMonths(other._scheduledMonths),
      _scheduledDaysOfMonth(other._scheduledDaysOfMonth),
      _scheduledDaysOfWeek(other._scheduledDaysOfWeek),
      _scheduledHours(other._scheduledHours),
      _scheduledMinutes(other._scheduledMinutes),
      _scheduledLeftTargetMounts(other._scheduledLeftTargetMounts),
      _leftTargetVolumeSpecifier(copyArchivedObject(other._leftTargetVolumeSpecifier)),
      _scheduledRightTargetMounts(other._scheduledRightTargetMounts),
      _rightTargetVolumeSpecifier(copyArchivedObject(other._rightTargetVolumeSpecifier)),
      _synchronizer(other._synchronizer),
      _lastSynchInfo(other._lastSynchInfo ? std::make_shared<Dictionary>(*other._lastSynchInfo) : nullptr),
      _forceActive(other._forceActive),
      _isRunning(other._isRunning),
      _isComplete(other._isComplete) {
  // The copy's own lock is made under the source's lock and guard.
  other.guarded("copyWithZone:", [this] { _lock = std::make_shared<std::recursive_mutex>(); });
}

namespace {

// The selection sets of a new item: every month, no day of the month,
// Monday to Friday, 8:00 to 20:00, at minute 0.
struct DefaultSets {
  std::string months = std::string(12, '1');
  std::string daysOfMonth = std::string(31, '0');
  std::string daysOfWeek = "0111110";
  std::string hours = "000000001111111111111000";
  std::string minutes = "1" + std::string(59, '0');
};

const DefaultSets& defaultSets() {
  static const DefaultSets sets;
  return sets;
}

}  // namespace

// One guard for all the fields: a new item is made for every item of a
// schedule file read at every check.
void KSScheduledItem::setToDefaults(std::shared_ptr<CalendarDate> now) {
  const DefaultSets& sets = defaultSets();
  std::string description = localizedString("NO_DESC");
  guarded("setToDefaults:", [&] {
    _documentAlias = nullptr;
    _documentPathName.reset();
    _description = std::move(description);
    _scheduleType = scheduleTypeNumber(ScheduleType::Weekly);
    _startDate = copyOf(now);
    _lastRunDate = nullptr;
    _runOnce = false;
    _active = true;
    _scheduledMonths = sets.months;
    _scheduledDaysOfMonth = sets.daysOfMonth;
    _scheduledDaysOfWeek = sets.daysOfWeek;
    _scheduledHours = sets.hours;
    _scheduledMinutes = sets.minutes;
    _scheduledLeftTargetMounts = 0;
    _leftTargetVolumeSpecifier = nullptr;
    _scheduledRightTargetMounts = 0;
    _rightTargetVolumeSpecifier = nullptr;
    _synchronizer = nullptr;
  });
}

// The other defaults of an item read from an archive are those its fields
// start with (inactive aside, set before the archived values).
void KSScheduledItem::fillUnarchivedDefaults() {
  const DefaultSets& sets = defaultSets();
  if (!_description) _description = localizedString("NO_DESC");
  if (!_scheduledMonths) _scheduledMonths = sets.months;
  if (!_scheduledDaysOfMonth) _scheduledDaysOfMonth = sets.daysOfMonth;
  if (!_scheduledDaysOfWeek) _scheduledDaysOfWeek = sets.daysOfWeek;
  if (!_scheduledHours) _scheduledHours = sets.hours;
  if (!_scheduledMinutes) _scheduledMinutes = sets.minutes;
}

std::shared_ptr<CalendarDate> KSScheduledItem::copyOf(const std::shared_ptr<const CalendarDate>& date) {
  return date ? std::make_shared<CalendarDate>(*date) : nullptr;
}

// ---- accessors that take no lock ----

void KSScheduledItem::setDocumentAlias(std::shared_ptr<Data> alias) {
  _documentAlias = std::move(alias);
  setDocumentPathName(fileservices::getNSPathFromAliasObject(_documentAlias, true));
}

void KSScheduledItem::setDocumentPathName(std::optional<std::string> path) {
  if (path != _documentPathName) _documentPathName = std::move(path);
}

void KSScheduledItem::setDescription(std::optional<std::string> description) {
  if (description != _description) _description = std::move(description);
}

const std::string* KSScheduledItem::lockedSelectionSet(SetString KSScheduledItem::*field, const char* selector) const {
  return guarded(selector, [&]() -> const std::string* {
    const SetString& set = this->*field;
    return set ? &*set : nullptr;
  });
}

template <class T>
T KSScheduledItem::lockedGet(T KSScheduledItem::*field, const char* selector) const {
  return guarded(selector, [&]() -> T { return this->*field; });
}

template <class T>
void KSScheduledItem::lockedSet(T KSScheduledItem::*field, T value, const char* selector) {
  guarded(selector, [&] { this->*field = std::move(value); });
}

// ---- locked accessors ----

std::string* KSScheduledItem::scheduledMonths() {
  return const_cast<std::string*>(lockedSelectionSet(&KSScheduledItem::_scheduledMonths, "scheduledMonths"));
}
const std::string* KSScheduledItem::scheduledMonths() const {
  return lockedSelectionSet(&KSScheduledItem::_scheduledMonths, "scheduledMonths");
}
void KSScheduledItem::setScheduledMonths(SetString v) {
  lockedSet(&KSScheduledItem::_scheduledMonths, std::move(v), "setScheduledMonths:");
}

std::string* KSScheduledItem::scheduledDaysOfMonth() {
  return const_cast<std::string*>(lockedSelectionSet(&KSScheduledItem::_scheduledDaysOfMonth, "scheduledDaysOfMonth"));
}
const std::string* KSScheduledItem::scheduledDaysOfMonth() const {
  return lockedSelectionSet(&KSScheduledItem::_scheduledDaysOfMonth, "scheduledDaysOfMonth");
}
void KSScheduledItem::setScheduledDaysOfMonth(SetString v) {
  lockedSet(&KSScheduledItem::_scheduledDaysOfMonth, std::move(v), "setScheduledDaysOfMonth:");
}

std::string* KSScheduledItem::scheduledDaysOfWeek() {
  return const_cast<std::string*>(lockedSelectionSet(&KSScheduledItem::_scheduledDaysOfWeek, "scheduledDaysOfWeek"));
}
const std::string* KSScheduledItem::scheduledDaysOfWeek() const {
  return lockedSelectionSet(&KSScheduledItem::_scheduledDaysOfWeek, "scheduledDaysOfWeek");
}
void KSScheduledItem::setScheduledDaysOfWeek(SetString v) {
  lockedSet(&KSScheduledItem::_scheduledDaysOfWeek, std::move(v), "setScheduledDaysOfWeek:");
}

std::string* KSScheduledItem::scheduledHours() {
  return const_cast<std::string*>(lockedSelectionSet(&KSScheduledItem::_scheduledHours, "scheduledHours"));
}
const std::string* KSScheduledItem::scheduledHours() const {
  return lockedSelectionSet(&KSScheduledItem::_scheduledHours, "scheduledHours");
}
void KSScheduledItem::setScheduledHours(SetString v) {
  lockedSet(&KSScheduledItem::_scheduledHours, std::move(v), "setScheduledHours:");
}

std::string* KSScheduledItem::scheduledMinutes() {
  return const_cast<std::string*>(lockedSelectionSet(&KSScheduledItem::_scheduledMinutes, "scheduledMinutes"));
}
const std::string* KSScheduledItem::scheduledMinutes() const {
  return lockedSelectionSet(&KSScheduledItem::_scheduledMinutes, "scheduledMinutes");
}
void KSScheduledItem::setScheduledMinutes(SetString v) {
  lockedSet(&KSScheduledItem::_scheduledMinutes, std::move(v), "setScheduledMinutes:");
}

ObjectRef KSScheduledItem::leftTargetVolumeSpecifier() const {
  return lockedGet(&KSScheduledItem::_leftTargetVolumeSpecifier, "leftTargetVolumeSpecifier");
}
void KSScheduledItem::setLeftTargetVolumeSpecifier(ObjectRef v) {
  lockedSet(&KSScheduledItem::_leftTargetVolumeSpecifier, std::move(v), "setLeftTargetVolumeSpecifier:");
}
ObjectRef KSScheduledItem::rightTargetVolumeSpecifier() const {
  return lockedGet(&KSScheduledItem::_rightTargetVolumeSpecifier, "rightTargetVolumeSpecifier");
}
void KSScheduledItem::setRightTargetVolumeSpecifier(ObjectRef v) {
  lockedSet(&KSScheduledItem::_rightTargetVolumeSpecifier, std::move(v), "setRightTargetVolumeSpecifier:");
}
std::shared_ptr<KSSynchronizer> KSScheduledItem::synchronizer() const {
  return lockedGet(&KSScheduledItem::_synchronizer, "synchronizer");
}
void KSScheduledItem::setSynchronizer(std::shared_ptr<KSSynchronizer> v) {
  lockedSet(&KSScheduledItem::_synchronizer, std::move(v), "setSynchronizer:");
}
std::shared_ptr<Dictionary> KSScheduledItem::lastSynchInfo() const {
  return lockedGet(&KSScheduledItem::_lastSynchInfo, "lastSynchInfo");
}
void KSScheduledItem::setLastSynchInfo(std::shared_ptr<Dictionary> v) {
  lockedSet(&KSScheduledItem::_lastSynchInfo, std::move(v), "setLastSynchInfo:");
}

// ---- generic selection operations ----

void KSScheduledItem::markRange(SetRange range, std::string* set) { fillRange(range, set, '1'); }
void KSScheduledItem::clearRange(SetRange range, std::string* set) { fillRange(range, set, '0'); }
void KSScheduledItem::markItem(std::uint32_t index, std::string* set) {
  if (set) set->at(index) = '1';
}
void KSScheduledItem::clearItem(std::uint32_t index, std::string* set) {
  if (set) set->at(index) = '0';
}
bool KSScheduledItem::rangeIsMarked(SetRange range, const std::string* set) { return rangeIsAll(range, set, '1'); }
bool KSScheduledItem::rangeIsCleared(SetRange range, const std::string* set) { return rangeIsAll(range, set, '0'); }
bool KSScheduledItem::itemIsMarked(std::uint32_t index, const std::string* set) { return set && set->at(index) == '1'; }
void KSScheduledItem::markAllItems(std::string* set) {
  if (set) markRange({0, set->size()}, set);
}
void KSScheduledItem::clearAllItems(std::string* set) {
  if (set) clearRange({0, set->size()}, set);
}
bool KSScheduledItem::allItemsAreMarked(const std::string* set) { return set && rangeIsMarked({0, set->size()}, set); }
bool KSScheduledItem::allItemsAreCleared(const std::string* set) {
  return set && rangeIsCleared({0, set->size()}, set);
}

// ---- run dates ----

RunPattern KSScheduledItem::runPattern() const {
  const LockHold held = holdLock();
  auto text = [](const std::string* set) { return set ? *set : std::string(); };
  RunPattern pattern;
  pattern.active = _active;
  if (_startDate) pattern.startDate = _startDate->seconds;
  pattern.months = text(scheduledMonths());
  pattern.daysOfMonth = text(scheduledDaysOfMonth());
  pattern.daysOfWeek = text(scheduledDaysOfWeek());
  pattern.hours = text(scheduledHours());
  pattern.minutes = text(scheduledMinutes());
  return pattern;
}

std::optional<TimeInterval> KSScheduledItem::nextScheduledDateAfter(std::optional<TimeInterval> after,
                                                                    std::optional<TimeInterval> before,
                                                                    TimeInterval now,
                                                                    const cctz::time_zone& zone) const {
  return halyard::nextScheduledDateAfter(runPattern(), after, before, now, zone);
}

std::optional<TimeInterval> KSScheduledItem::previousScheduledDateBefore(std::optional<TimeInterval> before,
                                                                         std::optional<TimeInterval> after,
                                                                         TimeInterval now,
                                                                         const cctz::time_zone& zone) const {
  return halyard::previousScheduledDateBefore(runPattern(), before, after, now, zone);
}

}  // namespace halyard
