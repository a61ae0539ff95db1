// The file manager's core: error texts, buffers, identity, open references,
// the audit log and waiting for commands.

#include "fileservices/vt_file_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <future>
#include <thread>

#include "fileservices/test_folder.h"
#include "fileservices/vt_user_group_mapper.h"
#include "foundation/log_sink.h"

namespace halyard::fileservices {
namespace {

using Clock = std::chrono::steady_clock;

TEST(FileManagerErrors, MessagesForCodes) {
  auto fm = VTFileManager::make();
  struct Case {
    ErrorCode code;
    const char* text;
  };
  const Case cases[] = {
      {0, ""},
      {41, "Unknown error 41"},                 // unused, yet inside the range
      {133, "Memory page has hardware error"},  // its last value
      {134, "Error: 134"},
      {-128, "Error: -128"},
      {10101, "Error: 10101"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.code);
    EXPECT_EQ(fm->errorMessageForCode(c.code), c.text);
  }
  fm->setLastError(-128);
  EXPECT_EQ(fm->errorMessageForLastError(), "Error: -128");
  errno = EINVAL;
  fm->setLastError(0);
  EXPECT_EQ(errno, 0) << "a code of 0 also clears errno";
}

TEST(FileManagerBuffers, ReusedWhileTheSizeStaysAndTheCopyQuirk) {
  auto fm = VTFileManager::make();
  fm->setIDMappingDelegate(std::make_shared<VTUserGroupMapper>());
  std::byte* first = fm->copyBufferOfSize(4096);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(fm->copyBufferOfSize(4096), first);
  EXPECT_EQ(fm->copyBufferOfSize(0), nullptr);
  EXPECT_EQ(fm->copyBufferOfSize(VTFileManager::maximumCopyBufferSize + 1), nullptr);
  ASSERT_NE(fm->altCopyBufferOfSize(512), nullptr);
  EXPECT_NE(fm->copyBufferOfSize(4096), nullptr);

  // A copy records the sizes but holds no memory: the same size answers
  // nothing until another size has been asked for once.
  auto copy = fm->copy();
  EXPECT_EQ(copy->idMappingDelegate(), fm->idMappingDelegate()) << "the copy maps ids as its original";
  EXPECT_EQ(copy->copyBufferOfSize(4096), nullptr);
  EXPECT_EQ(copy->altCopyBufferOfSize(512), nullptr);
  EXPECT_NE(copy->copyBufferOfSize(8192), nullptr);
  EXPECT_NE(copy->copyBufferOfSize(4096), nullptr);
}

struct FakeIdentity final : HostIdentitySource {
  std::optional<std::string> name, serial, host;
  std::optional<std::array<std::uint8_t, 6>> mac;
  std::optional<std::string> computerName() const override { return name; }
  std::optional<std::string> platformSerialNumber() const override { return serial; }
  std::optional<std::array<std::uint8_t, 6>> primaryEthernetAddress() const override { return mac; }
  std::optional<std::string> processHostName() const override { return host; }
};

TEST(FileManagerIdentity, HostNameFallsBackInOrder) {
  const std::array<std::uint8_t, 6> mac{0x00, 0x1b, 0x63, 0xaf, 0x0e, 0x9c};
  struct Case {
    const char* what;
    std::optional<std::string> name, serial;
    std::optional<std::array<std::uint8_t, 6>> mac;
    std::optional<std::string> host;
    const char* expected;
  };
  const auto none = std::nullopt;
  const Case cases[] = {
      {"computer name first", "Studio", "C02X", mac, "box", "Studio"},
      {"empty name skipped", "", "C02X", mac, "box", "C02X"},
      {"upper-case MAC", none, none, mac, "box", "001B63AF0E9C"},
      {"host name", none, none, none, "box", "box"},
      {"nothing known", none, none, none, none, "local"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    auto identity = std::make_shared<FakeIdentity>();
    identity->name = c.name, identity->serial = c.serial, identity->mac = c.mac, identity->host = c.host;
    EXPECT_EQ(VTFileManager::make(identity)->hostName(), c.expected);
  }
  EXPECT_FALSE(VTFileManager::make()->hostName().empty());
}

TEST(FileManagerIdentity, PrimaryEthernetIsTheFirstOneOnADevice) {
  // A /sys/class/net of real files: bridges and docker0 come first in name
  // order but sit on no device.
  TestFolder net;
  struct Interface {
    const char* name;
    const char* type;
    const char* address;
    bool onDevice;
  };
  const Interface interfaces[] = {
      {"br-5f2a", "1", "02:42:aa:bb:cc:01", false}, {"docker0", "1", "02:42:aa:bb:cc:02", false},
      {"eno0", "1", "00:00:00:00:00:00", true},     {"enp3s0", "1", "00:1b:63:af:0e:9c", true},
      {"lo", "772", "00:00:00:00:00:00", false},    {"wlp2s0", "1", "a4:5e:60:00:00:01", true},
  };
  for (const Interface& i : interfaces) {
    net.writeFile(std::string(i.name) + "/type", std::string(i.type) + "\n");
    net.writeFile(std::string(i.name) + "/address", std::string(i.address) + "\n");
    if (i.onDevice) mkdir(net.path(std::string(i.name) + "/device").c_str(), 0755);
  }
  const std::array<std::uint8_t, 6> expected{0x00, 0x1b, 0x63, 0xaf, 0x0e, 0x9c};
  EXPECT_EQ(primaryEthernetAddressIn(net.root()), expected);
  EXPECT_EQ(primaryEthernetAddressIn(net.path("none")), std::nullopt);
}

TEST(FileManagerForks, ReferencesAreKeptOnceAndClosed) {
  auto fm = VTFileManager::make();
  int a = open("/dev/null", O_RDONLY | O_CLOEXEC);
  int b = open("/dev/null", O_RDONLY | O_CLOEXEC);
  fm->addOpenForkReference(a);
  fm->addOpenForkReference(a);
  fm->addOpenForkReference(b);
  EXPECT_EQ(fm->openForkReferences(), (std::vector<int>{a, b}));
  fm->closeAllOpenForks();
  EXPECT_TRUE(fm->openForkReferences().empty());
  EXPECT_EQ(fcntl(a, F_GETFD), -1);
  EXPECT_EQ(fcntl(b, F_GETFD), -1);
}

class FileManagerCommands : public ::testing::Test {
 protected:
  // A command of the manager's pool that finishes when `release` is called.
  CommandID spoolHeld(std::int64_t code = 0) {
    auto opened = gate_.get_future().share();
    return fm_->commandPool().runCommand(
        [this, opened, code](CommandID id) {
          opened.wait();
          fm_->setProperty(kECodeKey, id, code);
        },
        nullptr, nullptr);
  }
  void release() { gate_.set_value(); }

  std::shared_ptr<VTFileManager> fm_ = VTFileManager::make();
  std::promise<void> gate_;
};

TEST_F(FileManagerCommands, SuccessIsNegatedOnceThenASecondWaitRunsToItsLimit) {
  const CommandID id = spoolHeld();
  EXPECT_EQ(fm_->statusForCommand(id), kCommandNotFinished);
  release();
  EXPECT_EQ(fm_->waitForCommandCompletion(id, 10.0), -id);
  EXPECT_EQ(fm_->statusForCommand(-id), 0);
  const auto start = Clock::now();
  EXPECT_EQ(fm_->waitForCommandCompletion(-id, 1.5), -id) << "the negated id comes back unchanged";
  EXPECT_EQ(fm_->waitForCommandCompletion(id, 1.5), id);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(3000));
}

TEST_F(FileManagerCommands, StillRunningAtTheLimitAnswersThePositiveIdAndGoesOn) {
  const CommandID id = spoolHeld();
  EXPECT_EQ(fm_->waitForCommandCompletion(id, 1.0), id);
  EXPECT_EQ(fm_->statusForCommand(id), kCommandNotFinished);
  fm_->setProperty(kDCpyKey, id, std::int64_t{4096});
  EXPECT_EQ(fm_->getAndClearDataCopiedCountForCommand(id), 4096) << "the data copied so far is read and cleared";
  EXPECT_EQ(fm_->getAndClearDataCopiedCountForCommand(id), 0);
  release();
  EXPECT_EQ(fm_->waitForCommandCompletion(id, 10.0), -id);
}

TEST_F(FileManagerCommands, FailureAnswersThePositiveIdAndItsCode) {
  const CommandID id = spoolHeld(ENOENT);
  release();
  EXPECT_EQ(fm_->waitForCommandCompletion(id, 10.0), id);
  EXPECT_EQ(fm_->statusForCommand(id), ENOENT);
  EXPECT_EQ(fm_->resultsForCommand(id), nullptr);
}

// Lines the test's own thread logged: the worker's Spawned/Terminating
// lines are left out.
std::vector<std::string> callerLines(const LogCapture& capture) {
  std::vector<std::string> lines;
  for (const auto& line : capture.lines()) {
    if (line.find("Spawned:") == std::string::npos && line.find("Terminating:") == std::string::npos) {
      lines.push_back(line);
    }
  }
  return lines;
}

TEST(FileManagerAudit, OnlyTheOuterCallOnTheAuditThreadIsLogged) {
  TestFolder folder;
  folder.writeFile("a.txt", "abc");
  auto fm = VTFileManager::make();
  LogCapture capture;
  fm->setAuditEnabled(true);

  std::thread([&] {
    EXPECT_FALSE(fm->auditEnabled());
    fm->statusForCommand(1);
    fm->copyPath(folder.path("a.txt"), folder.path("from-b.txt"), true);
  }).join();
  EXPECT_TRUE(capture.lines().empty());

  // asyncCopyPath calls waitForCommandCompletion, which calls
  // statusForCommand; the worker runs copyPath and copyPath:toPath:handler:.
  const CommandID id = fm->asyncCopyPath(folder.path("a.txt"), folder.path("b.txt"), true);
  ASSERT_LT(id, 0);
  const std::vector<std::string> expected = {
      "<FMAudit> VTFileManager: asyncCopyPath:\"" + folder.path("a.txt") + "\" toPath:\"" + folder.path("b.txt") +
          "\" preserveComments:YES",
      "<FMAudit> VTFileManager: asyncCopyPath:toPath:preserveComments: errcode: 0 commandID: " + std::to_string(id),
  };
  EXPECT_EQ(callerLines(capture), expected);
  const auto all = capture.lines();
  EXPECT_NE(std::find(all.begin(), all.end(), "<FMAudit> Spawned: copyPathThreadedCommand"), all.end());
  EXPECT_NE(std::find(all.begin(), all.end(), "<FMAudit> Terminating: copyPathThreadedCommand"), all.end());

  fm->statusForCommand(id);
  EXPECT_EQ(callerLines(capture).size(), 4u);
  EXPECT_EQ(callerLines(capture)[2], "<FMAudit> VTFileManager: statusForCommand: " + std::to_string(id));
  EXPECT_EQ(callerLines(capture)[3], "<FMAudit> VTFileManager: statusForCommand result: 0");
  fm->setAuditEnabled(false);
}

}  // namespace
}  // namespace halyard::fileservices
