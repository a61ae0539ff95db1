// The wake tool as a process: the alarm path variable works only for a run
// without privileges. These tests start as root and drop to "nobody" for the
// unprivileged run, so they skip where the machine does not run them as root.

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "helper/wake_request.h"
#include "wake_files.h"

namespace halyard::wake {
namespace {

constexpr uid_t kNobody = 65534;

struct Answer {
  int status = -1;
  std::string output;
};

// Runs the tool with `request` on stdin and only the alarm path variable in
// its environment, as `uid` (the caller's own when it is the caller's uid).
Answer runTool(const std::string& request, const std::string& alarmPath, uid_t uid) {
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return {};
  const std::string variable = "HALYARD_WAKEALARM_PATH=" + alarmPath;
  char* argv[] = {const_cast<char*>(HALYARD_WAKE_TOOL), nullptr};
  char* envp[] = {const_cast<char*>(variable.c_str()), nullptr};
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    if (uid != ::getuid() && (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0)) ::_exit(127);
    ::execve(argv[0], argv, envp);
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  [[maybe_unused]] auto put = ::write(in[1], request.data(), request.size());
  ::close(in[1]);
  Answer answer;
  char buffer[4096];
  for (ssize_t got; (got = ::read(out[0], buffer, sizeof buffer)) > 0;) answer.output.append(buffer, got);
  ::close(out[0]);
  ::waitpid(child, &answer.status, 0);
  return answer;
}

std::int64_t wallClockNow() { return static_cast<std::int64_t>(std::time(nullptr)); }

class WakeToolProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::getuid() != 0) GTEST_SKIP() << "needs root to run the tool both privileged and as nobody";
    std::filesystem::permissions(rtc_.folder(), std::filesystem::perms::all);
    ::chmod(rtc_.files().alarmPath.c_str(), 0666);
  }
  FakeRtc rtc_;
};

TEST_F(WakeToolProcess, UnprivilegedRunWritesTheTestAlarm) {
  const std::int64_t when = wallClockNow() + 3600;
  const Answer answer = runTool(writeWakeRequest({Command::SchedulePowerOn, when}), rtc_.files().alarmPath, kNobody);
  auto error = readWakeResponse(answer.output);
  ASSERT_TRUE(error) << error.error().describe() << " in " << answer.output;
  EXPECT_EQ(*error, 0);
  EXPECT_EQ(rtc_.alarmText(), std::to_string(when) + "\n");
}

TEST_F(WakeToolProcess, PrivilegedRunIgnoresThePathVariable) {
  if (std::filesystem::exists(kOwnedAlarmRecordPath))
    GTEST_SKIP() << kOwnedAlarmRecordPath << " exists: a privileged cancel could clear a real alarm";
  // An alarm the tool would own if it honoured the variable.
  const std::string alarm = std::to_string(wallClockNow() + 3600) + "\n";
  rtc_.setAlarmText(alarm);
  { std::ofstream(rtc_.files().recordPath) << alarm; }
  const Answer answer = runTool(writeWakeRequest({Command::CancelOwnEvents, 0}), rtc_.files().alarmPath, 0);
  ASSERT_TRUE(readWakeResponse(answer.output)) << answer.output;
  EXPECT_EQ(rtc_.alarmText(), alarm);
  EXPECT_TRUE(rtc_.hasRecord());
}

}  // namespace
}  // namespace halyard::wake
