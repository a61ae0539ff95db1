#pragma once
// LaunchPlatform: how the agent finds and starts the main application. The
// application is "running" when its session bus name has an owner; it is
// started by path as a detached child, or by D-Bus activation of its name.
// Results are the platform's launch status codes.

#include <cstdint>
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
  virtual ~LaunchPlatform() = default;
  // 0 when the application runs, -600 when not, another code when the lookup failed.
  virtual std::int16_t findApplication() = 0;
  // Starts the application through the bus's service activation: 0, -10814
  // when the bus knows no such service, -10810 on any other refusal.
  virtual std::int16_t activateApplication() = 0;
  // Starts argv[0] (a path, or a name looked up in PATH) detached in its own
  // session with stdin, stdout and stderr on /dev/null; in the foreground the
  // application is also asked to activate once its bus name appears. -43
  // when the program cannot be executed.
  virtual std::int16_t launchProgram(const std::vector<std::string>& argv, bool inBackground) = 0;
  // Opens a document with its default application; false when that failed.
  virtual bool openDocument(const std::string& path) = 0;
};

}  // namespace halyard::agent
