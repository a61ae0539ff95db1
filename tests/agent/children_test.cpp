// What the agent's children inherit, and how the document opener's end is
// reported: the agent ignores SIGPIPE and may hold descriptors of its own,
// but a child starts as a fresh program would.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include <QDir>
#include <QFile>

#include "agent/child_process.h"
#include "daemon_fixture.h"
#include "foundation/file_io.h"
#include "foundation/log_sink.h"

namespace halyard::agent::testing {
namespace {

// While alive, the test process looks like a busy agent: SIGPIPE and SIGHUP
// ignored, SIGUSR1 blocked, a descriptor open without close-on-exec.
class InheritableState {
 public:
  InheritableState() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &oldPipe_);
    sigaction(SIGHUP, &ignore, &oldHup_);
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    sigprocmask(SIG_BLOCK, &usr1, &oldMask_);
    fd_ = open("/dev/null", O_RDONLY);  // no O_CLOEXEC on purpose
  }
  ~InheritableState() {
    close(fd_);
    sigprocmask(SIG_SETMASK, &oldMask_, nullptr);
    sigaction(SIGHUP, &oldHup_, nullptr);
    sigaction(SIGPIPE, &oldPipe_, nullptr);
  }

 private:
  struct sigaction oldPipe_ {
  }, oldHup_{};
  sigset_t oldMask_{};
  int fd_ = -1;
};

class ChildrenTest : public DaemonFixture {
 protected:
  ChildrenTest() { makeDaemon(); }
};

TEST_F(ChildrenTest, TheApplicationStartsWithDefaultSignalsAnEmptyMaskAndOnlyTheStandardStreams) {
  InheritableState agentLike;
  for (const bool detached : {true, false}) {
    SCOPED_TRACE(detached ? "the application, detached" : "the opener, a direct child");
    const std::string report = path(std::string("state-") + (detached ? "detached" : "child"));
    const std::vector<std::string> argv{childStateProbePath(), report};
    if (detached) {
      ASSERT_EQ(spawnDetached(argv), launch_status::kNoError);
    } else {
      auto child = spawnChild(argv);
      ASSERT_TRUE(child) << child.error().describe();
      EXPECT_EQ(reapChild(*child), 0);
    }
    ASSERT_TRUE(waitUntil([&] { return QFile::exists(QString::fromStdString(report)); }));
    EXPECT_EQ(*readWholeFile(report), "ignored:\nblocked:\nfds: 0 1 2\n");
  }
}

TEST_F(ChildrenTest, TheOpenersEndIsReportedAndAFailureBeepsAndLogsOneLine) {
  const std::string opener = path("bin/xdg-open");
  QDir().mkpath(QString::fromStdString(path("bin")));
  const std::string searchPath = path("bin") + ":" + std::getenv("PATH");
  ScopedEnvironment environment{{"PATH", searchPath.c_str()}};
  struct Case {
    const char* name;
    const char* script;
    int expected;
  } cases[] = {{"opened", "exit 0", 0}, {"no application for the type", "exit 3", 3}, {"killed", "kill -9 $$", -1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(writeFileAtomically(opener, std::string("#!/bin/sh\n") + c.script + "\n").ok());
    QFile::setPermissions(QString::fromStdString(opener), QFile::ReadOwner | QFile::ExeOwner);
    std::optional<int> status;
    launcher_->openDocument("/tmp/document.hsync", [&](int exitStatus) { status = exitStatus; });
    ASSERT_TRUE(waitUntil([&] { return status.has_value(); }));
    EXPECT_EQ(*status, c.expected);
    if (c.expected == 0) continue;
    // Chosen from the menu, the failure beeps and says so in the log.
    LogCapture log;
    const int beeps = statusItem_.beeps;
    daemon_->openSyncDocument(*makeItem("doc", 9, 0), false);
    EXPECT_TRUE(waitUntil([&] { return statusItem_.beeps == beeps + 1; }));
    const std::string said = "<Error:> Could not open \"/tmp/doc.hsync\": the opener ended with status ";
    EXPECT_EQ(log.lines(), Names{said + std::to_string(c.expected)});
  }
}

}  // namespace
}  // namespace halyard::agent::testing
