// Job launching: handing due items to the running main application, or
// parking them in the monitor and starting the application in the background.

#include <cstring>
#include <filesystem>
#include <ostream>

#include "agent/desktop_entry.h"
#include "agent/halyard_daemon.h"
#include "agent/hand_over.h"
#include "foundation/file_io.h"
#include "foundation/log_sink.h"

namespace halyard::agent {

namespace {

// The main application's creator signature 'Hlyd'.
constexpr std::uint32_t kApplicationSignature = 0x486C7964;

// The signature's four bytes as they lie in memory ("dylH" on this processor).
std::string signatureBytes() {
  char bytes[sizeof kApplicationSignature];
  std::memcpy(bytes, &kApplicationSignature, sizeof bytes);
  return std::string(bytes, sizeof bytes);
}

bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

std::int16_t HalyardDaemon::launchJobs(const ScheduleItems& items) {
  std::int16_t status = env_.launcher.findApplication();
  if (status != launch_status::kProcessNotFound) {
    env_.bus.post(notifications::kAddScheduledItems, handOverUserInfo(asObjects(items)));
    return launch_status::kNoError;
  }
  // After shutdown() there is no monitor to park the items in; the launch still goes ahead.
  if (_notifyMonitor) {
    _notifyMonitor->setAddedItems(asObjects(items));
    _notifyMonitor->setLastLaunchTime(env_.clock.now());
  }
  for (const std::string& path : env_.paths.applicationPaths) {
    if (!exists(path)) continue;
    status = launchApplication(path, true);
    if (status == launch_status::kNoError) return status;
  }
  env_.launcher.activateApplication(whileAlive([this](std::int16_t activated) { reportActivation(activated); }));
  return launch_status::kNoError;
}

void HalyardDaemon::reportActivation(std::int16_t status) {
  std::ostream& out = standardOutput();
  const std::string signature = signatureBytes();
  if (status == launch_status::kFileNotFound || status == launch_status::kApplicationNotFound) {
    out << "No application with signature '" << signature << "' found.\n";
    const auto command = findDesktopEntryCommand(env_.paths.dataDirs);
    if (command) status = env_.launcher.launchProgram(*command, true);
    if (!command || status != launch_status::kNoError) out << "NSWorkspace failed, giving up!\n";
  } else if (status != launch_status::kNoError) {
    out << "Error " << status << " (signature '" << signature << "').\n";
  }
  out.flush();
}

std::int16_t HalyardDaemon::launchApplication(const std::string& path, bool inBackground) {
  if (!exists(path)) return launch_status::kFileNotFound;
  return env_.launcher.launchProgram({path}, inBackground);
}

void HalyardDaemon::launchHalyard() {
  if (auto recorded = readWholeFile(env_.paths.launchPathFile)) {
    const std::string path = trimmed(*recorded);
    if (!path.empty() && exists(path) && launchApplication(path, false) == launch_status::kNoError) return;
  }
  for (const std::string& path : env_.paths.applicationPaths) {
    if (exists(path) && launchApplication(path, false) == launch_status::kNoError) return;
  }
  if (const auto command = findDesktopEntryCommand(env_.paths.dataDirs)) {
    env_.launcher.launchProgram(*command, false);
  }
}

void HalyardDaemon::openSyncDocument(const KSScheduledItem& item, bool optionHeld) {
  if (optionHeld) {
    auto copy = item.copyWithZone();
    copy->setForceToRun(true);
    launchJobs({copy});
    return;
  }
  const auto& path = item.documentPathName();
  if (!path) return documentFailedToOpen("", -1);
  env_.launcher.openDocument(*path, whileAlive([this, path = *path](int exitStatus) {
    if (exitStatus != 0) documentFailedToOpen(path, exitStatus);
  }));
}

void HalyardDaemon::documentFailedToOpen(const std::string& path, int exitStatus) {
  logLine("<Error:> Could not open \"" + path + "\": the opener ended with status " + std::to_string(exitStatus),
          LogPriority::Error);
  if (env_.statusItem) env_.statusItem->beep();
}

}  // namespace halyard::agent
