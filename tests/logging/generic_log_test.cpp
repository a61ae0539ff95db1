// The log model: sizes, the fixed 4096-kilobyte bound, the two
// notifications, the guarded accessors, archiving and many threads; and the
// mirror file on real files: lines appended in UTF-8, a folder at the path
// switching mirroring off, and the cut to `maxSize` when archived.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "foundation/archiver.h"
#include "foundation/log_sink.h"
#include "foundation/unarchiver.h"
#include "logging/generic_log.h"

namespace halyard {
namespace {

namespace fs = std::filesystem;

// Fakes of a log's collaborators: a fixed clock in UTC, a document that
// counts its changes, and an observer that keeps every notification name it hears.
class FixedClock final : public LogClock {
 public:
  explicit FixedClock(TimeInterval now) : _now(now) {}
  TimeInterval now() const override { return _now; }
  cctz::time_zone zone() const override { return cctz::utc_time_zone(); }

 private:
  TimeInterval _now;
};

class CountingDocument final : public LogDocument {
 public:
  void updateChangeCount(int change) override {
    if (change == kChangeDone) ++changes;
  }
  std::atomic<int> changes{0};
};

class RecordingObserver final : public LogObserver {
 public:
  void logNotification(std::string_view name, const GenericLog&) override {
    std::lock_guard guard(mutex_);
    _names.emplace_back(name);
  }
  std::vector<std::string> names() const {
    std::lock_guard guard(mutex_);
    return _names;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> _names;
};

// A log on its own notification centre, observed, at 2001-01-01 00:00:10 UTC.
struct ObservedLog {
  ObservedLog() {
    center->addObserver(observer);
    log = std::make_shared<GenericLog>(environment());
  }
  GenericLog::Environment environment() const { return {std::make_shared<FixedClock>(10.0), center}; }

  std::shared_ptr<LogNotificationCenter> center = std::make_shared<LogNotificationCenter>();
  std::shared_ptr<RecordingObserver> observer = std::make_shared<RecordingObserver>();
  std::shared_ptr<GenericLog> log;
};

constexpr std::string_view kEntriesChanged = "GenericLogEntiresChangedNotify";
constexpr std::string_view kNameChanged = "GenericLogNameChangedNotify";

TEST(GenericLogEntry, DataSizeCountsCharactersPlusTen) {
  struct Case {
    const char* name;
    std::string message;
    float kilobytes;
  } cases[] = {
      {"empty", "", 10 * 0.0009765625f},
      {"ascii", "abc", 13 * 0.0009765625f},
      {"two-byte character", "\xC3\xA9", 11 * 0.0009765625f},
      {"beyond the basic plane counts two", "\xF0\x9F\x98\x80", 12 * 0.0009765625f},
      {"1014 characters make one kilobyte", std::string(1014, 'x'), 1.0f},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(GenericLogEntry(c.message, 0).dataSize(), c.kilobytes);
  }
}

TEST(GenericLog, InMemoryBoundIsFixedAt4096KilobytesNotMaxSize) {
  ObservedLog observed;
  GenericLog& log = *observed.log;
  ASSERT_EQ(log.maxSize(), 1024.0f);
  const std::string kilobyte(1014, 'x');
  for (int i = 0; i < 4096; ++i) log.addLogMessage(kilobyte);
  EXPECT_EQ(log.logEntryCount(), 4096u) << "nothing dropped at exactly 4096 kilobytes";
  EXPECT_EQ(log.curSize(), 4096.0f);
  log.addLogMessage(std::string(1014, 'y'));
  EXPECT_EQ(log.logEntryCount(), 4096u);
  EXPECT_EQ(log.curSize(), 4096.0f);
  EXPECT_EQ(log.logEntryAtIndex(4095), "[2001-01-01 00:00:10 +0000] " + std::string(1014, 'y'));
}

TEST(GenericLog, NotificationsAndDocumentChanges) {
  ObservedLog observed;
  GenericLog& log = *observed.log;
  CountingDocument document;
  log.setDocument(&document);
  struct Step {
    const char* name;
    std::function<void()> act;
    std::vector<std::string_view> posted;
    int documentChanges;
  } steps[] = {
      {"clearing an empty log", [&] { log.clearLog(); }, {}, 0},
      {"adding", [&] { log.addLogMessage("one"); }, {kEntriesChanged}, 0},
      {"renaming", [&] { log.setName("Sync log"); }, {kNameChanged}, 0},
      {"the same name", [&] { log.setName("Sync log"); }, {}, 0},
      {"the same maximum", [&] { log.setMaxSize(1024.0f); }, {}, 0},
      {"a new maximum, nothing trimmed", [&] { log.setMaxSize(2048.0f); }, {}, 1},
      {"mirroring on", [&] { log.setMirrorToLogFile(true); }, {}, 1},
      {"mirroring on again", [&] { log.setMirrorToLogFile(true); }, {}, 0},
      {"limit on", [&] { log.setLimitMirroredLogFileSize(true); }, {}, 1},
      {"a path", [&] { log.setLogFilePath("/nonexistent/x.log"); }, {}, 1},
      {"custom path flag", [&] { log.setCustomMirrorPathSpecified(true); }, {}, 0},
      {"mirroring off", [&] { log.setMirrorToLogFile(false); }, {}, 1},
      {"clearing", [&] { log.clearLog(); }, {kEntriesChanged}, 1},
  };
  std::size_t heard = 0;
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    const int before = document.changes;
    step.act();
    const auto names = observed.observer->names();
    ASSERT_EQ(names.size(), heard + step.posted.size());
    for (std::size_t i = 0; i < step.posted.size(); ++i) EXPECT_EQ(names[heard + i], step.posted[i]);
    heard = names.size();
    EXPECT_EQ(document.changes - before, step.documentChanges);
  }
  EXPECT_EQ(log.curSize(), 0.0f);
}

TEST(GenericLog, GuardedAccessorsLogSwallowAndReleaseTheLock) {
  ObservedLog observed;
  GenericLog& log = *observed.log;
  log.addLogMessage("one");
  LogCapture capture;
  EXPECT_EQ(log.logEntryAtIndex(1), std::nullopt);
  log.setGuardFaultForTesting([](std::string_view selector) {
    if (selector == "logEntryCount" || selector == "setName:") throw std::runtime_error("fault");
  });
  EXPECT_EQ(log.logEntryCount(), 0u);
  log.setName("other");
  EXPECT_EQ(capture.lines(), (std::vector<std::string>{"<Error:> Exception caught in logEntryAtIndex:",
                                                       "<Error:> Exception caught in logEntryCount",
                                                       "<Error:> Exception caught in setName:"}));
  EXPECT_EQ(observed.observer->names().size(), 1u) << "a failed setter posts nothing";
  std::thread([&] { log.addLogMessage("from another thread"); }).join();
  log.setGuardFaultForTesting(nullptr);
  EXPECT_EQ(log.logEntryCount(), 2u);
}

TEST(GenericLog, FourThreadsLoseNoMessageAndSizesAddUp) {
  ObservedLog observed;
  GenericLog& log = *observed.log;
  constexpr int kThreads = 4;
  constexpr int kEach = 25'000;
  const auto message = [](int t, int i) { return "thread " + std::to_string(t) + " message " + std::to_string(i); };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&log, &message, t] {
      for (int i = 0; i < kEach; ++i) log.addLogMessage(message(t, i));
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_EQ(log.logEntryCount(), std::size_t{kThreads * kEach});
  float expected = 0.0f;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kEach; ++i) expected += GenericLogEntry(message(t, i), 0).dataSize();
  }
  EXPECT_EQ(log.curSize(), expected);
  EXPECT_EQ(observed.observer->names().size(), std::size_t{kThreads * kEach});
}

