#pragma once
// Tests that mount file systems run themselves again inside a private mount
// namespace (`unshare -m --propagation private`), so that neither the host
// nor other tests see their mounts, and make ext4 images in a scratch
// folder. Where the machine cannot mount, the test is skipped with the reason.
//
//   TEST(Suite, Name) {
//     RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
//     Scratch scratch;  ...
//   }

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace halyard::testing {

inline constexpr const char* kInsideNamespace = "HALYARD_TEST_IN_MOUNT_NAMESPACE";

// How the test went inside the namespace, with its output.
struct Outcome {
  bool passed = false;
  bool skipped = false;
  std::string output;
};

inline bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// What `command` writes to its standard output; `passed` tells whether it
// exited with status 0.
inline std::string outputOf(const std::string& command, bool* passed = nullptr) {
  std::string output;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe) {
    std::array<char, 4096> buffer;
    while (std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe)) output.append(buffer.data(), n);
  }
  const bool exited = pipe && ::pclose(pipe) == 0;
  if (passed) *passed = exited;
  return output;
}

// Runs the current test in this binary again, inside a private mount namespace.
inline Outcome runInPrivateNamespace() {
  if (::geteuid() != 0) return {.skipped = true, .output = "mounting file systems needs root"};
  if (!run("unshare -m --propagation private true")) {
    return {.skipped = true, .output = "this machine gives no private mount namespace (unshare -m failed)"};
  }
  char self[PATH_MAX] = {};
  if (::readlink("/proc/self/exe", self, sizeof self - 1) <= 0) return {};
  const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
  Outcome outcome;
  outcome.output = outputOf(std::string(kInsideNamespace) + "=1 unshare -m --propagation private " + self +
                                " --gtest_filter=" + test->test_suite_name() + "." + test->name() + " 2>&1",
                            &outcome.passed);
  outcome.skipped = outcome.output.find("[  SKIPPED ]") != std::string::npos;
  return outcome;
}

#define RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE()                          \
  if (!std::getenv(::halyard::testing::kInsideNamespace)) {           \
    const auto outcome = ::halyard::testing::runInPrivateNamespace(); \
    if (outcome.skipped) GTEST_SKIP() << outcome.output;              \
    EXPECT_TRUE(outcome.passed) << outcome.output;                    \
    return;                                                           \
  }

// A scratch folder with ext4 images; the namespace takes the mounts along
// when the process ends, and the folder goes with the object.
class Scratch {
 public:
  Scratch() {
    char name[] = "/tmp/halyard-volumes-XXXXXX";
    folder_ = ::mkdtemp(name);
  }
  ~Scratch() {
    for (auto it = mounted_.rbegin(); it != mounted_.rend(); ++it) run("umount " + *it);
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }
  std::string path(const std::string& name) const { return folder_ + "/" + name; }
  // Root folders carry a birth time in whole seconds: `made` (Unix seconds)
  // gives images made within one second their own creation dates.
  bool makeImage(const std::string& name, const std::string& label, long made) const {
    return makeFileSystem(name, "16M",
                          "E2FSPROGS_FAKE_TIME=" + std::to_string(made) + " mkfs.ext4 -q -F -I 256 -L " + label);
  }
  // An image of `size` formatted by `mkfs` (a command that takes the image
  // path last).
  bool makeFileSystem(const std::string& name, const std::string& size, const std::string& mkfs) const {
    return run("truncate -s " + size + " " + path(name)) && run(mkfs + " " + path(name));
  }
  bool mount(const std::string& options, const std::string& what, const std::string& where) {
    std::filesystem::create_directories(path(where));
    if (!run("mount " + options + " " + what + " " + path(where))) return false;
    mounted_.push_back(path(where));
    return true;
  }
  bool unmount(const std::string& where) {
    std::erase(mounted_, path(where));
    return run("umount " + path(where));
  }

 private:
  std::string folder_;
  std::vector<std::string> mounted_;
};

}  // namespace halyard::testing
