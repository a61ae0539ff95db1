#pragma once
// Starting the agent's children (the main application, the document opener)
// as a fresh program would start: default signal dispositions, an empty
// signal mask, the standard streams on /dev/null and no other descriptor of
// the agent's. The agent itself ignores SIGPIPE and may have descriptors of
// its own open without close-on-exec; none of that reaches a child.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/expected.h"

namespace halyard::agent {

// A started child that the caller waits for: its process id and a pidfd
// that becomes readable when it ends.
struct ChildProcess {
  pid_t pid = -1;
  int pidfd = -1;
};

// Starts `argv` detached (in its own session, reparented away from the agent)
// and answers once it has been executed: 0, or -43 when it could not be.
std::int16_t spawnDetached(const std::vector<std::string>& argv);

// Starts `argv` as a direct child; an error when it could not be executed.
Expected<ChildProcess> spawnChild(const std::vector<std::string>& argv);

// Reaps an ended child: its exit status, -1 when it was killed by a signal.
int reapChild(const ChildProcess& child);

}  // namespace halyard::agent
