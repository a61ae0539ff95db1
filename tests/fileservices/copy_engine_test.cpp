// The copy engine on real files: the order of its flushes, renames and
// removals (through its step seam), moves across file systems (a tmpfs, and
// a ramfs that holds no extended attributes, in a private mount namespace),
// refusals, temporary names, and walks that meet a folder swapped for a
// symbolic link.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "fileservices/copy_engine.h"
#include "fileservices/file_metadata.h"
#include "fileservices/private_mounts.h"
#include "fileservices/test_folder.h"
#include "fileservices/vt_file_manager.h"
#include "foundation/log_sink.h"
#include "foundation/unique_handle.h"

namespace halyard::fileservices {
namespace {

namespace fs = std::filesystem;

class StepLog final : public EngineHooks {
 public:
  int before(EngineStep step, const std::string& path) override {
    steps.emplace_back(step, path);
    return action ? action(step, path) : 0;
  }
  // The index of the first or last `step` taken, -1 when it was not.
  std::ptrdiff_t first(EngineStep step) const {
    auto found = std::find_if(steps.begin(), steps.end(), [&](const auto& taken) { return taken.first == step; });
    return found == steps.end() ? -1 : found - steps.begin();
  }
  std::ptrdiff_t last(EngineStep step) const {
    auto found = std::find_if(steps.rbegin(), steps.rend(), [&](const auto& taken) { return taken.first == step; });
    return steps.rend() - found - 1;
  }

