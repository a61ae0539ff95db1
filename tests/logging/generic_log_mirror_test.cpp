// The mirror file on real files: lines appended in UTF-8, a folder at the
// path switching mirroring off, and the cut to `maxSize` when archived.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "foundation/archiver.h"
#include "logging/log_test_support.h"

namespace halyard {
namespace {

namespace fs = std::filesystem;
using testing_support::CountingDocument;
using testing_support::ObservedLog;

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
    if (c.makeFolder) {
      EXPECT_TRUE(fs::is_directory(c.path));
    }
    if (c.stillMirroring) {
      EXPECT_EQ(contentsOf(c.path), "[2001-01-01 00:00:10 +0000] message\n");
    }
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
