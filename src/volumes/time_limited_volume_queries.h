#pragma once
// TimeLimitedVolumeQueries: volume queries that never wait on a volume for
// longer than a time limit. A network or FUSE mount whose server is gone can
// block statfs, statx and the device probes for minutes; through this
// decorator such a query answers "unknown" after the limit (2 s unless told),
// which makes the volume count as not matching, and the mount point is
// logged once. While a query of a path is still stuck, later queries of that
// path answer "unknown" at once instead of waiting again. The mount table is
// read from the kernel and never blocks, so it passes straight through.
//
//   fileManager->setVolumeQueries(std::make_shared<TimeLimitedVolumeQueries>(linuxVolumeQueries()));

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>

#include "volumes/volume_queries.h"

namespace halyard {

class TimeLimitedVolumeQueries final : public VolumeQueries {
 public:
  static constexpr std::chrono::milliseconds kDefaultLimit{2000};
  explicit TimeLimitedVolumeQueries(std::shared_ptr<const VolumeQueries> inner,
                                    std::chrono::milliseconds limit = kDefaultLimit);

  std::vector<MountEntry> mountTable() const override { return inner_->mountTable(); }
  std::optional<PathPlace> placeOf(const std::string& path) const override;
  // A path whose stat does not answer in time reports ETIMEDOUT.
  int pathStatus(const std::string& path) const override;
  std::optional<std::uint64_t> deviceOf(const std::string& path) const override;
  std::optional<FileSystemStats> fileSystemStats(const std::string& path) const override;
  std::optional<KernelTime> birthTime(const std::string& path) const override;
  DeviceProperties deviceProperties(const MountEntry& mount) const override;
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override;
  std::optional<std::uint64_t> fileNumber(const std::string& path) const override;
  std::string defaultUserPath() const override { return inner_->defaultUserPath(); }

 private:
  // The paths whose queries are stuck past the limit, and those logged.
  struct Stuck {
    std::mutex mutex;
    std::set<std::string> pending;
    std::set<std::string> logged;
  };
  // Runs `query` on a thread of its own and waits up to the limit; absent
  // when it did not answer in time (or `path` is still stuck).
  template <class T>
  std::optional<T> limited(const std::string& path, std::function<T()> query) const;

  std::shared_ptr<const VolumeQueries> inner_;
  std::chrono::milliseconds limit_;
  std::shared_ptr<Stuck> stuck_ = std::make_shared<Stuck>();
};

}  // namespace halyard
