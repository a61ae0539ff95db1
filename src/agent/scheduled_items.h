#pragma once
// The scheduled items as the agent passes them around: a schedule read for
// one beat, a due list, the items parked for a launch.

#include <memory>
#include <vector>

#include "foundation/object.h"
#include "schedule/scheduled_item.h"

namespace halyard::agent {

using ScheduledItem = KSScheduledItem;
using ScheduledItems = std::vector<std::shared_ptr<KSScheduledItem>>;

inline std::vector<ObjectRef> asObjects(const ScheduledItems& items) { return {items.begin(), items.end()}; }

}  // namespace halyard::agent
