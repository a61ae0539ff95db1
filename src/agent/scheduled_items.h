#pragma once
// The scheduled items as the agent passes them around: a schedule read for
// one beat, a due list, the items parked for a launch, all of them
// ScheduleItems; here is how they travel as archive objects.

#include <vector>

#include "foundation/object.h"
#include "schedule/scheduled_item.h"

namespace halyard::agent {

inline std::vector<ObjectRef> asObjects(const ScheduleItems& items) { return {items.begin(), items.end()}; }

}  // namespace halyard::agent
