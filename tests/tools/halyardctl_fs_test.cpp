// `halyardctl fs` end to end, run as a child process: refusals, folder
// destinations, errors naming their path, progress lines on a pipe, Ctrl-C
// during a copy and during a move across file systems (two tmpfs in a
// private mount namespace), and the order of flushes, renames and removals
// that strace sees.

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "fileservices/private_mounts.h"
#include "fileservices/test_folder.h"
#include "halyardctl_run.h"

namespace halyard::fileservices {
namespace {

namespace fs = std::filesystem;

using namespace halyard::testing;

TEST(HalyardctlFs, RemoveRefusesTheRootTheHomeFolderAndDotComponents) {
  TestFolder folder;
  const char* const kept[] = {"home/keep", "dir/sub/keep", "sibling/keep"};
  for (const char* name : kept) folder.writeFile(name, "k");
  for (std::string path : {"/", "home", "home/", "dir/sub/..", "dir/.", "dir/sub/../"}) {
    if (path != "/") path = folder.path(path);
    SCOPED_TRACE(path);
    const ChildRun run = halyardctl({"fs", "remove", path}, {"HOME=" + folder.path("home")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("refusing to remove " + path), std::string::npos) << run.err;
  }
  for (const char* name : kept) EXPECT_TRUE(fs::exists(folder.path(name)));
}

TEST(HalyardctlFs, CopyAndMoveIntoAFolderAsCpAndMvDo) {
  TestFolder folder;
  fs::create_directories(folder.path("into"));
  for (const char* verb : {"copy", "move"}) {
    for (const char* dest : {"into/", "into"}) {
      SCOPED_TRACE(std::string(verb) + " to " + dest);
      const std::string name = std::string(verb) + (dest[4] ? "-slash" : "-plain");
      folder.writeFile(name, name);
      const ChildRun run = halyardctl({"fs", verb, folder.path(name), folder.path(dest)});
      EXPECT_EQ(run.status, 0) << run.err;
      EXPECT_EQ(contentsOf(folder.path("into/" + name)), name);
    }
  }
}

TEST(HalyardctlFs, ALinkNamedWithAFinalSlashIsCopiedAsItsFolderAndNotMoved) {
  TestFolder folder;
  folder.writeFile("real/data", "d");
  fs::create_directory_symlink("real", folder.path("Docs"));
  fs::create_directories(folder.path("backup"));
  const ChildRun copy = halyardctl({"fs", "copy", folder.path("Docs") + "/", folder.path("backup") + "/"});
  EXPECT_EQ(copy.status, 0) << copy.err;
  EXPECT_EQ(contentsOf(folder.path("backup/Docs/data")), "d");
  EXPECT_FALSE(fs::is_symlink(folder.path("backup/Docs")));

  const ChildRun move = halyardctl({"fs", "move", folder.path("Docs") + "/", folder.path("elsewhere")});
  EXPECT_EQ(move.status, 1);
  EXPECT_NE(move.err.find("it is a link to the folder " + folder.path("real")), std::string::npos) << move.err;
  EXPECT_TRUE(fs::is_symlink(folder.path("Docs")));
  EXPECT_EQ(contentsOf(folder.path("real/data")), "d");
}

TEST(HalyardctlFs, ErrorsNameTheirPathAndExitOne) {
  TestFolder folder;
  folder.writeFile("tree/file", "f");
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"fs", "copy", folder.path("missing"), folder.path("x")}, folder.path("missing")},
      {{"fs", "copy", folder.path("tree"), folder.path("tree/inner")}, folder.path("tree/inner")},
      {{"fs", "move", folder.path("tree"), folder.path("tree/inner")}, folder.path("tree/inner")},
      {{"fs", "remove", folder.path("missing")}, folder.path("missing")},
  };
  for (const auto& [args, named] : cases) {
    SCOPED_TRACE(args[1] + " " + args[2]);
    const ChildRun run = halyardctl(args);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find(named), std::string::npos) << run.err;
  }
  EXPECT_FALSE(fs::exists(folder.path("tree/inner")));
}

TEST(HalyardctlFs, ProgressComesAsLinesWhenTheOutputIsNotATerminal) {
  TestFolder folder;
  folder.writeFile("data", std::string(1 << 20, 'x'));
  const ChildRun run = halyardctl({"fs", "copy", folder.path("data"), folder.path("copy")});
  ASSERT_EQ(run.status, 0) << run.err;
  std::istringstream lines(run.out);
  std::vector<std::string> seen;
  for (std::string line; std::getline(lines, line);) seen.push_back(line);
  ASSERT_GE(seen.size(), 2u) << run.out;
  EXPECT_EQ(run.out.find('\r'), std::string::npos);
  EXPECT_EQ(seen.back().substr(0, 32), "[" + std::string(30, '#') + "]") << seen.back();
}

