#pragma once
// StatusService: the agent's own object on the session bus, under its agent
// name, answering Status() with what `halyardctl status` prints: uptime,
// version, scheduler state, schedule file and item count, the last check,
// the worst and median beat lateness and check time of the last hour, and
// whether wake-to-sync is on or the RTC cannot wake the machine.

#include <functional>

#include <QDBusConnection>
#include <QObject>
#include <QVariantMap>

#include "agent/halyard_daemon.h"

namespace halyard::agent {

inline constexpr char kAgentBusName[] = "com.vantrel.halyard.Backgrounder";
inline constexpr char kAgentObjectPath[] = "/com/vantrel/halyard/Backgrounder";
inline constexpr char kAgentInterface[] = "com.vantrel.halyard.Backgrounder";

// The keys of the Status() map; times are seconds (doubles), the last check
// date is seconds since the reference date. A figure not yet measured is absent.
namespace status_keys {
inline constexpr char kVersion[] = "version";
inline constexpr char kUptime[] = "uptime";
inline constexpr char kSchedulerActive[] = "schedulerActive";
inline constexpr char kScheduleFile[] = "scheduleFile";
inline constexpr char kItemCount[] = "itemCount";
inline constexpr char kLastCheckMode[] = "lastCheckMode";
inline constexpr char kLastCheckDate[] = "lastCheckDate";
inline constexpr char kWorstBeatLateness[] = "worstBeatLateness";
inline constexpr char kMedianBeatLateness[] = "medianBeatLateness";
inline constexpr char kWorstCheckTime[] = "worstCheckTime";
inline constexpr char kMedianCheckTime[] = "medianCheckTime";
inline constexpr char kWakeToSynch[] = "wakeToSynch";
inline constexpr char kWakeAlarmProblem[] = "wakeAlarmProblem";  // absent while the RTC is not known to fail
}  // namespace status_keys

// "missed", "new", "mounted-volume" or "none".
const char* heartbeatModeName(HeartbeatMode mode);

// The Status() map of a status.
QVariantMap statusMap(const AgentStatus& status);

class StatusService final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "com.vantrel.halyard.Backgrounder")
 public:
  explicit StatusService(std::function<AgentStatus()> status) : status_(std::move(status)) {}
  // Exports the object on `connection`; false when the path is taken.
  bool exportOn(QDBusConnection connection);

 public Q_SLOTS:
  QVariantMap Status() const { return statusMap(status_()); }

 private:
  std::function<AgentStatus()> status_;
};

}  // namespace halyard::agent
