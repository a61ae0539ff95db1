#pragma once
// KSScheduledItem: one entry of the schedule. It names a synchronisation
// document, holds a cron-like pattern of five selection sets ("0"/"1"
// strings: months 12, days of month 31, days of week 7 from Sunday, hours 24,
// minutes 60; month and day of month count from 0), a schedule type, the
// volume-mount triggers and a few run-state flags. It is a plain model object
// that archives as one dictionary ("one dictionary per object").
//
// Only a copy has a lock. Items made new or decoded have none, and their
// locked accessors run unguarded by any lock (but still inside the exception
// guard, which logs "<Error:> Exception caught in <selector>").
//
//   auto item = std::make_shared<KSScheduledItem>(currentDate);
//   item->selectEveryDayOfMonth();
//   auto next = item->nextScheduledDateAfter(std::nullopt, std::nullopt, now, zone);

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <cctz/time_zone.h>

#include "foundation/class_registry.h"
#include "foundation/dates.h"
#include "foundation/values.h"
#include "schedule/run_dates.h"
#include "schedule/schedule_type.h"

namespace halyard {

class Unarchiver;

// The main application's synchronizer object. The agent never attaches one;
// an item only holds it and shares it with its copies.
class KSSynchronizer {
 public:
  virtual ~KSSynchronizer() = default;
};

// A range of a selection set: `length` characters from `location`.
struct SetRange {
  std::size_t location = 0;
  std::size_t length = 0;
};

// The present moment as a calendar date in the user's zone: what a new item
// takes as its start date.
using CalendarClock = std::function<std::shared_ptr<CalendarDate>()>;

class KSScheduledItem final : public Object {
 public:
  using SetString = std::optional<std::string>;

  // A new item with every default; `now` becomes its start date.
  explicit KSScheduledItem(std::shared_ptr<CalendarDate> now);
  // An item being read from an archive: its defaults are filled in after the
  // archived values, for the fields the archive does not give, so a schedule
  // file read at every check makes each value once. Only initWithCoder: can
  // make the key.
  class ArchiveKey {
    friend class KSScheduledItem;
    ArchiveKey() = default;
  };
  explicit KSScheduledItem(ArchiveKey) {}
  // copyWithZone: the copy has its own lock and set strings; the synchronizer
  // is shared.
  KSScheduledItem(const KSScheduledItem& other);
  KSScheduledItem& operator=(const KSScheduledItem&) = delete;
  std::shared_ptr<KSScheduledItem> copyWithZone() const { return std::make_shared<KSScheduledItem>(*this); }

  void setToDefaults(std::shared_ptr<CalendarDate> now);

  // ---- accessors that take no lock ----
  std::shared_ptr<std::recursive_mutex> lock() const { return _lock; }
  void setLock(std::shared_ptr<std::recursive_mutex> lock) { _lock = std::move(lock); }
  std::shared_ptr<Data> documentAlias() const { return _documentAlias; }
  // Stores the alias and sets the path to where the alias leads now.
  void setDocumentAlias(std::shared_ptr<Data> alias);
  const std::optional<std::string>& documentPathName() const { return _documentPathName; }
  void setDocumentPathName(std::optional<std::string> path);
  const std::optional<std::string>& description() const { return _description; }
  void setDescription(std::optional<std::string> description);
  std::int32_t scheduleType() const { return _scheduleType; }
  void setScheduleType(std::int32_t type) { _scheduleType = type; }
  // The type number as the agent reads it.
  ScheduleType type() const { return scheduleTypeFromNumber(_scheduleType); }
  void setType(ScheduleType type) { _scheduleType = scheduleTypeNumber(type); }
  std::shared_ptr<const CalendarDate> startDate() const { return _startDate; }
  void setStartDate(const std::shared_ptr<const CalendarDate>& date) { _startDate = copyOf(date); }
  std::shared_ptr<const CalendarDate> lastRunDate() const { return _lastRunDate; }
  void setLastRunDate(const std::shared_ptr<const CalendarDate>& date) { _lastRunDate = copyOf(date); }
  bool runOnce() const { return _runOnce; }
  void setRunOnce(bool v) { _runOnce = v; }
  bool active() const { return _active; }
  void setActive(bool v) { _active = v; }
  bool forceToRun() const { return _forceToRun; }
  void setForceToRun(bool v) { _forceToRun = v; }
  bool forceActive() const { return _forceActive; }
  void setForceActive(bool v) { _forceActive = v; }
  bool isRunning() const { return _isRunning; }
  void setIsRunning(bool v) { _isRunning = v; }
  bool isComplete() const { return _isComplete; }
  void setIsComplete(bool v) { _isComplete = v; }
  std::int32_t scheduledLeftTargetMounts() const { return _scheduledLeftTargetMounts; }
  void setScheduledLeftTargetMounts(std::int32_t v) { _scheduledLeftTargetMounts = v; }
  std::int32_t scheduledRightTargetMounts() const { return _scheduledRightTargetMounts; }
  void setScheduledRightTargetMounts(std::int32_t v) { _scheduledRightTargetMounts = v; }

