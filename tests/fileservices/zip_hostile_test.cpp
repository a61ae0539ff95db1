// Hostile archives: names that climb out or are absolute, a symbolic link
// out of the destination with a member written through it, bombs whose
// sizes tell the truth or lie, and unusable metadata. Nothing may be written
// outside the destination folder, and each outcome is a clear code.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "fileservices/private_mounts.h"
#include "fileservices/test_folder.h"
#include "fileservices/zip_builder.h"
#include "fileservices/zip_directory.h"
#include "fileservices/zip_transfer.h"

namespace halyard::fileservices {
namespace {

namespace fs = std::filesystem;

// Every path under the folder but those under `except`.
std::set<std::string> listing(const std::string& root, const std::string& except) {
  std::set<std::string> paths;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    const std::string path = it->path().string();
    if (path.rfind(except, 0) != 0) paths.insert(path);
  }
  return paths;
}

struct HostileCase {
  const char* name;
  ZipBuilder archive;
  bool applyMetadata;
  std::set<ErrorCode> codes;
};

void expectContained(const TestFolder& folder, const std::string& dest, const HostileCase& c) {
  SCOPED_TRACE(c.name);
  const std::string archive = folder.path("hostile.zip");
  ASSERT_TRUE(c.archive.write(archive));
  const auto before = listing(folder.root(), dest);
  auto fm = VTFileManager::make();
  const ErrorCode code = fm->extractFile("item", archive, dest, c.applyMetadata);
  EXPECT_TRUE(c.codes.contains(code)) << "code " << code;
  EXPECT_EQ(listing(folder.root(), dest), before) << "something was written outside the destination";
  EXPECT_FALSE(fs::exists("/abs-escape-halyard"));
  if (code != 0) {
    EXPECT_FALSE(fs::exists(dest + "/item")) << "a failed extraction removes the item";
  }
  for (const auto& entry : fs::directory_iterator(dest)) fs::remove_all(entry.path());
  fs::remove(archive);
}

TEST(ZipHostile, NothingIsWrittenOutsideTheDestination) {
  TestFolder folder;
  const std::string outside = folder.path("outside");
  fs::create_directory(outside);
  const std::string dest = folder.path("dest");
  fs::create_directory(dest);
  const std::string impossibleTimes =
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>VTFM_CatalogInfo</key><data>" +
      std::string(sizeof(struct statx) / 3 * 4, '/') + "/w==</data></dict></plist>";
  const HostileCase cases[] = {
      {"a member named ../escape", ZipBuilder().add("../escape", "x").add("item", "ok"), false, {0, -9070}},
      {"an absolute member name", ZipBuilder().add("/abs-escape-halyard", "x").add("item", "ok"), false, {0, -9070}},
      {"a link out of the destination, then a member through it",
       ZipBuilder().add("item", outside, 0120777).add("item/evil", "written through the link"),
       false,
       {-206, -9070}},
      {"garbage metadata.plist is skipped",
       ZipBuilder().add("item", "ok").add("metadata.plist", "<plist><dict><garbage"),
       true,
       {0}},
      {"metadata.plist as a link is not read",
       ZipBuilder().add("item", "ok").add("metadata.plist", outside + "/secret", 0120777),
       true,
       {0}},
      {"metadata that sets impossible times fails the extraction",
       ZipBuilder().add("item", "ok").add("metadata.plist", impossibleTimes),
       true,
       {EINVAL}},
  };
  for (const auto& c : cases) expectContained(folder, dest, c);
}

TEST(ZipHostile, BombsMeetTheDestinationsLimit) {
  TestFolder folder;
  const std::string dest = folder.path("dest");
  fs::create_directory(dest);
  // A small file system, so that a bomb meets its limit at once; the
  // machine's disks are far larger than any test should fill.
  PrivateMounts mounts;
  if (auto reason = mounts.mount("tmpfs", dest, "size=16m"); !reason.empty()) GTEST_SKIP() << reason;
  const HostileCase cases[] = {
      {"10 GB that say so are refused before anything is written",
       ZipBuilder().addZeros("item", 3400).addZeros("b", 3400).addZeros("c", 3400),
       false,
       {kDiskFullErr}},
      {"64 MiB that claim 1000 bytes stop at the full file system",
       ZipBuilder().addZeros("item", 64, 1000),
       false,
       {-34, -206, -41, -9070}},
  };
  for (const auto& c : cases) expectContained(folder, dest, c);
}

TEST(ZipDirectory, SurveyCountsDeclaredSizesAndRejectsBrokenDirectories) {
  TestFolder folder;
  ASSERT_TRUE(ZipBuilder().add("a", "12345").add("metadata.plist", "xyz").write(folder.path("ok.zip")));
  auto survey = surveyZipArchive(folder.path("ok.zip"));
  ASSERT_TRUE(survey.ok()) << survey.error().describe();
  EXPECT_EQ(survey->memberCount, 2u);
  EXPECT_EQ(survey->declaredBytes, 5u);
  EXPECT_EQ(survey->metadataBytes, 3u);
  struct Case {
    const char* name;
    std::string directory;
    std::uint64_t members;
  } cases[] = {
      {"empty directory, one member claimed", "", 1},
      {"a header cut short", std::string("PK\x01\x02", 4) + std::string(20, '\0'), 1},
      {"a name running past the end",
       std::string("PK\x01\x02", 4) + std::string(24, '\0') + "\xFF\xFF" + std::string(16, '\0'), 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(surveyCentralDirectory(c.directory, c.members).ok());
  }
  folder.writeFile("short.zip", "PK");
  EXPECT_FALSE(surveyZipArchive(folder.path("short.zip")).ok());
}

}  // namespace
}  // namespace halyard::fileservices
