#include "agent/rules/heartbeat_rules.h"

#include <cmath>

namespace halyard::agent {

HeartbeatMode chooseHeartbeatMode(const HeartbeatInputs& in) {
  const bool gap = in.lastCheckDate && std::fabs(std::trunc(in.now - *in.lastCheckDate)) > 60;
  if (in.awokeFromSleep || gap) return HeartbeatMode::Missed;
  if (in.secondOfMinute == 0) return HeartbeatMode::New;
  if (in.mountsPending) return HeartbeatMode::MountedVolume;
  return HeartbeatMode::None;
}

int secondOfMinute(TimeInterval t, const cctz::time_zone& zone) {
  return static_cast<int>(cctz::convert(splitInstant(t).seconds, zone).second());
}

}  // namespace halyard::agent