// The log that `root`'s archive decodes to, in `observed`'s environment.
std::shared_ptr<GenericLog> decodedLog(const ObjectRef& root, const ObservedLog& observed) {
  ClassRegistry registry = ClassRegistry::foundation();
  registerLogClasses(registry, observed.environment());
  auto decoded = Unarchiver::unarchiveRootObject(Archiver::archivedData(root), registry);
  EXPECT_TRUE(decoded.ok()) << (decoded.ok() ? "" : decoded.error().describe());
  return decoded.ok() ? objectAs<GenericLog>(*decoded) : nullptr;
}

TEST(GenericLog, ArchiveRoundTrips) {
  struct Case {
    const char* name;
    float maxSize;
    std::optional<std::string> path;
    bool flags;
    float decodedMaxSize;
  } cases[] = {
      {"no path decodes with none, 100 raised to 512", 100.0f, std::nullopt, false, 512.0f},
      {"an empty path decodes with none", 600.0f, "", true, 600.0f},
      {"a path and every flag", 2048.0f, "/tmp/a.log", true, 2048.0f},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ObservedLog observed;
    GenericLog& log = *observed.log;
    log.addLogMessage("first");
    log.addLogMessage("second \xC3\xA9");
    log.setMaxSize(c.maxSize);
    log.setLogFilePath(c.path);
    log.setName(c.path ? std::optional<std::string>("Named") : std::nullopt);
    log.setLimitMirroredLogFileSize(c.flags);
    log.setCustomMirrorPathSpecified(c.flags);
    auto decoded = decodedLog(observed.log, observed);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->maxSize(), c.decodedMaxSize);
    EXPECT_EQ(decoded->curSize(), log.curSize());
    EXPECT_EQ(decoded->logFilePath(), c.path && !c.path->empty() ? c.path : std::nullopt);
    EXPECT_EQ(decoded->name(), c.path ? "Named" : "") << "an absent name is written as \"\"";
    EXPECT_EQ(decoded->limitMirroredLogFileSize(), c.flags);
    EXPECT_EQ(decoded->customMirrorPathSpecified(), c.flags);
    EXPECT_FALSE(decoded->mirrorToLogFile());
    ASSERT_EQ(decoded->logEntryCount(), 2u);
    EXPECT_EQ(decoded->logEntryAtIndex(1), "[2001-01-01 00:00:10 +0000] second \xC3\xA9");
  }
}