  // ---- locked accessors ----
  // The set getters answer the item's own string (null when absent, or when
  // the guard caught an exception); the selection operations edit it in place.
  std::string* scheduledMonths();
  const std::string* scheduledMonths() const;
  void setScheduledMonths(SetString months);
  std::string* scheduledDaysOfMonth();
  const std::string* scheduledDaysOfMonth() const;
  void setScheduledDaysOfMonth(SetString days);
  std::string* scheduledDaysOfWeek();
  const std::string* scheduledDaysOfWeek() const;
  void setScheduledDaysOfWeek(SetString days);
  std::string* scheduledHours();
  const std::string* scheduledHours() const;
  void setScheduledHours(SetString hours);
  std::string* scheduledMinutes();
  const std::string* scheduledMinutes() const;
  void setScheduledMinutes(SetString minutes);
  // Volume specifiers, carried as the archived objects they were read as.
  ObjectRef leftTargetVolumeSpecifier() const;
  void setLeftTargetVolumeSpecifier(ObjectRef specifier);
  ObjectRef rightTargetVolumeSpecifier() const;
  void setRightTargetVolumeSpecifier(ObjectRef specifier);
  std::shared_ptr<KSSynchronizer> synchronizer() const;
  void setSynchronizer(std::shared_ptr<KSSynchronizer> synchronizer);
  std::shared_ptr<Dictionary> lastSynchInfo() const;
  void setLastSynchInfo(std::shared_ptr<Dictionary> info);

  // ---- generic selection operations (no lock; a null set is absent) ----
  // An index or range beyond the set's end throws std::out_of_range.
  static void markRange(SetRange range, std::string* set);
  static void clearRange(SetRange range, std::string* set);
  static void markItem(std::uint32_t index, std::string* set);
  static void clearItem(std::uint32_t index, std::string* set);
  static bool rangeIsMarked(SetRange range, const std::string* set);
  static bool rangeIsCleared(SetRange range, const std::string* set);
  static bool itemIsMarked(std::uint32_t index, const std::string* set);
  static void markAllItems(std::string* set);
  static void clearAllItems(std::string* set);
  static bool allItemsAreMarked(const std::string* set);
  static bool allItemsAreCleared(const std::string* set);

  // ---- per-set operations ----
  void selectMonth(std::uint32_t i) { markItem(i, scheduledMonths()); }
  void clearMonth(std::uint32_t i) { clearItem(i, scheduledMonths()); }
  bool monthIsSelected(std::uint32_t i) const { return itemIsMarked(i, scheduledMonths()); }
  void selectEveryMonth() { markAllItems(scheduledMonths()); }
  void clearEveryMonth() { clearAllItems(scheduledMonths()); }
  bool everyMonthIsSelected() const { return allItemsAreMarked(scheduledMonths()); }
  bool noMonthIsSelected() const { return allItemsAreCleared(scheduledMonths()); }

  void selectDayOfMonth(std::uint32_t i) { markItem(i, scheduledDaysOfMonth()); }
  void clearDayOfMonth(std::uint32_t i) { clearItem(i, scheduledDaysOfMonth()); }
  bool dayOfMonthIsSelected(std::uint32_t i) const { return itemIsMarked(i, scheduledDaysOfMonth()); }
  void selectEveryDayOfMonth() { markAllItems(scheduledDaysOfMonth()); }
  void clearEveryDayOfMonth() { clearAllItems(scheduledDaysOfMonth()); }
  bool everyDayOfMonthIsSelected() const { return allItemsAreMarked(scheduledDaysOfMonth()); }
  bool noDayOfMonthIsSelected() const { return allItemsAreCleared(scheduledDaysOfMonth()); }

  void selectDayOfWeek(std::uint32_t i) { markItem(i, scheduledDaysOfWeek()); }
  void clearDayOfWeek(std::uint32_t i) { clearItem(i, scheduledDaysOfWeek()); }
  bool dayOfWeekIsSelected(std::uint32_t i) const { return itemIsMarked(i, scheduledDaysOfWeek()); }
  void selectEveryDayOfWeek() { markAllItems(scheduledDaysOfWeek()); }
  void clearEveryDayOfWeek() { clearAllItems(scheduledDaysOfWeek()); }
  bool everyDayOfWeekIsSelected() const { return allItemsAreMarked(scheduledDaysOfWeek()); }
  bool noDayOfWeekIsSelected() const { return allItemsAreCleared(scheduledDaysOfWeek()); }

  void selectHour(std::uint32_t i) { markItem(i, scheduledHours()); }
  void clearHour(std::uint32_t i) { clearItem(i, scheduledHours()); }
  bool hourIsSelected(std::uint32_t i) const { return itemIsMarked(i, scheduledHours()); }
  void selectEveryHour() { markAllItems(scheduledHours()); }
  void clearEveryHour() { clearAllItems(scheduledHours()); }
  bool everyHourIsSelected() const { return allItemsAreMarked(scheduledHours()); }
  bool noHourIsSelected() const { return allItemsAreCleared(scheduledHours()); }

