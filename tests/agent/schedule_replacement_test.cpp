// The schedule file replaced a hundred times a second by another process,
// by atomic renames and by rewrites in place, while the daemon reads it: every
// read gives one whole schedule or none, and each stretch in which the file
// cannot be read is logged once.

#include <algorithm>
#include <iostream>

#include "daemon_fixture.h"
#include "foundation/log_sink.h"

namespace halyard::agent::testing {
namespace {

// Copies FIRST and SECOND over TARGET in turn, COUNT times, 100 a second:
// "rename" writes a temporary file and renames it over, "in-place" rewrites
// the file itself (truncated, then written in pieces).
constexpr char kWriter[] = R"(
import os, sys, time
mode, first, second, target, count = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4], int(sys.argv[5])
sources = [open(first, 'rb').read(), open(second, 'rb').read()]
for i in range(count):
    data = sources[i % 2]
    if mode == 'rename':
        with open(target + '.new', 'wb') as f:
            f.write(data); f.flush(); os.fsync(f.fileno())
        os.rename(target + '.new', target)
    else:
        with open(target, 'r+b') as f:
            f.truncate(0)
            for at in range(0, len(data), 512):
                f.write(data[at:at + 512]); f.flush()
    time.sleep(0.01)
print('done', flush=True)
)";

Names setOf(const std::string& prefix) {
  Names names;
  for (int i = 1; i <= 20; ++i) names.push_back(prefix + std::to_string(i));
  return names;
}

void writeSet(const std::string& path, const Names& names) {
  std::vector<std::shared_ptr<KSScheduledItem>> items;
  for (const auto& name : names) items.push_back(makeItem(name, 10, 1));
  writeSchedule(path, items);
}

using ScheduleReplacementTest = DaemonFixture;

TEST_F(ScheduleReplacementTest, EveryReadIsAWholeScheduleOrNoneAndEachUnreadableStretchIsLoggedOnce) {
  const Names first = setOf("first-"), second = setOf("second-");
  writeSet(path("first.sched"), first);
  writeSet(path("second.sched"), second);
  writeSet(path("ScheduleData.sched"), first);
  makeDaemon();
  for (const std::string mode : {"rename", "in-place"}) {
    SCOPED_TRACE(mode);
    LogCapture log;
    TestProcess writer(
        "/usr/bin/python3",
        {"-c", kWriter, mode, path("first.sched"), path("second.sched"), path("ScheduleData.sched"), "300"},
        bus_.address());
    int reads = 0, unreadable = 0, stretches = 0;
    bool wasUnreadable = false;
    while (writer.process().state() != QProcess::NotRunning || reads == 0) {
      writer.process().waitForFinished(0);
      const auto items = daemon_->loadItems();
      ++reads;
      if (!items) ++unreadable;
      if (!items && !wasUnreadable) ++stretches;
      wasUnreadable = !items;
      if (!items) continue;
      const Names names = descriptions(asObjects(*items));
      ASSERT_TRUE(names == first || names == second)
          << names.size() << " items read, the first " << (names.empty() ? "" : names.front());
    }
    ASSERT_TRUE(writer.waitForOutput("done")) << writer.output();
    const auto lines = log.lines();
    const auto logged = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("cannot be read") != std::string::npos;
    });
    EXPECT_EQ(logged, stretches) << reads << " reads, " << unreadable << " unreadable";
    if (mode == std::string("rename")) {
      EXPECT_EQ(unreadable, 0);
    }
    RecordProperty(mode + "_reads", reads);
    RecordProperty(mode + "_unreadable", unreadable);
    std::cout << mode << ": " << reads << " reads, " << unreadable << " unreadable in " << stretches << " stretches\n";
  }
}

}  // namespace
}  // namespace halyard::agent::testing