TEST(GenericLog, ClearingAnEmptyDecodedLogResetsItsSizeSilently) {
  ObservedLog observed;
  struct Holder final : Object {
    std::shared_ptr<Dictionary> archive = Dictionary::make(true);
    ClassChain archiveClassChain() const override { return rootedChain({{"GenericLog", 0}}); }
    void encodeWithCoder(Archiver& coder) const override { coder.encodeObject(archive); }
    void writeJson(JsonWriter&) const override {}
  };
  auto holder = std::make_shared<Holder>();
  holder->archive->set("curSize", Number::fromFloat(5.5f));
  auto log = decodedLog(holder, observed);
  ASSERT_TRUE(log);
  EXPECT_EQ(log->curSize(), 5.5f);
  EXPECT_EQ(log->maxSize(), 1024.0f);
  log->clearLog();
  EXPECT_EQ(log->curSize(), 0.0f);
  EXPECT_TRUE(observed.observer->names().empty());
}

class MirrorFolder {
 public:
  MirrorFolder() {
    char pattern[] = "/tmp/halyard-log-test.XXXXXX";
    _root = mkdtemp(pattern);
  }
  ~MirrorFolder() { fs::remove_all(_root); }
  std::string path(const std::string& name) const { return _root + "/" + name; }

 private:
  std::string _root;
};

std::string contentsOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

TEST(GenericLogMirror, LinesAreAppendedLazilyAndClosedWhenOff) {
  MirrorFolder folder;
  const std::string path = folder.path("sync.log");
  writeFile(path, "earlier\n");
  ObservedLog observed;
  GenericLog& log = *observed.log;
  log.setLogFilePath(path);
  log.addLogMessage("before mirroring");
  log.setMirrorToLogFile(true);
  log.addLogMessage("caf\xC3\xA9");
  log.addLogMessage("");
  EXPECT_EQ(contentsOf(path), "earlier\n[2001-01-01 00:00:10 +0000] caf\xC3\xA9\n[2001-01-01 00:00:10 +0000] \n");
  log.setMirrorToLogFile(false);
  EXPECT_EQ(log.stream(), nullptr);
  log.addLogMessage("after");
  EXPECT_EQ(log.logEntryCount(), 4u);
  EXPECT_EQ(contentsOf(path).find("after"), std::string::npos);
}

TEST(GenericLogMirror, MissingFileIsMadeAndAFolderTurnsMirroringOff) {
  MirrorFolder folder;
  struct Case {
    const char* name;
    std::string path;
    bool makeFolder;
    bool stillMirroring;
  } cases[] = {
      {"nothing at the path: a file is made", folder.path("new.log"), false, true},
      {"a folder at the path", folder.path("folder"), true, false},
      {"a path in a missing folder", folder.path("missing/x.log"), false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.makeFolder) fs::create_directory(c.path);
    ObservedLog observed;
    CountingDocument document;
    observed.log->setDocument(&document);
    observed.log->setLogFilePath(c.path);
    observed.log->setMirrorToLogFile(true);
    const int before = document.changes;
    observed.log->addLogMessage("message");
    EXPECT_EQ(observed.log->mirrorToLogFile(), c.stillMirroring);
    EXPECT_EQ(document.changes - before, c.stillMirroring ? 0 : 1);
    EXPECT_EQ(observed.log->logEntryCount(), 1u) << "the message is kept either way";
    EXPECT_EQ(fs::is_directory(c.path), c.makeFolder);
    EXPECT_EQ(fs::is_regular_file(c.path) ? contentsOf(c.path) : "",
              c.stillMirroring ? "[2001-01-01 00:00:10 +0000] message\n" : "");
  }
}

TEST(GenericLogMirror, ArchivingCutsTheFileToItsLastMaxSizeKilobytes) {
  MirrorFolder folder;
  std::string pattern;
  for (int i = 0; pattern.size() < 1'000'000; ++i) pattern += std::to_string(i) + ",";
  struct Case {
    const char* name;
    float maxSize;
    bool limit;
    std::size_t expectedSize;
  } cases[] = {
      {"over the limit, across several blocks", 600.0f, true, 600 * 1024},
      {"limit off", 600.0f, false, pattern.size()},
      {"under the limit", 2048.0f, true, pattern.size()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = folder.path("cut.log");
    writeFile(path, pattern);
    ObservedLog observed;
    observed.log->setLogFilePath(path);
    observed.log->setMirrorToLogFile(true);
    observed.log->setMaxSize(c.maxSize);
    observed.log->setLimitMirroredLogFileSize(c.limit);
    Archiver::archivedData(observed.log);
    EXPECT_EQ(contentsOf(path), pattern.substr(pattern.size() - c.expectedSize));
  }
}

}  // namespace
}  // namespace halyard
