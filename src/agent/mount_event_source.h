#pragma once
// MountEventSource: reports each newly appeared mount point, as the
// workspace's did-mount notification did. The libmount monitor of the volumes
// library implements it; tests feed paths through their own source.

#include <functional>
#include <string>

namespace halyard::agent {

class MountEventSource {
 public:
  using Handler = std::function<void(const std::string& devicePath)>;
  virtual ~MountEventSource() = default;
  // Replaces the one receiver of mount events; an empty handler detaches it.
  virtual void setHandler(Handler handler) = 0;
};

}  // namespace halyard::agent
