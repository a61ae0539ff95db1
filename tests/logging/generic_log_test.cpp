// The log model in memory: sizes, the fixed 4096-kilobyte bound, the two
// notifications, the guarded accessors, archiving and many threads.

#include <gtest/gtest.h>

#include <thread>

#include "foundation/archiver.h"
#include "foundation/log_sink.h"
#include "foundation/unarchiver.h"
#include "logging/log_test_support.h"

namespace halyard {
namespace {

using testing_support::CountingDocument;
using testing_support::ObservedLog;

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
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&log, t] {
      for (int i = 0; i < kEach; ++i)
        log.addLogMessage("thread " + std::to_string(t) + " message " + std::to_string(i));
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_EQ(log.logEntryCount(), std::size_t{kThreads * kEach});
  float expected = 0.0f;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kEach; ++i) {
      expected += GenericLogEntry("thread " + std::to_string(t) + " message " + std::to_string(i), 0).dataSize();
    }
  }
  EXPECT_EQ(log.curSize(), expected);
  EXPECT_EQ(observed.observer->names().size(), std::size_t{kThreads * kEach});
}

std::shared_ptr<GenericLog> roundTrip(const ObservedLog& observed) {
  ClassRegistry registry = ClassRegistry::foundation();
  registerLogClasses(registry, observed.environment());
  auto decoded = Unarchiver::unarchiveRootObject(Archiver::archivedData(observed.log), registry);
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
    auto decoded = roundTrip(observed);
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
  auto archive = Dictionary::make(true);
  archive->set("curSize", Number::fromFloat(5.5f));
  struct Holder final : Object {
    std::shared_ptr<Dictionary> archive;
    ClassChain archiveClassChain() const override { return rootedChain({{"GenericLog", 0}}); }
    void encodeWithCoder(Archiver& coder) const override { coder.encodeObject(archive); }
    void writeJson(JsonWriter&) const override {}
  };
  auto holder = std::make_shared<Holder>();
  holder->archive = archive;
  ClassRegistry registry = ClassRegistry::foundation();
  registerLogClasses(registry, observed.environment());
  auto decoded = Unarchiver::unarchiveRootObject(Archiver::archivedData(holder), registry);
  ASSERT_TRUE(decoded.ok());
  auto log = objectAs<GenericLog>(*decoded);
  ASSERT_TRUE(log);
  EXPECT_EQ(log->curSize(), 5.5f);
  EXPECT_EQ(log->maxSize(), 1024.0f);
  log->clearLog();
  EXPECT_EQ(log->curSize(), 0.0f);
  EXPECT_TRUE(observed.observer->names().empty());
}

}  // namespace
}  // namespace halyard
