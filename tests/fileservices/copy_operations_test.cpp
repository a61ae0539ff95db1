// Copy, move and remove on real files: metadata kept, codes returned, and an
// asynchronous copy of a tree of more than 1 GiB paused, resumed and aborted
// through the progress delegate.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <numeric>

#include "fileservices/file_metadata.h"
#include "fileservices/test_folder.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::fileservices {
namespace {

namespace fs = std::filesystem;

struct stat statOf(const std::string& path) {
  struct stat st {};
  lstat(path.c_str(), &st);
  return st;
}

// A small tree: a file with mode, times, an attribute and a comment, a
// read-only subfolder and a symbolic link.
void makeSmallTree(const TestFolder& folder) {
  const std::string file = folder.writeFile("tree/doc.txt", "hello");
  folder.writeFile("tree/sub/inner.bin", std::string(100000, 'z'));
  chmod(file.c_str(), 0640);
  setxattr(file.c_str(), "user.test", "v", 1, 0);
  writeComment(file, "a comment");
  ASSERT_EQ(symlink("doc.txt", folder.path("tree/link").c_str()), 0);
  const timespec times[2] = {{1000000000, 5}, {1200000000, 123456789}};
  utimensat(AT_FDCWD, file.c_str(), times, 0);
  chmod(folder.path("tree/sub").c_str(), 0555);
}

TEST(CopyOperations, CopyKeepsContentsModesTimesLinksAndAttributes) {
  TestFolder folder;
  makeSmallTree(folder);
  auto fm = VTFileManager::make();
  ASSERT_EQ(fm->copyPath(folder.path("tree"), folder.path("copy"), true), 0);
  EXPECT_EQ(fm->lastError(), 0);
  const std::string copied = folder.path("copy/doc.txt");
  EXPECT_EQ(contentsOf(copied), "hello");
  EXPECT_EQ(contentsOf(folder.path("copy/sub/inner.bin")), std::string(100000, 'z'));
  EXPECT_EQ(statOf(copied).st_mode & 07777, 0640u);
  EXPECT_EQ(statOf(copied).st_mtim.tv_sec, 1200000000);
  EXPECT_EQ(statOf(copied).st_mtim.tv_nsec, 123456789);
  EXPECT_EQ(statOf(folder.path("copy/sub")).st_mode & 07777, 0555u);
  EXPECT_EQ(fs::read_symlink(folder.path("copy/link")), "doc.txt");
  EXPECT_EQ(extendedAttribute(copied, "user.test"), "v");
  EXPECT_EQ(readComment(copied), "a comment");

  ASSERT_EQ(fm->copyPath(folder.path("tree/doc.txt"), folder.path("plain.txt"), false), 0);
  EXPECT_FALSE(readComment(folder.path("plain.txt"))) << "comment left behind when not preserved";
}

TEST(CopyOperations, FailuresAreErrnoCodesAndLeaveNothingBehind) {
  TestFolder folder;
  folder.writeFile("a.txt", "a");
  folder.writeFile("b.txt", "b");
  auto fm = VTFileManager::make();
  struct Case {
    const char* what;
    std::string src, dest;
    ErrorCode code;
  };
  const Case cases[] = {
      {"destination exists", folder.path("a.txt"), folder.path("b.txt"), EEXIST},
      {"source missing", folder.path("none"), folder.path("c.txt"), ENOENT},
      {"folder missing", folder.path("a.txt"), folder.path("no/c.txt"), ENOENT},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(fm->copyPath(c.src, c.dest, true), c.code);
    EXPECT_EQ(fm->lastError(), c.code);
  }
  EXPECT_EQ(contentsOf(folder.path("b.txt")), "b");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.root()), fs::directory_iterator()), 2);
}

TEST(CopyOperations, LockedSourceGivesLockedCopy) {
  if (!canChangeLock()) GTEST_SKIP() << "needs CAP_LINUX_IMMUTABLE";
  TestFolder folder;  // clears the flags in its destructor
  const std::string src = folder.writeFile("locked.txt", "data");
  if (setLocked(src, true) != 0) GTEST_SKIP() << "file system without inode flags";
  auto fm = VTFileManager::make();
  ASSERT_EQ(fm->copyPath(src, folder.path("copy.txt"), true), 0);
  EXPECT_TRUE(isLocked(folder.path("copy.txt")));
  EXPECT_TRUE(isLocked(src));
}

