#pragma once
// The mounted-volume check's matching: which type-6 items the newly mounted
// paths make due. It probes the volumes, so the agent runs it on a thread of
// its own; it reads the items and changes none of them.

#include <memory>
#include <string>
#include <vector>

#include "agent/scheduled_items.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::agent {

// The items that the newly mounted `paths` make due, from the last path to
// the first; an item waiting for both sides runs only when the second of
// them is mounted.
ScheduleItems mountedVolumeJobs(const ScheduleItems& items, std::vector<std::string> paths,
                                const std::shared_ptr<fileservices::VTFileManager>& fileManager, TimeInterval now);

}  // namespace halyard::agent