// ---- on two tmpfs ----

class HalyardctlFsMounted : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!mounts_.unavailable().empty()) GTEST_SKIP() << mounts_.unavailable();
    for (const std::string& side : {a_, b_}) {
      fs::create_directories(side);
      if (auto reason = mounts_.mount("tmpfs", side); !reason.empty()) GTEST_SKIP() << reason;
    }
    // Enough data that the copy is still running when the interrupt comes.
    std::string block(4 << 20, '\0');
    for (std::size_t i = 0; i < block.size(); i += 8) block[i] = static_cast<char>(i >> 12);
    fs::create_directories(a_ + "/tree");
    std::ofstream out(a_ + "/tree/big", std::ios::binary);
    for (int i = 0; i < 128; ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    out.close();
    folder_.writeFile("a/tree/small", "small");
  }

  void expectSourceWholeAndNothingAt(const std::string& folder) {
    EXPECT_EQ(fs::file_size(a_ + "/tree/big"), std::uintmax_t{512} << 20);
    EXPECT_TRUE(fs::exists(a_ + "/tree/small"));
    EXPECT_TRUE(fs::is_empty(folder)) << "something was left in " << folder;
  }

  TestFolder folder_;
  PrivateMounts mounts_;
  std::string a_ = folder_.path("a");
  std::string b_ = folder_.path("b");
};

TEST_F(HalyardctlFsMounted, CtrlCDuringACopyExits130AndLeavesNothing) {
  fs::create_directories(a_ + "/into");
  const ChildRun run = runChild({kHalyardctl, "fs", "copy", a_ + "/tree", a_ + "/into/tree"}, {}, SIGINT);
  EXPECT_EQ(run.status, 130) << run.err;
  expectSourceWholeAndNothingAt(a_ + "/into");
}

// Ctrl-C, a plain kill and a closed terminal all cancel the same way.
TEST_F(HalyardctlFsMounted, AnInterruptDuringAMoveAcrossFileSystemsExits130AndKeepsTheSource) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(strsignal(signal));
    const ChildRun run = runChild({kHalyardctl, "fs", "move", a_ + "/tree", b_ + "/tree"}, {}, signal);
    EXPECT_EQ(run.status, 130) << run.err;
    expectSourceWholeAndNothingAt(b_);
  }
}

TEST_F(HalyardctlFsMounted, ACopyWarnsOfEachAttributeTheDestinationCannotHold) {
  if (auto reason = mounts_.mount("ramfs", b_); !reason.empty()) GTEST_SKIP() << reason;
  ASSERT_EQ(setxattr((a_ + "/tree/small").c_str(), "user.note", "n", 1, 0), 0);
  const ChildRun run = halyardctl({"fs", "copy", a_ + "/tree/small", b_ + "/small"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("warning: " + b_ + "/small: could not keep the extended attribute user.note"),
            std::string::npos)
      << run.err;
}

// The system calls themselves: the tree's flush before the partial's
// rename, the folder's after it, and every unlink of the source after both.
TEST_F(HalyardctlFsMounted, StraceSeesFlushRenameFlushThenRemoval) {
  if (access("/usr/bin/strace", X_OK) != 0) GTEST_SKIP() << "strace is not installed";
  const std::string trace = folder_.path("trace");
  // A leak checker cannot stop the threads of a traced process, so a
  // sanitized halyardctl runs without one here.
  const ChildRun run =
      runChild({"/usr/bin/strace", "-f", "-qq", "-o", trace, "-e", "trace=fsync,fdatasync,syncfs,renameat2,unlinkat",
                "-E", "ASAN_OPTIONS=detect_leaks=0", kHalyardctl, "fs", "move", a_ + "/tree", b_ + "/tree"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::ifstream in(trace);
  std::vector<std::string> calls;
  for (std::string line; std::getline(in, line);) {
    for (const char* call : {"syncfs(", "fsync(", "renameat2(", "unlinkat("}) {
      if (line.find(call) != std::string::npos && line.find("= 0") != std::string::npos) calls.push_back(call);
    }
  }
  const auto at = [&](const char* call) { return std::find(calls.begin(), calls.end(), call) - calls.begin(); };
  const auto renamed = at("renameat2(");
  ASSERT_LT(renamed, static_cast<std::ptrdiff_t>(calls.size())) << "no rename";
  EXPECT_LT(at("syncfs("), renamed);
  EXPECT_EQ(calls[static_cast<std::size_t>(renamed) + 1], "fsync(");
  EXPECT_GT(at("unlinkat("), renamed + 1);
}

}  // namespace
}  // namespace halyard::fileservices
