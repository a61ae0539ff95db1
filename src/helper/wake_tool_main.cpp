// WakeToSyncToolTemplate: the wake tool. Run by pkexec with "--install PATH"
// it makes its own root-owned, set-user-id copy at PATH; the agent then writes
// one request to that copy's stdin and reads one answer from its stdout. Running with root's rights
// on behalf of any local user, it trusts nothing it is given: the request is
// checked by the reader, the environment is dropped, and the only files it
// opens are the RTC alarm, its records of the wakes it set (one for each
// user) and its lock.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/dates.h"
#include "helper/wake_install.h"
#include "helper/wake_request.h"
#include "helper/wake_tool.h"

namespace {

// The variable a test uses to stand a file in for the RTC alarm.
constexpr char kAlarmPathVariable[] = "HALYARD_WAKEALARM_PATH";

bool runsPrivileged() { return ::geteuid() == 0 || ::geteuid() != ::getuid() || ::getegid() != ::getgid(); }

// Decided before the environment is cleared; a privileged run never reads it.
halyard::wake::AlarmFiles chooseFiles(bool privileged) {
  halyard::wake::AlarmFiles files;
  const char* testPath = privileged ? nullptr : std::getenv(kAlarmPathVariable);
  if (testPath && *testPath) {
    files.alarmPath = testPath;
    files.recordPath = files.alarmPath + ".owner";
  }
  return files;
}

// Reads one byte past the limit so that an oversized request is seen as such.
std::string readRequest() {
  std::string input;
  char buffer[4096];
  while (input.size() <= halyard::wake::kMaxRequestBytes) {
    const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    input.append(buffer, static_cast<std::size_t>(got));
  }
  return input;
}

bool writeAll(const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t put = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    done += static_cast<std::size_t>(put);
  }
  return true;
}

// The user pkexec runs the template for, read before the environment goes.
std::optional<uid_t> pkexecCaller() {
  const char* text = std::getenv("PKEXEC_UID");
  if (!text) return std::nullopt;
  const std::string_view digits(text);
  uid_t uid = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), uid);
  if (error != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
  return uid;
}

// Only root itself (pkexec runs the template so) may make a copy: a user
// running a set-user-id copy with this option is refused.
int installCopy(const std::string& toolPath, std::optional<uid_t> caller) {
  if (::getuid() != 0 || ::geteuid() != 0) return EPERM;
  const int self = ::open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  if (self < 0) return errno;
  const int error = halyard::wake::installPrivilegedCopy(toolPath, self, caller);
  ::close(self);
  return error;
}

int answer(int error) {
  if (!writeAll(halyard::wake::writeWakeResponse(error))) return 2;
  return error == 0 ? 0 : 1;
}

// The present moment in whole Unix seconds, read once at the tool's edge.
std::int64_t wholeUnixSecondsNow() {
  return static_cast<std::int64_t>(std::floor(halyard::toUnixSeconds(halyard::systemNow())));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string_view(argv[1]) == halyard::wake::kInstallOption) {
    const std::optional<uid_t> caller = pkexecCaller();
    ::clearenv();
    ::umask(022);
    return answer(installCopy(argv[2], caller));
  }
  if (argc > 1) return answer(EINVAL);
  const bool privileged = runsPrivileged();
  const halyard::wake::AlarmFiles files = chooseFiles(privileged);
  ::clearenv();
  ::umask(022);
  if (privileged) ::mkdir("/var/lib/halyard", 0755);
  const std::string input = readRequest();
  return answer(halyard::wake::handleWakeRequest(input, wholeUnixSecondsNow(), files, ::getuid()));
}
