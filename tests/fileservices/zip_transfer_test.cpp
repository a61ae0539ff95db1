// The ZIP transfer on real files with the real zip and unzip: a tree's
// metadata survives move and extraction field by field; a move removes only
// what zip read; archives without metadata, locked items, missing tools and
// tool failures give their codes; the temporary folder never outlives an
// operation.

#include <acl/libacl.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/acl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "fileservices/file_metadata.h"
#include "fileservices/item_metadata_io.h"
#include "fileservices/test_folder.h"
#include "fileservices/zip_builder.h"
#include "fileservices/zip_transfer.h"
#include "foundation/log_sink.h"

namespace halyard::fileservices {
namespace {

namespace fs = std::filesystem;

std::string aclText(const std::string& path) {
  acl_t acl = acl_get_file(path.c_str(), ACL_TYPE_ACCESS);
  char* text = acl ? acl_to_any_text(acl, nullptr, ',', 0) : nullptr;
  std::string result = text ? text : "";
  acl_free(text);
  acl_free(acl);
  return result;
}

// The fields that must survive, as one comparable text. (The access time is
// the one zip left, read after zip ran, so it is not the one set here.)
std::string snapshotOf(const std::string& path) {
  struct stat st {};
  lstat(path.c_str(), &st);
  std::ostringstream out;
  out << "mode " << std::oct << st.st_mode << std::dec << " owner " << st.st_uid << ":" << st.st_gid << " mtime "
      << st.st_mtim.tv_sec << "." << st.st_mtim.tv_nsec << " nodump " << (inodeFlags(path) & FS_NODUMP_FL) << " acl "
      << aclText(path) << " user.test " << extendedAttribute(path, "user.test").value_or("(none)") << " comment "
      << readComment(path).value_or("(none)");
  return out.str();
}

class ZipTransferTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(folder.path("tmp"));
    fs::create_directory(folder.path("dest"));
    const char* old = std::getenv("TMPDIR");
    if (old) oldTmpdir = old;
    setenv("TMPDIR", folder.path("tmp").c_str(), 1);
  }
  void TearDown() override {
    EXPECT_TRUE(fs::is_empty(folder.path("tmp"))) << "a temporary folder was left behind";
    if (oldTmpdir) setenv("TMPDIR", oldTmpdir->c_str(), 1);
    else unsetenv("TMPDIR");
  }
  ErrorCode waitFor(CommandID id) {
    while (id > 0 && fm->statusForCommand(id) == kCommandNotFinished) id = fm->waitForCommandCompletion(id, 10.0);
    return id < 0 ? 0 : fm->statusForCommand(id);
  }

  TestFolder folder;
  std::shared_ptr<VTFileManager> fm = VTFileManager::make();
  std::optional<std::string> oldTmpdir;
};

TEST_F(ZipTransferTest, TreeWithMetadataSurvivesMoveAndExtraction) {
  const std::string tree = folder.path("tree");
  folder.writeFile("tree/doc.txt", "hello");
  ASSERT_EQ(symlink("doc.txt", folder.path("tree/link").c_str()), 0);
  setxattr(tree.c_str(), "user.test", "v", 1, 0);
  writeComment(tree, "a comment");
  acl_t acl = acl_from_text("u::rwx,g::r-x,o::---,u:65534:r-x,m::r-x");
  ASSERT_EQ(acl_set_file(tree.c_str(), ACL_TYPE_ACCESS, acl), 0);
  acl_free(acl);
  setInodeFlags(tree, inodeFlags(tree) | FS_NODUMP_FL);
  const timespec times[2] = {{1000000000, 5}, {1200000000, 123456789}};
  utimensat(AT_FDCWD, tree.c_str(), times, 0);
  ASSERT_TRUE(inodeFlags(tree) & FS_NODUMP_FL) << "this file system keeps no inode flags";
  const std::string before = snapshotOf(tree);

  const std::string archive = folder.path("tree.zip");
  EXPECT_EQ(waitFor(fm->asyncMovePathToZIPArchiveAtPath(tree, archive, true, true)), 0);
  EXPECT_FALSE(fs::exists(tree));
  EXPECT_EQ(waitFor(fm->asyncExtractFile("tree", archive, folder.path("dest"), true)), 0);

  const std::string extracted = folder.path("dest/tree");
  EXPECT_EQ(snapshotOf(extracted), before);
  EXPECT_EQ(fs::read_symlink(extracted + "/link"), "doc.txt");
  EXPECT_EQ(contentsOf(extracted + "/doc.txt"), "hello");
  EXPECT_FALSE(fs::exists(folder.path("dest/metadata.plist")));
}

