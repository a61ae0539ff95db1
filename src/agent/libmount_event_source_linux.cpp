#include "agent/libmount_event_source.h"

namespace halyard::agent {

Expected<std::unique_ptr<LibmountEventSource>> LibmountEventSource::open(std::shared_ptr<const VolumeQueries> queries) {
  auto monitor = MountMonitor::open(std::move(queries));
  if (!monitor) return monitor.error();
  return std::unique_ptr<LibmountEventSource>(new LibmountEventSource(std::move(*monitor)));
}

LibmountEventSource::LibmountEventSource(std::unique_ptr<MountMonitor> monitor)
    : monitor_(std::move(monitor)), notifier_(monitor_->fd(), QSocketNotifier::Read) {
  QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this] { mountTableChanged(); });
}

// The table is read even without a receiver, so that mounts seen while no
// one listens are not reported later as new.
void LibmountEventSource::mountTableChanged() {
  for (const std::string& path : monitor_->takeNewMountPoints()) {
    if (handler_) handler_(path);
  }
}

}  // namespace halyard::agent