TEST(CopyOperations, ACopiedManagerCopiesThoughItsRecordedBufferHoldsNoMemory) {
  TestFolder folder;
  folder.writeFile("a.txt", "abc");
  auto fm = VTFileManager::make();
  ASSERT_EQ(fm->copyPath(folder.path("a.txt"), folder.path("b.txt"), false), 0);
  auto copy = fm->copy();  // records the size the copy above used, without the memory
  EXPECT_EQ(copy->copyPath(folder.path("a.txt"), folder.path("c.txt"), false), 0);
  EXPECT_EQ(contentsOf(folder.path("c.txt")), "abc");
}

TEST(CopyOperations, MoveAndRemove) {
  TestFolder folder;
  makeSmallTree(folder);
  auto fm = VTFileManager::make();
  ASSERT_EQ(fm->movePath(folder.path("tree"), folder.path("moved"), true), 0);
  EXPECT_FALSE(fs::exists(folder.path("tree")));
  EXPECT_EQ(readComment(folder.path("moved/doc.txt")), "a comment");
  EXPECT_EQ(fm->movePath(folder.path("tree"), folder.path("again"), true), ENOENT);
  chmod(folder.path("moved/sub").c_str(), 0755);
  EXPECT_EQ(fm->removeFileAtPath(folder.path("moved")), 0);
  EXPECT_FALSE(fs::exists(folder.path("moved")));
  EXPECT_EQ(fm->removeFileAtPath(folder.path("moved")), ENOENT);
}

TEST(CopyOperations, AsyncFamiliesAnswerThroughTheSign) {
  TestFolder folder;
  folder.writeFile("a.txt", "a");
  auto fm = VTFileManager::make();
  EXPECT_LT(fm->asyncCopyPath(folder.path("a.txt"), folder.path("b.txt"), true), 0);
  EXPECT_LT(fm->asyncMovePath(folder.path("b.txt"), folder.path("c.txt"), true), 0);
  const CommandID failed = fm->asyncRemoveFileAtPath(folder.path("b.txt"));
  ASSERT_GT(failed, 0);
  EXPECT_EQ(fm->statusForCommand(failed), ENOENT);
  EXPECT_LT(fm->asyncRemoveFileAtPath(folder.path("c.txt")), 0);
  EXPECT_EQ(contentsOf(folder.path("a.txt")), "a");
  EXPECT_FALSE(fs::exists(folder.path("c.txt")));
}

// ---- a tree of more than 1 GiB ----

constexpr std::int64_t kBlock = 4 * 1024 * 1024;
constexpr int kFiles = 8;
constexpr std::int64_t kFileSize = 128 * 1024 * 1024 + 4096;  // 8 of them: just over 1 GiB

// Pauses the copy from its start, then either resumes it after the first
// report or aborts it there. It checks, while paused, that no bytes move.
class ScriptedDelegate final : public ProgressDelegate {
 public:
  ScriptedDelegate(VTFileManager& fm, std::promise<void>& gate, bool abortAtFirstReport)
      : fm_(fm), _gate(gate), _abort(abortAtFirstReport) {}
  void willWaitForCommand(CommandID id) override {
    id_ = id;
    fm_.setProperty(kPauseKey, id, true);
    _gate.set_value();
  }
  bool completedBlockCopy(std::int64_t bytes) override {
    reports.push_back(bytes);
    return true;
  }
  bool abortFileCopy() override { return _abort && !reports.empty(); }
  bool pauseFileCopy() override {
    if (reports.size() != 1) return reports.empty();
    // Paused after the first report: the copy loop adds nothing.
    stillWhilePaused.push_back(fm_.commandPool().getPropertyAs<std::int64_t>(kDCpyKey, id_).value_or(-1));
    return stillWhilePaused.size() < 2;
  }

  std::vector<std::int64_t> reports;
  std::vector<std::int64_t> stillWhilePaused;

 private:
  VTFileManager& fm_;
  std::promise<void>& _gate;
  bool _abort;
  CommandID id_ = 0;
};

