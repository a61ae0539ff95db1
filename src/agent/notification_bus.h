#pragma once
// NotificationBus: the distributed notification centre shared by the agent
// and the main application. A notification is a name and a user-info map
// ("state" a boolean, "data" the bytes of an archive).

#include <functional>

#include <QString>
#include <QVariantMap>

namespace halyard::agent {

// Names of the notifications exchanged with the main application.
namespace notifications {
inline constexpr char kSchedulerStateChanged[] = "com.vantrel.halyard.scheduler_state_changed";
inline constexpr char kStatusMenuStateChanged[] = "com.vantrel.halyard.status_menu_state_changed";
inline constexpr char kWakeToSynchChange[] = "com.vantrel.halyard.WakeToSynchChange";
inline constexpr char kWakeToSynchUpdated[] = "com.vantrel.halyard.WakeToSynchUpdated";
inline constexpr char kAddScheduledItems[] = "VTHalyardAddScheduledItems";
inline constexpr char kBackgrounderShouldQuit[] = "VTHalyardBackgrounderShouldQuit";
inline constexpr char kSchedulerDidStart[] = "VTHalyardSchedulerDidStart";
inline constexpr char kShouldQuitWhenFinished[] = "VTHalyardShouldQuitWhenFinished";
inline constexpr char kStateKey[] = "state";
inline constexpr char kDataKey[] = "data";
}  // namespace notifications

class NotificationBus {
 public:
  using Handler = std::function<void(const QVariantMap& userInfo)>;
  virtual ~NotificationBus() = default;

  // Broadcasts a notification to every observer, this process's included.
  virtual void post(const QString& name, const QVariantMap& userInfo = {}) = 0;
  // Calls `handler` for each notification of that name, from any sender.
  virtual void observe(const void* observer, const QString& name, Handler handler) = 0;
  // Forgets every handler that `observer` registered.
  virtual void removeObserver(const void* observer) = 0;
};

}  // namespace halyard::agent
