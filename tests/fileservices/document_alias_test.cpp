// The document alias: made from a real file, found again on its volume
// wherever that is mounted now, else at its path; hostile bytes give absent.

#include <cstdio>
#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "fileservices/document_alias.h"
#include "fileservices/test_folder.h"
#include "foundation/archiver.h"
#include "volumes/mount_namespace_support.h"

namespace halyard::fileservices {
namespace {

// A described machine: files by path, one volume with a UUID that can be
// mounted anywhere.
class FakeFileSystem final : public AliasFileSystem {
 public:
  std::map<std::string, std::uint64_t> files;
  std::string mountPoint = "/media/ann/USB";
  std::string uuid = "0A1B-2C3D";

  std::optional<std::uint64_t> inodeOf(const std::string& path) const override {
    auto found = files.find(path);
    if (found == files.end()) return std::nullopt;
    return found->second;
  }
  std::optional<AliasVolume> volumeOf(const std::string& path) const override {
    if (path.rfind(mountPoint + "/", 0) != 0) return AliasVolume{"/", std::nullopt, path.substr(1)};
    return AliasVolume{mountPoint, uuid, path.substr(mountPoint.size() + 1)};
  }
  std::optional<std::string> pathOnVolume(const std::string& id, const std::string& relative) const override {
    if (id != uuid) return std::nullopt;
    return mountPoint + "/" + relative;
  }
};

std::shared_ptr<Data> aliasOf(std::initializer_list<std::pair<const char*, ObjectRef>> entries) {
  auto dictionary = Dictionary::make();
  for (const auto& [key, value] : entries) dictionary->set(key, value);
  return Data::make(Archiver::archivedData(dictionary));
}

TEST(DocumentAliasTest, RealFileResolvesToItsPath) {
  TestFolder folder;
  const std::string path = folder.writeFile("Sync Set.halyard", "");
  auto alias = createAliasObjectFromNSPath(path);
  ASSERT_TRUE(alias);
  EXPECT_EQ(getNSPathFromAliasObject(alias, true), path);
  std::filesystem::remove(path);
  EXPECT_FALSE(getNSPathFromAliasObject(alias, true));
  EXPECT_FALSE(createAliasObjectFromNSPath(path));
  EXPECT_FALSE(createAliasObjectFromNSPath("relative/path"));
}

TEST(DocumentAliasTest, VolumeMountedElsewhereIsFoundByItsUUID) {
  FakeFileSystem fs;
  fs.files["/media/ann/USB/docs/a.halyard"] = 12;
  auto alias = createAliasObjectFromNSPath("/media/ann/USB/docs/a.halyard", fs);
  ASSERT_TRUE(alias);
  fs.files = {{"/mnt/usb/docs/a.halyard", 12}};
  fs.mountPoint = "/mnt/usb";
  EXPECT_EQ(getNSPathFromAliasObject(alias, true, fs), "/mnt/usb/docs/a.halyard");
  fs.uuid = "other";
  EXPECT_FALSE(getNSPathFromAliasObject(alias, true, fs));
}

// btrfs gives the document's path a device number the mount table does not
// show; the alias still knows its volume, and finds the document through
// another mount of the same subvolume once the first is gone.
TEST(DocumentAliasTest, ADocumentOnABtrfsSubvolumeIsFoundWhereItIsMountedNow) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  testing::Scratch scratch;
  if (!scratch.makeFileSystem("pool.img", "128M", "mkfs.btrfs -q -f -L Pool")) GTEST_SKIP() << "no mkfs.btrfs here";
  if (!scratch.mount("-o loop", scratch.path("pool.img"), "top")) GTEST_SKIP() << "this kernel cannot mount btrfs";
  ASSERT_TRUE(testing::run("btrfs subvolume create " + scratch.path("top/sub")));
  ASSERT_TRUE(scratch.mount("-o loop,subvol=sub", scratch.path("pool.img"), "sub"));
  std::filesystem::create_directories(scratch.path("sub/docs"));
  std::fclose(std::fopen(scratch.path("sub/docs/a.halyard").c_str(), "w"));
  auto alias = createAliasObjectFromNSPath(scratch.path("sub/docs/a.halyard"));
  ASSERT_TRUE(alias);
  ASSERT_TRUE(scratch.unmount("sub") && scratch.unmount("top"));
  EXPECT_FALSE(getNSPathFromAliasObject(alias, true)) << "the volume is not mounted";
  ASSERT_TRUE(scratch.mount("-o loop,subvol=sub", scratch.path("pool.img"), "elsewhere"));
  EXPECT_EQ(getNSPathFromAliasObject(alias, true), scratch.path("elsewhere/docs/a.halyard"));
  ASSERT_TRUE(scratch.unmount("elsewhere"));
  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("pool.img"), "whole"));
  EXPECT_EQ(getNSPathFromAliasObject(alias, true), scratch.path("whole/sub/docs/a.halyard"))
      << "the top of the file system shows the subvolume as a folder";
}

TEST(DocumentAliasTest, HostileAliasesGiveAbsentOrThePath) {
  FakeFileSystem fs;
  fs.files = {{"/etc/passwd", 1}, {"/media/ann/USB/a", 2}};
  struct Case {
    const char* name;
    std::shared_ptr<Data> alias;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"absent", nullptr, std::nullopt},
      {"not-an-archive", Data::make("garbage"), std::nullopt},
      {"not-a-dictionary", Data::make(Archiver::archivedData(String::make("/media/ann/USB/a"))), std::nullopt},
      {"escaping-relative-path",
       aliasOf({{"volumeUUID", String::make("0A1B-2C3D")}, {"relativePath", String::make("../../../etc/passwd")}}),
       std::nullopt},
      {"uuid-with-slash", aliasOf({{"volumeUUID", String::make("../0A1B-2C3D")}, {"relativePath", String::make("a")}}),
       std::nullopt},
      {"path-of-wrong-class", aliasOf({{"path", Number::fromInt32(1)}}), std::nullopt},
      {"relative-path-field", aliasOf({{"path", String::make("etc/passwd")}}), std::nullopt},
      {"volume-first-then-path",
       aliasOf({{"path", String::make("/etc/passwd")},
                {"volumeUUID", String::make("0A1B-2C3D")},
                {"relativePath", String::make("a")}}),
       "/media/ann/USB/a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(getNSPathFromAliasObject(c.alias, true, fs), c.expected);
  }
}

}  // namespace
}  // namespace halyard::fileservices
