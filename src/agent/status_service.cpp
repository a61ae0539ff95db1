#include "agent/status_service.h"

namespace halyard::agent {

namespace {
void insertIfKnown(QVariantMap& map, const char* key, const std::optional<TimeInterval>& value) {
  if (value) map.insert(key, *value);
}
}  // namespace

const char* heartbeatModeName(HeartbeatMode mode) {
  switch (mode) {
    case HeartbeatMode::Missed:
      return "missed";
    case HeartbeatMode::New:
      return "new";
    case HeartbeatMode::MountedVolume:
      return "mounted-volume";
    case HeartbeatMode::None:
      break;
  }
  return "none";
}

QVariantMap statusMap(const AgentStatus& status) {
  using namespace status_keys;
  QVariantMap map{{kVersion, kAgentVersion},
                  {kUptime, status.uptime},
                  {kSchedulerActive, status.schedulerActive},
                  {kScheduleFile, QString::fromStdString(status.scheduleFile)},
                  {kLastCheckMode, heartbeatModeName(status.lastCheckMode)},
                  {kWakeToSynch, status.wakeToSynch}};
  if (status.wakeAlarmProblem) map.insert(kWakeAlarmProblem, QString::fromStdString(*status.wakeAlarmProblem));
  if (status.itemCount) map.insert(kItemCount, static_cast<qulonglong>(*status.itemCount));
  insertIfKnown(map, kLastCheckDate, status.lastCheckDate);
  insertIfKnown(map, kWorstBeatLateness, status.worstBeatLateness);
  insertIfKnown(map, kMedianBeatLateness, status.medianBeatLateness);
  insertIfKnown(map, kWorstCheckTime, status.worstCheckTime);
  insertIfKnown(map, kMedianCheckTime, status.medianCheckTime);
  return map;
}

bool StatusService::exportOn(QDBusConnection connection) {
  return connection.registerObject(kAgentObjectPath, this, QDBusConnection::ExportAllSlots);
}

}  // namespace halyard::agent