  std::vector<std::pair<EngineStep, std::string>> steps;
  std::function<int(EngineStep, const std::string&)> action;
};

// The engine as the file manager runs it, with a small buffer so that files
// take several blocks.
struct Engine {
  Engine() {
    setup.buffer = buffer.data();
    setup.bufferSize = buffer.size();
    setup.report = &report;
    setup.hooks = &log;
  }
  std::vector<std::byte> buffer = std::vector<std::byte>(64 * 1024);
  EngineReport report;
  StepLog log;
  CopyEngineSetup setup;
};

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// Three files, one with an attribute, in two folders.
void makeTree(const TestFolder& folder, const std::string& name) {
  folder.writeFile(name + "/a.txt", "alpha");
  folder.writeFile(name + "/sub/b.txt", std::string(200000, 'b'));
  folder.writeFile(name + "/sub/c.txt", "gamma");
  setxattr(folder.path(name + "/a.txt").c_str(), "user.kept", "1", 1, 0);
}

void expectTreeWhole(const TestFolder& folder, const std::string& name) {
  EXPECT_EQ(contentsOf(folder.path(name + "/a.txt")), "alpha");
  EXPECT_EQ(contentsOf(folder.path(name + "/sub/b.txt")), std::string(200000, 'b'));
  EXPECT_EQ(contentsOf(folder.path(name + "/sub/c.txt")), "gamma");
}

TEST(CopyEngineDurability, CopiesAreFlushedBeforeTheirRenameAndTheFolderAfter) {
  TestFolder folder;
  makeTree(folder, "tree");
  for (const char* item : {"tree", "tree/a.txt"}) {
    SCOPED_TRACE(item);
    Engine engine;
    ASSERT_EQ(copyItem(folder.path(item), folder.path("copy"), engine.setup), 0) << engine.report.failure;
    const auto flush = std::string(item) == "tree" ? EngineStep::FlushFileSystem : EngineStep::FlushFile;
    const auto& log = engine.log;
    ASSERT_GE(log.first(flush), 0);
    EXPECT_LT(log.first(flush), log.first(EngineStep::Rename));
    EXPECT_LT(log.first(EngineStep::Rename), log.first(EngineStep::FlushParent));
    EXPECT_EQ(log.first(EngineStep::Remove), -1);
    fs::remove_all(folder.path("copy"));
  }
}

TEST(CopyEngineSafety, DestinationAtOrBelowTheSourceIsRefusedWithNothingWritten) {
  TestFolder folder;
  makeTree(folder, "tree");
  fs::create_directory_symlink("tree/sub", folder.path("alias"));
  struct Case {
    const char* what;
    std::string dest;
  };
  const Case cases[] = {
      {"into its subfolder", folder.path("tree/sub/copy")},
      {"into itself", folder.path("tree/copy")},
      {"through a link to its subfolder", folder.path("alias/copy")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    for (auto operation : {copyItem, moveItem}) {
      Engine engine;
      EXPECT_EQ(operation(folder.path("tree"), c.dest, engine.setup), kDestinationInsideSourceErr);
      EXPECT_TRUE(engine.log.steps.empty()) << "a step was taken";
      EXPECT_FALSE(engine.report.failure.empty());
    }
  }
  EXPECT_EQ(namesIn(folder.path("tree")), (std::vector<std::string>{"a.txt", "sub"}));
  EXPECT_EQ(namesIn(folder.path("tree/sub")), (std::vector<std::string>{"b.txt", "c.txt"}));
}

TEST(CopyEngineTree, SparseHardLinkedAndLockedItemsInsideATreeAreKept) {
  TestFolder folder;
  const std::string sparse = folder.writeFile("tree/sparse.img", "");
  {
    std::fstream out(sparse, std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(512 << 20);
    out << std::string(4096, 'd');
  }
  truncate(sparse.c_str(), 1 << 30);
  folder.writeFile("tree/deep/one", "linked");
  ASSERT_EQ(link(folder.path("tree/deep/one").c_str(), folder.path("tree/two").c_str()), 0);
  const bool noDump =
      setInodeFlags(folder.path("tree/deep/one"), inodeFlags(folder.path("tree/deep/one")) | FS_NODUMP_FL);
  const std::string locked = folder.writeFile("tree/deep/locked", "keep");
  const bool canLock = canChangeLock() && setLocked(locked, true) == 0;

  Engine engine;
  ASSERT_EQ(copyItem(folder.path("tree"), folder.path("copy"), engine.setup), 0) << engine.report.failure;
  struct stat copy {
  }, one{}, two{};
  ASSERT_EQ(stat(folder.path("copy/sparse.img").c_str(), &copy), 0);
  EXPECT_EQ(copy.st_size, 1 << 30);
  EXPECT_LE(copy.st_blocks * 512, 64 * 1024) << "holes were filled";
  std::ifstream in(folder.path("copy/sparse.img"), std::ios::binary);
  in.seekg(512 << 20);
  std::string data(4096, '\0');
  in.read(data.data(), 4096);
  EXPECT_EQ(data, std::string(4096, 'd'));
  ASSERT_EQ(stat(folder.path("copy/deep/one").c_str(), &one), 0);
  ASSERT_EQ(stat(folder.path("copy/two").c_str(), &two), 0);
  EXPECT_EQ(one.st_ino, two.st_ino) << "the hard link became two files";
  if (noDump) {
    EXPECT_TRUE(inodeFlags(folder.path("copy/deep/one")) & FS_NODUMP_FL);
  }
  if (canLock) {
    EXPECT_TRUE(isLocked(folder.path("copy/deep/locked")));
  }
  EXPECT_TRUE(engine.report.losses.empty()) << engine.report.losses.front();
}

// Two descriptors stay open per level of a walk: 700 levels need more than
// a soft limit of 1,024. The child process lowers its own limit to that.
TEST(CopyEngineTree, ATreeDeeperThanTheSoftLimitOfDescriptorsAllowsIsCopiedAndRemoved) {
  TestFolder folder;
  std::string deep = "tree";
  for (int level = 0; level < 700; ++level) deep += "/d";
  folder.writeFile(deep + "/leaf", "leaf");
  const pid_t child = fork();
  if (child == 0) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 2048) _exit(2);
    limit.rlim_cur = 1024;
    setrlimit(RLIMIT_NOFILE, &limit);
    Engine engine;
    const bool done = copyItem(folder.path("tree"), folder.path("copy"), engine.setup) == 0 &&
                      removeItem(folder.path("tree"), engine.setup) == 0;
    _exit(done ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "the hard limit of open files is below 2,048 here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(contentsOf(folder.path("copy" + deep.substr(4) + "/leaf")), "leaf");
  EXPECT_FALSE(fs::exists(folder.path("tree")));
}

TEST(CopyEngineTemporary, ACollisionKeepsWhatWasThereAndAFailureRemovesOnlyItsOwnPartial) {
  TestFolder folder;
  makeTree(folder, "tree");
  std::vector<std::string> planted;
  Engine engine;
  engine.log.action = [&](EngineStep step, const std::string& path) {
    if (step == EngineStep::CreatePartial && planted.empty()) {
      planted.push_back(path);
      std::ofstream(path) << "not ours";
    }
    return step == EngineStep::Rename ? EIO : 0;
  };
  EXPECT_EQ(copyItem(folder.path("tree"), folder.path("copy"), engine.setup), EIO);
  ASSERT_EQ(planted.size(), 1u);
  EXPECT_EQ(contentsOf(planted[0]), "not ours");
  EXPECT_EQ(namesIn(folder.root()), (std::vector<std::string>{fs::path(planted[0]).filename(), "tree"}));
  EXPECT_NE(engine.report.failure.find(folder.path("copy")), std::string::npos) << engine.report.failure;
}

TEST(CopyEngineTemporary, AStalePartialOfADeadProcessIsRemovedByTheNextCopy) {
  TestFolder folder;
  folder.writeFile("a.txt", "a");
  const pid_t child = fork();
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  const std::string stale = folder.path(".b.txt.halyard-partial-" + std::to_string(child) + "-0011223344556677");
  const std::string alive = folder.path(".b.txt.halyard-partial-1-0011223344556677");
  folder.writeFile(fs::path(stale).filename().string() + "/ro/x", "partial");
  chmod((stale + "/ro").c_str(), 0555);
  folder.writeFile(fs::path(alive).filename(), "pid 1 is alive");
  // A copy in another PID namespace: its process id names nobody here, but
  // it holds the partial's lock.
  const std::string elsewhere = folder.path(".b.txt.halyard-partial-" + std::to_string(child) + "-8899aabbccddeeff");
  folder.writeFile(fs::path(elsewhere).filename(), "copying");
  UniqueFd held(open(elsewhere.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  Engine engine;
  ASSERT_EQ(copyItem(folder.path("a.txt"), folder.path("b.txt"), engine.setup), 0);
  EXPECT_FALSE(fs::exists(stale));
  EXPECT_TRUE(fs::exists(alive));
  EXPECT_TRUE(fs::exists(elsewhere));
}

// The hook swaps the folder for a link to a folder outside the tree after
// the walk has examined it and before it opens it.
TEST(CopyEngineWalk, AFolderSwappedForALinkBetweenStepsIsNotFollowed) {
  TestFolder folder;
  makeTree(folder, "tree");
  folder.writeFile("outside/secret", "private");
  auto swapSub = [&](EngineStep step, const std::string& path) {
    if (step == EngineStep::OpenFolder && path == folder.path("tree/sub") && !fs::is_symlink(path)) {
      fs::rename(path, folder.path("moved-away"));
      fs::create_directory_symlink(folder.path("outside"), path);
    }
    return 0;
  };
  {
    Engine engine;
    engine.log.action = swapSub;
    EXPECT_NE(copyItem(folder.path("tree"), folder.path("copy"), engine.setup), 0);
    EXPECT_NE(engine.report.failure.find(folder.path("tree/sub")), std::string::npos) << engine.report.failure;
    EXPECT_EQ(namesIn(folder.root()), (std::vector<std::string>{"moved-away", "outside", "tree"}));
  }
  fs::remove(folder.path("tree/sub"));
  fs::rename(folder.path("moved-away"), folder.path("tree/sub"));
  {
    Engine engine;
    engine.log.action = swapSub;
    EXPECT_EQ(removeItem(folder.path("tree"), engine.setup), 0) << engine.report.failure;
    EXPECT_FALSE(fs::exists(folder.path("tree")));
    EXPECT_EQ(contentsOf(folder.path("outside/secret")), "private");
    EXPECT_EQ(contentsOf(folder.path("moved-away/c.txt")), "gamma");
  }
}

// As a user without privileges (run in a child that drops them): a failed
// copy removes its partial with its read-only folders, and a folder raised
// to writable for a copy gets its mode back on success and on failure.
// The child answers a bit for each check that failed.
int checksWithoutPrivileges(const TestFolder& folder) {
  int failed = 0;
  fs::create_directories(folder.path("tree/ro"));
  std::ofstream(folder.path("tree/ro/file")) << "data";
  chmod(folder.path("tree/ro").c_str(), 0555);
  Engine engine;
  engine.log.action = [](EngineStep step, const std::string&) { return step == EngineStep::Rename ? EIO : 0; };
  if (copyItem(folder.path("tree"), folder.path("copy"), engine.setup) != EIO) failed |= 1;
  if (namesIn(folder.root()) != std::vector<std::string>{"tree"}) failed |= 2;
  fs::create_directories(folder.path("closed"));
  chmod(folder.path("closed").c_str(), 0555);
  auto fm = VTFileManager::make();
  if (fm->copyPath(folder.path("tree/ro/file"), folder.path("closed/file"), true) != 0) failed |= 4;
  if (fm->copyPath(folder.path("missing"), folder.path("closed/other"), true) != ENOENT) failed |= 8;
  if (permissionBits(folder.path("closed")) != 0555u) failed |= 16;
  if (permissionBits(folder.path("tree/ro/file")) != 0644u) failed |= 32;
  chmod(folder.path("closed").c_str(), 0755);
  chmod(folder.path("tree/ro").c_str(), 0755);
  return failed;
}

TEST(CopyEngineTemporary, WithoutPrivilegesPartialsGoAndRaisedModesComeBack) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to change to another user";
  TestFolder folder;
  chmod(folder.root().c_str(), 0777);
  EXPECT_EQ(exitCodeAsNobody([&] { return checksWithoutPrivileges(folder); }), 0)
      << "bits of the checks that failed (64: could not change user)";
}

// ---- across file systems ----

class CrossFileSystem : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!mounts_.unavailable().empty()) GTEST_SKIP() << mounts_.unavailable();
    fs::create_directories(other_);
    if (auto reason = mounts_.mount(type(), other_); !reason.empty()) GTEST_SKIP() << reason;
    makeTree(folder_, "tree");
  }
  virtual const char* type() const { return "tmpfs"; }

  TestFolder folder_;
  PrivateMounts mounts_;
  std::string other_ = folder_.path("other");
};

TEST_F(CrossFileSystem, TheSourceIsRemovedOnlyAfterTheCopyIsDurableAndChecked) {
  Engine engine;
  ASSERT_EQ(moveItem(folder_.path("tree"), other_ + "/tree", engine.setup), 0) << engine.report.failure;
  const auto& log = engine.log;
  ASSERT_GE(log.first(EngineStep::Remove), 0);
  EXPECT_LT(log.first(EngineStep::FlushFileSystem), log.first(EngineStep::Rename));
  EXPECT_LT(log.first(EngineStep::Rename), log.first(EngineStep::FlushParent));
  EXPECT_LT(log.first(EngineStep::FlushParent), log.first(EngineStep::Remove));
  EXPECT_LT(log.last(EngineStep::Remove), log.last(EngineStep::FlushParent)) << "the source's folder is flushed last";
  EXPECT_FALSE(fs::exists(folder_.path("tree")));
  expectTreeWhole(folder_, "other/tree");
}

TEST_F(CrossFileSystem, AFailedRemovalNamesTheItemUndoesNothingAndARerunFinishes) {
  Engine failing;
  int removals = 0;
  failing.log.action = [&](EngineStep step, const std::string&) {
    return step == EngineStep::Remove && ++removals == 2 ? EPERM : 0;
  };
  EXPECT_EQ(moveItem(folder_.path("tree"), other_ + "/tree", failing.setup), EPERM);
  const std::string failedItem =
      failing.log.steps[static_cast<std::size_t>(failing.log.last(EngineStep::Remove))].second;
  EXPECT_NE(failing.report.failure.find(failedItem), std::string::npos) << failing.report.failure;
  expectTreeWhole(folder_, "other/tree");
  EXPECT_TRUE(fs::exists(failedItem));

  Engine rerun;
  ASSERT_EQ(moveItem(folder_.path("tree"), other_ + "/tree", rerun.setup), 0) << rerun.report.failure;
  EXPECT_FALSE(fs::exists(folder_.path("tree")));
  expectTreeWhole(folder_, "other/tree");
}

TEST_F(CrossFileSystem, ALockedItemInsideATreeMovesWithItsLock) {
  if (!canChangeLock() || setLocked(folder_.path("tree/sub/c.txt"), true) != 0) {
    GTEST_SKIP() << "cannot lock here (needs CAP_LINUX_IMMUTABLE and inode flags)";
  }
  Engine engine;
  ASSERT_EQ(moveItem(folder_.path("tree"), other_ + "/tree", engine.setup), 0) << engine.report.failure;
  EXPECT_FALSE(fs::exists(folder_.path("tree")));
  expectTreeWhole(folder_, "other/tree");
  EXPECT_TRUE(isLocked(other_ + "/tree/sub/c.txt"));
  setLocked(other_ + "/tree/sub/c.txt", false);
}

// What a move did not copy as it is now stays in the source: an item that
// appeared, or changed, after its copy was made, or while it was copied.
TEST_F(CrossFileSystem, WhatChangedOrAppearedDuringAMoveStaysInTheSource) {
  struct Case {
    const char* name;
    EngineStep when;  // the change is made before this step
    std::function<void(const TestFolder&)> change;
    const char* stays;  // in the source afterwards
    const char* message;
  };
  const Case cases[] = {
      {"a file added after its folder was copied", EngineStep::Rename,
       [](const TestFolder& f) { f.writeFile("tree/sub/new.txt", "new"); }, "tree/sub/new.txt",
       "during the move stays there, such as"},
      {"a copied file rewritten with its old size and time", EngineStep::Rename,
       [](const TestFolder& f) {
         struct stat was {};
         stat(f.path("tree/sub/c.txt").c_str(), &was);
         f.writeFile("tree/sub/c.txt", "GAMMA");
         const timespec times[2] = {was.st_atim, was.st_mtim};
         utimensat(AT_FDCWD, f.path("tree/sub/c.txt").c_str(), times, 0);
       },
       "tree/sub/c.txt", "during the move stays there, such as"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(folder_.path("tree"));
    fs::remove_all(other_ + "/tree");
    makeTree(folder_, "tree");
    Engine engine;
    bool changed = false;
    engine.log.action = [&](EngineStep step, const std::string&) {
      if (step == c.when && !changed) c.change(folder_);
      changed = changed || step == c.when;
      return 0;
    };
    EXPECT_EQ(moveItem(folder_.path("tree"), other_ + "/tree", engine.setup), EAGAIN);
    EXPECT_NE(engine.report.failure.find(c.message), std::string::npos) << engine.report.failure;
    EXPECT_TRUE(fs::exists(folder_.path(c.stays)));
    EXPECT_FALSE(fs::exists(folder_.path("tree/a.txt"))) << "what was copied unchanged goes";
    EXPECT_EQ(contentsOf(other_ + "/tree/a.txt"), "alpha");
  }
}

// The progress of a copy, changing its source after the first block.
struct ChangingSource final : CopyProgress {
  bool blockCopied(std::int64_t) override {
    if (path.empty()) return true;
    std::ofstream(path, std::ios::app) << "more";
    path.clear();
    return true;
  }
  std::string path;
};

TEST_F(CrossFileSystem, AFileChangedWhileItIsCopiedFailsTheCopyAndTheMove) {
  for (const bool move : {false, true}) {
    SCOPED_TRACE(move ? "move" : "copy");
    Engine engine;
    ChangingSource changing;
    changing.path = folder_.path("tree/sub/b.txt");
    engine.setup.progress = &changing;
    const std::string dest = other_ + "/tree";
    EXPECT_EQ(
        move ? moveItem(folder_.path("tree"), dest, engine.setup) : copyItem(folder_.path("tree"), dest, engine.setup),
        EAGAIN);
    EXPECT_EQ(engine.report.failure, folder_.path("tree/sub/b.txt") + " changed while it was being copied");
    EXPECT_TRUE(namesIn(other_).empty()) << "a torn copy was kept";
    EXPECT_EQ(contentsOf(folder_.path("tree/sub/b.txt")).size(), move ? 200008u : 200004u);
  }
}

TEST_F(CrossFileSystem, AnExistingDestinationEndsAMoveOnlyWhenItHoldsTheSameBytes) {
  const std::string src = folder_.writeFile("r.txt", "new version"), dest = other_ + "/r.txt";
  std::ofstream(dest) << "old version";
  struct stat st {};
  stat(src.c_str(), &st);
  const timespec times[2] = {st.st_atim, st.st_mtim};
  utimensat(AT_FDCWD, dest.c_str(), times, 0);
  Engine differs;
  EXPECT_EQ(moveItem(src, dest, differs.setup), EEXIST);
  EXPECT_EQ(contentsOf(src), "new version");

  std::ofstream(dest) << "new version";
  utimensat(AT_FDCWD, dest.c_str(), times, 0);
  Engine same;
  EXPECT_EQ(moveItem(src, dest, same.setup), 0) << same.report.failure;
  EXPECT_FALSE(fs::exists(src));
  EXPECT_EQ(contentsOf(dest), "new version");
}

TEST_F(CrossFileSystem, AnItemSeenAgainThroughABindMountIsNotMovedOntoItself) {
  const std::string view = folder_.path("view");
  fs::create_directories(view);
  if (::mount(folder_.path("tree").c_str(), view.c_str(), nullptr, MS_BIND, nullptr) != 0) {
    GTEST_SKIP() << "cannot bind-mount here: " << std::strerror(errno);
  }
  for (const char* item : {"a.txt", "sub"}) {
    SCOPED_TRACE(item);
    Engine engine;
    EXPECT_EQ(moveItem(folder_.path("tree/") + item, view + "/" + item, engine.setup), EEXIST);
    EXPECT_NE(engine.report.failure.find("are the same item"), std::string::npos) << engine.report.failure;
  }
  umount2(view.c_str(), MNT_DETACH);
  expectTreeWhole(folder_, "tree");
}

class WithoutAttributes : public CrossFileSystem {
  const char* type() const override { return "ramfs"; }
};

TEST_F(WithoutAttributes, AMoveFailsBeforeRemovingAnythingAndACopyReportsTheLoss) {
  Engine move;
  EXPECT_EQ(moveItem(folder_.path("tree"), other_ + "/tree", move.setup), ENOTSUP);
  EXPECT_NE(move.report.failure.find("a.txt: could not keep the extended attribute user.kept"), std::string::npos)
      << move.report.failure;
  for (const auto& [step, path] : move.log.steps) {
    EXPECT_FALSE(step == EngineStep::Remove && path.rfind(folder_.path("tree"), 0) == 0) << "removed " << path;
  }
  expectTreeWhole(folder_, "tree");
  EXPECT_TRUE(namesIn(other_).empty()) << "the partial was left";

  Engine copy;
  ASSERT_EQ(copyItem(folder_.path("tree"), other_ + "/tree", copy.setup), 0);
  EXPECT_EQ(copy.report.losses,
            (std::vector<std::string>{other_ + "/tree/a.txt: could not keep the extended attribute user.kept"}));
}

TEST_F(WithoutAttributes, TheFileManagerLogsEachLossAndKeepsItForTheCaller) {
  auto fm = VTFileManager::make();
  LogCapture log;
  ASSERT_EQ(fm->copyPath(folder_.path("tree"), other_ + "/tree", true), 0);
  const std::string loss = other_ + "/tree/a.txt: could not keep the extended attribute user.kept";
  EXPECT_EQ(fm->takeMetadataWarnings(), std::vector<std::string>{loss});
  EXPECT_TRUE(fm->takeMetadataWarnings().empty()) << "told twice";
  const auto lines = log.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "<FMAudit> VTFileManager: " + loss), 1);

  const std::string noted = folder_.writeFile("noted.txt", "n");
  ASSERT_EQ(writeComment(noted, "a comment"), 0);
  EXPECT_EQ(fm->movePath(noted, other_ + "/noted.txt", true), ENOTSUP) << "the comment would be lost";
  EXPECT_EQ(fm->movePath(noted, other_ + "/noted.txt", false), 0) << "a comment not to be kept fails nothing";
  EXPECT_TRUE(fm->takeMetadataWarnings().empty());

  EXPECT_EQ(fm->movePath(folder_.path("tree"), other_ + "/moved", true), ENOTSUP);
  EXPECT_NE(fm->lastErrorDetail().find(folder_.path("other/moved/a.txt")), std::string::npos) << fm->lastErrorDetail();
  expectTreeWhole(folder_, "tree");
}

}  // namespace
}  // namespace halyard::fileservices
