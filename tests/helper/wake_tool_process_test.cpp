// The wake tool as a process: the alarm path variable works only for a run
// without privileges, and the install step makes the root-owned set-user-id
// copy only where it may. These tests start as root and drop to "nobody" for
// the unprivileged runs, so they skip where the machine does not run them as root.

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "helper/wake_install.h"

#include "helper/wake_request.h"
#include "wake_files.h"

namespace halyard::wake {
namespace {

constexpr uid_t kNobody = 65534;

struct Answer {
  int status = -1;
  std::string output;
};

// Runs `program` (the tool unless told) with `request` on stdin and only the
// alarm path variable in its environment, as `uid` (the caller's own when it
// is the caller's uid).
Answer runTool(const std::string& request, const std::string& alarmPath, uid_t uid,
               std::vector<std::string> arguments = {HALYARD_WAKE_TOOL}, std::string pkexecCaller = "") {
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return {};
  const std::string variable = "HALYARD_WAKEALARM_PATH=" + alarmPath;
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  if (!pkexecCaller.empty()) pkexecCaller = "PKEXEC_UID=" + pkexecCaller;
  char* envp[] = {const_cast<char*>(variable.c_str()), pkexecCaller.empty() ? nullptr : pkexecCaller.data(), nullptr};
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    if (uid != ::getuid() && (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0)) ::_exit(127);
    ::execve(argv[0], argv.data(), envp);
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
  for (const std::string& record : {std::string(kOwnedAlarmRecordPath), userRecordPath(kOwnedAlarmRecordPath, 0)}) {
    if (std::filesystem::exists(record))
      GTEST_SKIP() << record << " exists: a privileged cancel could clear a real alarm";
  }
  // The tool's lock file is made by the run; one this test made goes with it.
  const std::string lock = std::string(kOwnedAlarmRecordPath) + ".lock";
  const bool lockExisted = std::filesystem::exists(lock);
  // An alarm the tool would own if it honoured the variable.
  const std::string alarm = std::to_string(wallClockNow() + 3600) + "\n";
  rtc_.setOwnedAlarm(alarm);
  const Answer answer = runTool(writeWakeRequest({Command::CancelOwnEvents, 0}), rtc_.files().alarmPath, 0);
  if (!lockExisted) std::filesystem::remove(lock);
  ASSERT_TRUE(readWakeResponse(answer.output)) << answer.output;
  EXPECT_EQ(rtc_.alarmText(), alarm);
  EXPECT_TRUE(rtc_.hasRecord());
}

// The install step as pkexec runs it (as root), and the copy it makes.
class WakeToolInstall : public WakeToolProcess {
 protected:
  std::string toolIn(const std::string& folder) const {
    return rtc_.folder() + "/" + folder + "/Halyard/WakeToSyncTool";
  }
  int install(const std::string& toolPath, uid_t uid = 0, const std::string& pkexecCaller = "") {
    std::filesystem::create_directories(std::filesystem::path(rtc_.folder()) / "user/Halyard");
    const Answer answer = runTool("", "", uid, {HALYARD_WAKE_TOOL, kInstallOption, toolPath}, pkexecCaller);
    auto error = readWakeResponse(answer.output);
    return error ? *error : -1;
  }
};

TEST_F(WakeToolInstall, MakesARootOwnedSetUserIdCopyThatIgnoresThePathVariable) {
  if (std::filesystem::exists("/sys/class/rtc/rtc0")) GTEST_SKIP() << "this machine has an RTC: the copy would read it";
  const std::string tool = toolIn("user");
  ASSERT_EQ(install(tool), 0);
  struct stat info {};
  ASSERT_EQ(::stat(tool.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, 0u);
  EXPECT_TRUE(info.st_mode & S_ISUID);
  std::ifstream copy(tool, std::ios::binary), original(HALYARD_WAKE_TOOL, std::ios::binary);
  EXPECT_TRUE(std::equal(std::istreambuf_iterator<char>(copy), {}, std::istreambuf_iterator<char>(original), {}));

  // Run by nobody, the copy has root's rights: the variable's alarm, which
  // it would own if it honoured the variable, stays; it looks for the RTC.
  const std::string alarm = std::to_string(wallClockNow() + 3600) + "\n";
  rtc_.setOwnedAlarm(alarm);
  const Answer answer =
      runTool(writeWakeRequest({Command::CancelOwnEvents, 0}), rtc_.files().alarmPath, kNobody, {tool});
  auto error = readWakeResponse(answer.output);
  ASSERT_TRUE(error) << answer.output;
  EXPECT_EQ(*error, ENOENT);
  EXPECT_EQ(rtc_.alarmText(), alarm);
}

TEST_F(WakeToolInstall, RefusesEveryOtherPlaceAndCaller) {
  const std::string real = rtc_.folder() + "/real";
  std::filesystem::create_directories(real + "/Halyard");
  std::filesystem::create_directory_symlink(real, rtc_.folder() + "/link");
  const struct {
    const char* name;
    std::string toolPath;
    uid_t uid;
    std::vector<int> errors;
    std::string pkexecCaller = "";
  } cases[] = {
      {"relative path", "user/Halyard/WakeToSyncTool", 0, {EINVAL}},
      {"another name", rtc_.folder() + "/user/Halyard/OtherTool", 0, {EINVAL}},
      {"dot-dot on the way", rtc_.folder() + "/user/../user/Halyard/WakeToSyncTool", 0, {EINVAL}},
      {"link on the way", toolIn("link"), 0, {ELOOP, ENOTDIR}},
      {"not run by root", toolIn("user"), kNobody, {EPERM}},
      {"a folder someone else made", toolIn("user"), 0, {EPERM}, std::to_string(kNobody)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const int error = install(c.toolPath, c.uid, c.pkexecCaller);
    EXPECT_NE(std::find(c.errors.begin(), c.errors.end(), error), c.errors.end()) << error;
  }
  EXPECT_FALSE(std::filesystem::exists(toolIn("user")));
  EXPECT_FALSE(std::filesystem::exists(toolIn("real")));
}

TEST_F(WakeToolInstall, RefusesAVolumeMountedNosuid) {
  const struct {
    const char* name;
    const char* options;
    int error;
  } cases[] = {{"nosuid", "nosuid", kVolumeIgnoresOwnership}, {"suid allowed", "suid", 0}};
  const std::string mountPoint = rtc_.folder() + "/volume";
  std::filesystem::create_directory(mountPoint);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    // A tmpfs in a mount namespace of its own, seen by nobody else.
    const std::string script = std::string("mount -t tmpfs -o ") + c.options +
                               " tmpfs \"$1\" || exit 99; mkdir \"$1/Halyard\" && exec \"$2\" --install "
                               "\"$1/Halyard/WakeToSyncTool\"";
    const Answer answer = runTool("", "", 0,
                                  {"/usr/bin/unshare", "-m", "--propagation", "private", "/bin/sh", "-c", script, "sh",
                                   mountPoint, HALYARD_WAKE_TOOL});
    if (WIFEXITED(answer.status) && WEXITSTATUS(answer.status) == 99)
      GTEST_SKIP() << "cannot mount a tmpfs in a private mount namespace here";
    auto error = readWakeResponse(answer.output);
    ASSERT_TRUE(error) << answer.output;
    EXPECT_EQ(*error, c.error);
  }
}

}  // namespace
}  // namespace halyard::wake
