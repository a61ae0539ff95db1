#pragma once
// The heartbeat's rule: which check a beat runs. Kept free of the event loop
// so that the agent's timer and the simulation of a period decide alike.

#include <optional>

#include <cctz/time_zone.h>

#include "foundation/dates.h"

namespace halyard::agent {

enum class HeartbeatMode { None, Missed, New, MountedVolume };

struct HeartbeatInputs {
  bool awokeFromSleep = false;
  std::optional<TimeInterval> lastCheckDate;
  TimeInterval now = 0;
  int secondOfMinute = 0;
  bool mountsPending = false;
};

// At most one check per beat: missed after a wake or a gap of more than 60
// whole seconds (either direction), else new at second 0, else mounted-volume
// when mounts are pending.
HeartbeatMode chooseHeartbeatMode(const HeartbeatInputs& in);

// The civil second-of-minute (0-59) of an instant in a zone.
int secondOfMinute(TimeInterval t, const cctz::time_zone& zone);

}  // namespace halyard::agent
