#pragma once
// LibmountEventSource: the agent's mount events on Linux. It wraps the
// volumes library's mount monitor (libmount's watch of the kernel's mount
// table) in the event loop, and reports each newly appeared volume's mount
// point: only those mountedLocalVolumePaths lists, so pseudo file systems
// never trigger a check.

#include <memory>

#include <QSocketNotifier>

#include "agent/mount_event_source.h"
#include "foundation/expected.h"
#include "volumes/mount_monitor.h"

namespace halyard::agent {

class LibmountEventSource final : public MountEventSource {
 public:
  // Watches from now on; an error when libmount cannot watch the table.
  static Expected<std::unique_ptr<LibmountEventSource>> open(std::shared_ptr<const VolumeQueries> queries);

  void setHandler(Handler handler) override { handler_ = std::move(handler); }

 private:
  explicit LibmountEventSource(std::unique_ptr<MountMonitor> monitor);
  void mountTableChanged();

  std::unique_ptr<MountMonitor> monitor_;
  QSocketNotifier notifier_;
  Handler handler_;
};

}  // namespace halyard::agent
