#include "agent/rules/mounted_volume_jobs.h"

#include "volumes/volume_specifier.h"

namespace halyard::agent {

namespace {

// Whether the volume mounted at `path` is one the item waits for. An item
// waiting for both sides runs only when the second of them is mounted.
bool mountTriggersRun(const KSScheduledItem& item, const std::string& path,
                      const std::shared_ptr<fileservices::VTFileManager>& fileManager, TimeInterval now) {
  if (!item.active() || item.type() != ScheduleType::OnVolumeMount) return false;
  const bool onLeft = item.scheduledLeftTargetMounts() != 0;
  const bool onRight = item.scheduledRightTargetMounts() != 0;
  if (!onLeft && !onRight) return false;
  const auto mounted = VolumeSpecifier::volumeSpecifierWithPath(path, fileManager);
  const auto left = objectAs<VolumeSpecifier>(item.leftTargetVolumeSpecifier());
  const auto right = objectAs<VolumeSpecifier>(item.rightTargetVolumeSpecifier());
  const bool leftMatch = onLeft && left && left->isEqual(mounted);
  const bool rightMatch = onRight && right && right->isEqual(mounted);
  if (!leftMatch && !rightMatch) return false;
  if (onLeft && onRight) return left && right && left->isMounted(now) && right->isMounted(now);
  return true;
}

}  // namespace

ScheduleItems mountedVolumeJobs(const ScheduleItems& items, std::vector<std::string> paths,
                                const std::shared_ptr<fileservices::VTFileManager>& fileManager, TimeInterval now) {
  ScheduleItems due;
  // From the last path to the first; a path is removed with every repetition.
  while (!paths.empty()) {
    const std::string path = paths.back();
    for (const auto& item : items) {
      if (item && mountTriggersRun(*item, path, fileManager, now)) due.push_back(item);
    }
    std::erase(paths, path);
  }
  return due;
}

}  // namespace halyard::agent
