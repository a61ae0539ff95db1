#pragma once
// MountMonitor: watches the kernel's mount table through libmount's monitor
// and reports the volumes that appear: each volume that mountedLocalVolumePaths
// lists now and that was mounted nowhere at the previous look, at its mount
// point (pseudo file systems, second mounts of a mounted file system, and a
// volume left at one of its mount points or moved never count). The owner
// waits on fd() in its event loop and calls takeNewMountPoints() when it
// becomes readable.
//
//   auto monitor = MountMonitor::open(linuxVolumeQueries());
//   if (monitor) loop.watch((*monitor)->fd(), [&] { for (auto& p : (*monitor)->takeNewMountPoints()) use(p); });

#include <memory>
#include <string>
#include <vector>

#include "foundation/expected.h"
#include "volumes/volume_queries.h"

struct libmnt_monitor;

namespace halyard {

class MountMonitor {
 public:
  // Starts watching; the volumes mounted now are the starting point.
  static Expected<std::unique_ptr<MountMonitor>> open(std::shared_ptr<const VolumeQueries> queries);
  ~MountMonitor();
  MountMonitor(const MountMonitor&) = delete;
  MountMonitor& operator=(const MountMonitor&) = delete;

  // Readable when the mount table has changed.
  int fd() const { return fd_; }
  // Takes the pending change events and answers the mount points of the
  // volumes that appeared since the last call, in the table's order.
  std::vector<std::string> takeNewMountPoints();
  // Waits up to `timeoutMs` milliseconds for a change; for callers without
  // an event loop.
  bool waitForChange(int timeoutMs) const;

 private:
  MountMonitor(libmnt_monitor* monitor, int fd, std::shared_ptr<const VolumeQueries> queries);

  libmnt_monitor* monitor_;
  int fd_;
  std::shared_ptr<const VolumeQueries> queries_;
  std::vector<MountEntry> known_;
};

}  // namespace halyard
