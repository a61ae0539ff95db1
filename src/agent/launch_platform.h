#pragma once
// LaunchPlatform: how the agent finds and starts the main application. The
// application is "running" when its session bus name has an owner; it is
// started by path as a detached child, or by D-Bus activation of its name.
// Results are the platform's launch status codes. Nothing here makes the
// caller wait on the bus or on the application: what takes time answers
// later, through a handler called on the event loop.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace halyard::agent {

namespace launch_status {
inline constexpr std::int16_t kNoError = 0;
inline constexpr std::int16_t kFileNotFound = -43;
inline constexpr std::int16_t kProcessNotFound = -600;
// The registry failed in a way of its own (a bus error other than an unknown service).
inline constexpr std::int16_t kRegistryFailed = -10810;
inline constexpr std::int16_t kApplicationNotFound = -10814;
}  // namespace launch_status

// The main application's bus name, which it owns while it runs.
inline constexpr char kApplicationBusName[] = "com.vantrel.halyard";

class LaunchPlatform {
 public:
  using StatusHandler = std::function<void(std::int16_t status)>;
  // The opener's exit status: 0 when the document opened; -1 when the
  // opener could not be started or was killed.
  using OpenHandler = std::function<void(int exitStatus)>;
  virtual ~LaunchPlatform() = default;
  // 0 when the application runs, -600 when not, another code when the
  // lookup failed. Answers at once, from what the bus last said of the name.
  virtual std::int16_t findApplication() = 0;
  // Asks the bus to start the application through its service activation
  // and returns at once; `done` gets 0 once the application owns its name,
  // -10814 when the bus knows no such service, -10810 on any other refusal
  // (a start that timed out among them).
  virtual void activateApplication(StatusHandler done) = 0;
  // Starts argv[0] (a path, or a name looked up in PATH) detached in its own
  // session with stdin, stdout and stderr on /dev/null; in the foreground the
  // application is also asked to activate once its bus name appears. -43
  // when the program cannot be executed.
  virtual std::int16_t launchProgram(const std::vector<std::string>& argv, bool inBackground) = 0;
  // Opens a document with its default application; `done` gets the opener's
  // exit status when it ends.
  virtual void openDocument(const std::string& path, OpenHandler done) = 0;
};

}  // namespace halyard::agent
