#pragma once
// SIGTERM, SIGINT and SIGHUP (a service manager stopping the agent, Ctrl-C,
// a closed terminal) turned into a call on the event loop, so that they end
// the agent through the same will-terminate path as a normal quit. SIGPIPE
// is ignored.

#include <functional>

namespace halyard::agent {

void ignoreBrokenPipes();

// Installs the handlers; `terminate` runs on the event loop of the calling
// thread, once per signal received. Call once, after the application exists.
void onTerminationSignals(std::function<void()> terminate);

}  // namespace halyard::agent
