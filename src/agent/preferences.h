#pragma once
// Preferences: the user defaults shared with the main application, an INI
// file read and written through QSettings. Every write is synchronised at
// once so that the main application sees it.

#include <optional>

#include <QSettings>
#include <QString>

namespace halyard::agent {

namespace prefs {
inline constexpr char kSchedulerActive[] = "SchedulerActivePrefKey";
inline constexpr char kShowStatusMenu[] = "ShowStatusMenuPrefKey";
inline constexpr char kWakeSystemToSynch[] = "prefWakeSystemToSynchKey";
// Beyond the main application's keys, both off unless the user turns them on.
inline constexpr char kExactlyOnceScheduling[] = "ExactlyOnceSchedulingPrefKey";
inline constexpr char kCatchUpMissedRuns[] = "CatchUpMissedRunsPrefKey";
}  // namespace prefs

class Preferences {
 public:
  explicit Preferences(const QString& filePath);

  // $XDG_CONFIG_HOME/vantrel/halyard.conf ($HOME/.config when unset).
  static QString defaultFilePath();

  // Absent when the key has no value.
  std::optional<bool> boolValue(const char* key);
  // A plain boolean read: false when absent.
  bool boolForKey(const char* key) { return boolValue(key).value_or(false); }
  void setBool(const char* key, bool value);

 private:
  QSettings settings_;
};

}  // namespace halyard::agent