  void selectMinute(std::uint32_t i) { markItem(i, scheduledMinutes()); }
  void clearMinute(std::uint32_t i) { clearItem(i, scheduledMinutes()); }
  bool minuteIsSelected(std::uint32_t i) const { return itemIsMarked(i, scheduledMinutes()); }
  void selectEveryMinute() { markAllItems(scheduledMinutes()); }
  void clearEveryMinute() { clearAllItems(scheduledMinutes()); }
  bool everyMinuteIsSelected() const { return allItemsAreMarked(scheduledMinutes()); }
  bool noMinuteIsSelected() const { return allItemsAreCleared(scheduledMinutes()); }

  // ---- run dates (civil fields read in `zone`; `now` is the present) ----
  // What the run-date searches read of the item, taken under its lock.
  RunPattern runPattern() const;
  std::optional<TimeInterval> nextScheduledDateAfter(std::optional<TimeInterval> after,
                                                     std::optional<TimeInterval> before, TimeInterval now,
                                                     const cctz::time_zone& zone) const;
  std::optional<TimeInterval> previousScheduledDateBefore(std::optional<TimeInterval> before,
                                                          std::optional<TimeInterval> after, TimeInterval now,
                                                          const cctz::time_zone& zone) const;

  // ---- coding (scheduled_item_coding.cpp) ----
  ClassChain archiveClassChain() const override;
  // Writes the archived dictionary as one object.
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;
  // The dictionary that encodeWithCoder: writes: present-only keys in order.
  std::shared_ptr<Dictionary> archiveDictionary() const;
  // Defaults (start date from `clock`), then the archived values.
  static Expected<ObjectRef> initWithCoder(Unarchiver& coder, const CalendarClock& clock);

  // Test seam: called with the selector's name inside every exception guard,
  // so tests can make the guarded body fail.
  void setGuardFaultForTesting(std::function<void(std::string_view selector)> fault) { guardFault_ = std::move(fault); }

 private:
  // The item's lock, held (nothing when the item has none). The reference
  // keeps the mutex alive even if setLock: replaces it meanwhile.
  struct LockHold {
    std::shared_ptr<std::recursive_mutex> lock;
    std::unique_lock<std::recursive_mutex> hold;
  };
  LockHold holdLock() const;
  template <class Body>
  auto guarded(const char* selector, Body&& body) const;
  // The selection-set text of a field, read under the lock (null when unset).
  const std::string* lockedSelectionSet(SetString KSScheduledItem::*field, const char* selector) const;
  template <class T>
  T lockedGet(T KSScheduledItem::*field, const char* selector) const;
  template <class T>
  void lockedSet(T KSScheduledItem::*field, T value, const char* selector);
  // The archived dictionary's values, by key (scheduled_item_coding.cpp).
  struct ArchivedEntries;
  // Applies them through the setters, in a fixed order of keys.
  void applyArchivedEntries(const ArchivedEntries& entries);
  void applyLegacyRepeatInterval(double minutes);
  // The defaults of the text fields the archive left unset.
  void fillUnarchivedDefaults();
  static std::shared_ptr<CalendarDate> copyOf(const std::shared_ptr<const CalendarDate>& date);

  std::shared_ptr<std::recursive_mutex> _lock;
  std::shared_ptr<Data> _documentAlias;
  std::optional<std::string> _documentPathName;
  std::optional<std::string> _description;
  std::int32_t _scheduleType = 0;
  std::shared_ptr<CalendarDate> _startDate;
  std::shared_ptr<CalendarDate> _lastRunDate;
  bool _runOnce = false;
  bool _active = false;
  bool _forceToRun = false;
  SetString _scheduledMonths;
  SetString _scheduledDaysOfMonth;
  SetString _scheduledDaysOfWeek;
  SetString _scheduledHours;
  SetString _scheduledMinutes;
  std::int32_t _scheduledLeftTargetMounts = 0;
  ObjectRef _leftTargetVolumeSpecifier;
  std::int32_t _scheduledRightTargetMounts = 0;
  ObjectRef _rightTargetVolumeSpecifier;
  std::shared_ptr<KSSynchronizer> _synchronizer;
  std::shared_ptr<Dictionary> _lastSynchInfo;
  bool _forceActive = false;
  bool _isRunning = false;
  bool _isComplete = false;
  std::function<void(std::string_view)> guardFault_;
};

// A list of scheduled items in the schedule's order: a schedule file's
// contents, a beat's due list, the items parked for a launch.
using ScheduleItems = std::vector<std::shared_ptr<KSScheduledItem>>;

// Adds the decoder of KSScheduledItem; `clock` gives the start date of items
// whose archive holds none.
void registerScheduleClasses(ClassRegistry& registry, CalendarClock clock);

}  // namespace halyard