TEST_F(ZipTransferTest, MetadataMemberRulesOnExtraction) {
  folder.writeFile("with.txt", "kept");
  ASSERT_EQ(fm->movePathToZIPArchiveAtPath(folder.path("with.txt"), folder.path("with.zip"), true, false), 0);
  ASSERT_TRUE(ZipBuilder().add("plain.txt", "plain").write(folder.path("plain.zip")));
  struct Case {
    const char* name;
    std::string item, archive;
    bool apply;
    ErrorCode code;
    bool itemLeft;
  } cases[] = {
      {"no metadata member, applying it: -43 and nothing left", "plain.txt", "plain.zip", true, -43, false},
      {"no metadata member, not applying it", "plain.txt", "plain.zip", false, 0, true},
      {"a metadata member, not applying it, leaves no plist", "with.txt", "with.zip", false, 0, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(fm->extractFile(c.item, folder.path(c.archive), folder.path("dest"), c.apply), c.code);
    EXPECT_EQ(fm->lastError(), c.code);
    EXPECT_EQ(fs::exists(folder.path("dest/" + c.item)), c.itemLeft);
    EXPECT_FALSE(fs::exists(folder.path("dest/metadata.plist")));
    fs::remove_all(folder.path("dest/" + c.item));
  }
}

TEST_F(ZipTransferTest, LockedItemMoves) {
  if (!canChangeLock()) GTEST_SKIP() << "the process may not set the immutable flag";
  const std::string file = folder.writeFile("locked.txt", "locked");
  ASSERT_EQ(setLocked(file, true), 0);
  EXPECT_EQ(fm->movePathToZIPArchiveAtPath(file, folder.path("locked.zip"), false, false), 0);
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(fm->extractFile("locked.txt", folder.path("locked.zip"), std::nullopt, true), 0);
  EXPECT_TRUE(isLocked(file)) << "the lock comes back with the metadata, as root";
}

TEST_F(ZipTransferTest, ToolFailuresAreStatusCodes) {
  const std::string file = folder.writeFile("item.txt", "item");
  folder.writeFile("not-a.zip", "this is no archive");
  ZipTransfer missingTools(*fm, {"/nonexistent/zip", "/nonexistent/unzip"});
  struct Case {
    const char* name;
    std::function<ErrorCode()> run;
    ErrorCode code;
  } cases[] = {
      {"zip missing", [&] { return missingTools.moveToArchive(file, folder.path("a.zip"), true, true); }, ENOENT},
      {"unzip missing", [&] { return missingTools.extract("x", folder.path("not-a.zip"), std::nullopt, false); },
       ENOENT},
      {"archive in a missing folder: zip status 15",
       [&] { return fm->movePathToZIPArchiveAtPath(file, folder.path("none/a.zip"), false, false); }, -2540},
      {"not an archive: unzip status 9", [&] { return fm->extractFile("x", folder.path("not-a.zip"), {}, false); },
       -43},
      {"a name that is a path", [&] { return fm->extractFile("../x", folder.path("not-a.zip"), {}, false); },
       kParamErr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.run(), c.code);
    EXPECT_TRUE(fs::exists(file)) << "a failed move leaves the item";
    EXPECT_FALSE(fs::exists(folder.path("a.zip")));
  }
}

// What zip did not read as it is now stays: a file that appears in the item
// while zip runs (a zip that writes one first), and an archive asked for
// inside the item, which removing the item would take with it.
TEST_F(ZipTransferTest, AMoveIntoAnArchiveRemovesOnlyWhatZipRead) {
  folder.writeFile("tree/a.txt", "a");
  const std::string busyZip =
      folder.writeFile("busy-zip", "#!/bin/sh\necho new > tree/new.txt\nexec /usr/bin/zip \"$@\"\n");
  fs::permissions(busyZip, fs::perms::owner_all);
  ZipTransfer busy(*fm, {busyZip, "/usr/bin/unzip"});
  EXPECT_EQ(busy.moveToArchive(folder.path("tree"), folder.path("tree.zip"), false, false), EAGAIN);
  EXPECT_EQ(contentsOf(folder.path("tree/new.txt")), "new\n");
  EXPECT_FALSE(fs::exists(folder.path("tree/a.txt")));
  EXPECT_EQ(fm->extractFile("tree", folder.path("tree.zip"), folder.path("dest"), false), 0);
  EXPECT_EQ(contentsOf(folder.path("dest/tree/a.txt")), "a");

  EXPECT_EQ(fm->movePathToZIPArchiveAtPath(folder.path("tree"), folder.path("tree/inside.zip"), false, false),
            kParamErr);
  EXPECT_TRUE(fs::exists(folder.path("tree/new.txt")));
}

TEST_F(ZipTransferTest, AuditLinesOfTheOutermostCall) {
  LogCapture capture;
  fm->setAuditEnabled(true);
  fm->extractFile("x", folder.path("none.zip"), folder.path("dest"), false);
  fm->setAuditEnabled(false);
  const std::string prefix = "<FMAudit> VTFileManager: ";
  EXPECT_EQ(capture.lines(),
            (std::vector<std::string>{prefix + "extractFile:\"x\" fromZIPArchiveAtPath:\"" + folder.path("none.zip") +
                                          "\" toPath:\"" + folder.path("dest") + "\" applyMetadata:NO",
                                      prefix + "extractFile:fromZIPArchiveAtPath:toPath:applyMetadata: errcode: -43"}));
}

// As another user than root, in a child process: the stored no-dump flag
// comes back, the top-of-hierarchy flag (above the low 16 bits) does not.
TEST_F(ZipTransferTest, NonRootExtractionSetsOnlyLowFlags) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to prepare a folder for another user";
  const std::string tree = folder.path("flagged");
  fs::create_directory(tree);
  setInodeFlags(tree, inodeFlags(tree) | FS_NODUMP_FL | FS_TOPDIR_FL);
  if (!(inodeFlags(tree) & FS_TOPDIR_FL)) GTEST_SKIP() << "this file system keeps no top-directory flag";
  ASSERT_EQ(fm->movePathToZIPArchiveAtPath(tree, folder.path("flagged.zip"), false, false), 0);
  const uid_t nobody = 65534;
  chmod(folder.root().c_str(), 0755);
  for (const char* name : {"dest", "tmp", "flagged.zip"}) chown(folder.path(name).c_str(), nobody, nobody);
  const int code = exitCodeAsNobody([&] {
    return VTFileManager::make()->extractFile("flagged", folder.path("flagged.zip"), folder.path("dest"), true) ? 1 : 0;
  });
  ASSERT_EQ(code, 0) << "the extraction as another user failed";
  const unsigned flags = inodeFlags(folder.path("dest/flagged"));
  EXPECT_TRUE(flags & FS_NODUMP_FL);
  EXPECT_FALSE(flags & FS_TOPDIR_FL);
}

TEST(InodeFlagsToSet, NonRootSetsOnlyUnprivilegedLowBits) {
  struct Case {
    const char* name;
    unsigned stored, current;
    bool root;
    unsigned expected;
  } cases[] = {
      {"root sets the stored flags whole", FS_NODUMP_FL | FS_IMMUTABLE_FL | 0x20000, FS_EXTENT_FL, true,
       FS_NODUMP_FL | FS_IMMUTABLE_FL | 0x20000},
      {"non-root: no immutable, no high bits", FS_NODUMP_FL | FS_IMMUTABLE_FL | 0x20000, FS_EXTENT_FL, false,
       FS_NODUMP_FL | FS_EXTENT_FL},
      {"non-root keeps a current append-only flag", 0, FS_APPEND_FL | FS_NOATIME_FL, false, FS_APPEND_FL},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(inodeFlagsToSet(c.stored, c.current, c.root), c.expected);
  }
}

}  // namespace
}  // namespace halyard::fileservices