class LargeTreeCopy : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new TestFolder;
    // Real data: a pseudo-random block, varied in every block written.
    std::vector<std::uint64_t> block(kBlock / 8);
    std::uint64_t x = 0x9E3779B97F4A7C15ull;
    for (auto& word : block) word = (x ^= x << 13, x ^= x >> 7, x ^= x << 17);
    for (int f = 0; f < kFiles; ++f) {
      const std::string path =
          folder_->writeFile("big/" + std::string(f % 2 ? "odd/" : "") + "part" + std::to_string(f), "");
      std::ofstream out(path, std::ios::binary);
      for (std::int64_t done = 0; done < kFileSize; done += kBlock) {
        block[0] = static_cast<std::uint64_t>(f) << 32 | static_cast<std::uint64_t>(done / kBlock);
        out.write(reinterpret_cast<const char*>(block.data()), std::min(kBlock, kFileSize - done));
      }
    }
    ASSERT_EQ(symlink("part0", folder_->path("big/link").c_str()), 0);
  }
  static void TearDownTestSuite() { delete folder_; }

  // Copies "big" to `dest` through `delegate` and answers the finished
  // command's id. A command of its own holds the worker until the delegate
  // has the copy's id and has set "PAUSE": the copy then stops after its
  // first block however fast the machine is.
  CommandID copyHeld(const std::string& dest, const std::shared_ptr<ScriptedDelegate>& delegate) {
    auto opened = gate_.get_future().share();
    fm_->commandPool().runCommand([opened](CommandID) { opened.wait(); }, nullptr, nullptr);
    CommandID id = fm_->asyncCopyPath(folder_->path("big"), dest, true, delegate);
    while (id > 0 && fm_->statusForCommand(id) == kCommandNotFinished) id = fm_->waitForCommandCompletion(id, 10.0);
    return id;
  }

  static TestFolder* folder_;
  std::shared_ptr<VTFileManager> fm_ = VTFileManager::make();
  std::promise<void> gate_;
};
TestFolder* LargeTreeCopy::folder_ = nullptr;

bool sameContents(const std::string& a, const std::string& b) {
  std::ifstream x(a, std::ios::binary), y(b, std::ios::binary);
  std::vector<char> bx(kBlock), by(kBlock);
  while (x && y) {
    x.read(bx.data(), kBlock);
    y.read(by.data(), kBlock);
    if (x.gcount() != y.gcount() || !std::equal(bx.begin(), bx.begin() + x.gcount(), by.begin())) return false;
  }
  return x.eof() && y.eof();
}

TEST_F(LargeTreeCopy, PausedAtTheFirstReportThenResumedToTheEnd) {
  auto delegate = std::make_shared<ScriptedDelegate>(*fm_, gate_, false);
  const std::string dest = folder_->path("copy");
  const CommandID id = copyHeld(dest, delegate);
  ASSERT_LT(id, 0) << fm_->errorMessageForCode(fm_->statusForCommand(id));

  ASSERT_FALSE(delegate->reports.empty());
  EXPECT_EQ(delegate->reports.front(), kBlock) << "held after exactly one block";
  // Asked during the first report, before the waiter clears "DCPY"; asked
  // again a pass later, nothing more has been copied.
  EXPECT_EQ(delegate->stillWhilePaused, (std::vector<std::int64_t>{kBlock, 0}));
  const std::int64_t told = std::accumulate(delegate->reports.begin(), delegate->reports.end(), std::int64_t{0});
  EXPECT_EQ(told + fm_->getAndClearDataCopiedCountForCommand(id), kFiles * kFileSize);
  for (int f = 0; f < kFiles; ++f) {
    const std::string name = (f % 2 ? "odd/" : "") + std::string("part") + std::to_string(f);
    ASSERT_TRUE(sameContents(folder_->path("big/" + name), dest + "/" + name)) << name;
  }
  EXPECT_EQ(fs::read_symlink(dest + "/link"), "part0");
  fs::remove_all(dest);
}

TEST_F(LargeTreeCopy, AbortedMidwayAnswersMinus128AndLeavesNothing) {
  auto delegate = std::make_shared<ScriptedDelegate>(*fm_, gate_, true);
  const std::string dest = folder_->path("aborted");
  const CommandID id = copyHeld(dest, delegate);
  ASSERT_GT(id, 0);
  EXPECT_EQ(fm_->statusForCommand(id), kUserCanceledErr);
  EXPECT_EQ(delegate->reports, (std::vector<std::int64_t>{kBlock}));
  EXPECT_FALSE(fs::exists(dest));
  for (const auto& entry : fs::directory_iterator(folder_->root())) {
    EXPECT_EQ(entry.path().filename().string().find(".halyard-partial"), std::string::npos) << entry.path();
  }
}

}  // namespace
}  // namespace halyard::fileservices
