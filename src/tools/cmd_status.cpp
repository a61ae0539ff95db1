// `halyardctl status`: asks the running agent over the session bus what it
// knows of itself and prints it: version and uptime, scheduler state, the
// schedule file and its item count, the last check, and how late its beats
// came and how long its checks took over the last hour (worst and median),
// and whether wake-to-sync is on or the RTC cannot wake the machine.

#include <cstdio>
#include <filesystem>
#include <iostream>

#include <QDBusArgument>
#include <QDBusMessage>

#include "agent/status_service.h"
#include "foundation/dates.h"
#include "tools/cmd_bus_common.h"
#include "tools/commands.h"

namespace halyard::tools {

namespace {

constexpr int kAnswerTimeoutMs = 5000;

std::string duration(double seconds) {
  const auto whole = static_cast<long long>(seconds);
  char text[64];
  std::snprintf(text, sizeof text, "%lldd %02lld:%02lld:%02lld", whole / 86400, whole / 3600 % 24, whole / 60 % 60,
                whole % 60);
  return text;
}

// "worst 12.3 ms, median 4.0 ms", or "not measured yet".
std::string worstAndMedian(const QVariantMap& status, const char* worstKey, const char* medianKey) {
  if (!status.contains(worstKey) || !status.contains(medianKey)) return "not measured yet";
  char text[96];
  std::snprintf(text, sizeof text, "worst %.1f ms, median %.1f ms", status.value(worstKey).toDouble() * 1000,
                status.value(medianKey).toDouble() * 1000);
  return text;
}

std::string lastCheck(const QVariantMap& status) {
  using namespace agent::status_keys;
  if (!status.contains(kLastCheckDate)) return "none yet";
  const TimeInterval at = status.value(kLastCheckDate).toDouble();
  return status.value(kLastCheckMode).toString().toStdString() + " at " + formatInstant(at, cctz::local_time_zone());
}

// "on", "off", or "off: the RTC cannot wake this machine (reason)".
std::string wakeToSynch(const QVariantMap& status) {
  using namespace agent::status_keys;
  if (status.contains(kWakeAlarmProblem))
    return "off: the RTC cannot wake this machine (" + status.value(kWakeAlarmProblem).toString().toStdString() + ")";
  return status.value(kWakeToSynch).toBool() ? "on" : "off";
}

void printStatus(const QVariantMap& status) {
  using namespace agent::status_keys;
  std::cout << "Halyard Backgrounder " << status.value(kVersion).toString().toStdString() << ", up "
            << duration(status.value(kUptime).toDouble()) << "\n";
  std::cout << "scheduler: " << (status.value(kSchedulerActive).toBool() ? "active" : "suspended") << "\n";
  const std::string schedule = status.value(kScheduleFile).toString().toStdString();
  std::error_code ignored;
  std::cout << "schedule: " << schedule << " ("
            << (status.contains(kItemCount) ? std::to_string(status.value(kItemCount).toULongLong()) + " item(s)"
                : std::filesystem::exists(schedule, ignored) ? std::string("not readable")
                                                             : std::string("no file yet"))
            << ")\n";
  std::cout << "last check: " << lastCheck(status) << "\n";
  std::cout << "beat lateness, last hour: " << worstAndMedian(status, kWorstBeatLateness, kMedianBeatLateness) << "\n";
  std::cout << "check time, last hour: " << worstAndMedian(status, kWorstCheckTime, kMedianCheckTime) << "\n";
  std::cout << "wake-to-sync: " << wakeToSynch(status) << "\n";
}

}  // namespace

int runStatus(const Arguments& args) {
  if (!args.empty()) {
    std::cerr << "usage: halyardctl status\n";
    return 2;
  }
  BusCommandApplication app;
  std::optional<QDBusConnection> session = connectSessionBus();
  if (!session) return 1;
  const QDBusMessage call =
      QDBusMessage::createMethodCall(agent::kAgentBusName, agent::kAgentObjectPath, agent::kAgentInterface, "Status");
  const QDBusMessage reply = session->call(call, QDBus::Block, kAnswerTimeoutMs);
  if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
    std::cerr << "halyardctl: the agent does not answer (" << reply.errorMessage().toStdString() << ")\n";
    return 1;
  }
  printStatus(qdbus_cast<QVariantMap>(reply.arguments().first()));
  return 0;
}

}  // namespace halyard::tools
