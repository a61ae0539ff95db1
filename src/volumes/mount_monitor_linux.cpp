// The mount monitor on libmount: the kernel's mount table (mountinfo)
// signals every mount and unmount; each signal is followed by a fresh read
// of the table, compared with the volumes known before.

#include <libmount/libmount.h>
#include <poll.h>

#include <cerrno>
#include <cstring>

#include "foundation/unique_handle.h"
#include "volumes/mount_monitor.h"
#include "volumes/volume_mounts.h"

namespace halyard {

Expected<std::unique_ptr<MountMonitor>> MountMonitor::open(std::shared_ptr<const VolumeQueries> queries) {
  UniqueHandle<CPointer<libmnt_monitor, mnt_unref_monitor>> monitor(mnt_new_monitor());
  if (!monitor) return makeError("cannot make a mount monitor");
  if (mnt_monitor_enable_kernel(monitor.get(), 1) != 0) return makeError("cannot watch the kernel's mount table");
  const int fd = mnt_monitor_get_fd(monitor.get());
  if (fd < 0) return makeError(std::string("cannot open the mount monitor: ") + std::strerror(-fd));
  return std::unique_ptr<MountMonitor>(new MountMonitor(monitor.release(), fd, std::move(queries)));
}

MountMonitor::MountMonitor(libmnt_monitor* monitor, int fd, std::shared_ptr<const VolumeQueries> queries)
    : monitor_(monitor), fd_(fd), queries_(std::move(queries)), known_(localVolumeMounts(queries_->mountTable())) {}

MountMonitor::~MountMonitor() { mnt_unref_monitor(monitor_); }

std::vector<std::string> MountMonitor::takeNewMountPoints() {
  while (mnt_monitor_next_change(monitor_, nullptr, nullptr) == 0) {
  }
  std::vector<MountEntry> current = localVolumeMounts(queries_->mountTable());
  std::vector<std::string> paths;
  for (const MountEntry& entry : newlyMountedVolumes(known_, current)) paths.push_back(entry.mountPoint);
  known_ = std::move(current);
  return paths;
}

bool MountMonitor::waitForChange(int timeoutMs) const {
  pollfd watched{fd_, POLLIN, 0};
  int ready;
  do {
    ready = ::poll(&watched, 1, timeoutMs);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

}  // namespace halyard
