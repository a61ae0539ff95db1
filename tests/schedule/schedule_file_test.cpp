// The schedule data file: where it is, reading hostile or odd files, and the
// atomic write that halyardctl uses.

#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "foundation/archiver.h"
#include "foundation/log_sink.h"
#include "foundation/strings_table.h"
#include "schedule/schedule_file.h"
#include "schedule_test_support.h"

namespace halyard {
namespace {

using namespace halyard::testing;

ScheduleData twoItems() {
  auto first = newItem();
  first->setDescription("first");
  auto second = newItem();
  second->setDescription("second");
  second->selectEveryDayOfMonth();
  return ScheduleData{nullptr, ScheduleItems{first, second}};
}

TEST(ScheduleFileTest, UserFolderFollowsTheDataHome) {
  const struct {
    const char *name, *text, *home, *xdgDataHome, *expected;
  } cases[] = {
      {"default", "~/.local/share/Halyard", "/home/ann", nullptr, "/home/ann/.local/share/Halyard"},
      {"xdg-data-home", "~/.local/share/Halyard", "/home/ann", "/data/ann", "/data/ann/Halyard"},
      {"relative-xdg-is-ignored", "~/.local/share/Halyard", "/home/ann", "rel", "/home/ann/.local/share/Halyard"},
      {"other-tilde-folder", "~/Library/Halyard", "/home/ann", "/data/ann", "/home/ann/Library/Halyard"},
      {"prefix-that-is-not-a-folder", "~/.local/shared", "/home/ann", "/data/ann", "/home/ann/.local/shared"},
      {"absolute", "/srv/halyard", "/home/ann", "/data/ann", "/srv/halyard"},
      {"tilde-user-form-kept", "~bob/x", "/home/ann", nullptr, "~bob/x"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(expandUserFolder(c.text, c.home, c.xdgDataHome), c.expected);
  }
}

TEST(ScheduleFileTest, WrittenFileIsReadBackByTheAgentsReader) {
  TestFolder folder;
  const std::string path = folder.path("new/folder/ScheduleData.sched");
  ASSERT_TRUE(writeScheduleFile(path, twoItems()));
  auto items = readScheduleItems(path, fixedClock());
  ASSERT_TRUE(items);
  ASSERT_EQ(items->size(), 2u);
  EXPECT_EQ((*items)[0]->description(), "first");
  EXPECT_TRUE((*items)[1]->everyDayOfMonthIsSelected());
  // Only the file itself is left: the temporary file was renamed over it.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("new/folder")),
                          std::filesystem::directory_iterator()),
            1);
}

// A schedule kept behind a symbolic link is rewritten where the link leads.
TEST(ScheduleFileTest, AScheduleBehindALinkIsWrittenWhereTheLinkLeads) {
  TestFolder folder;
  const std::string real = folder.path("real/ScheduleData.sched"), link = folder.path("ScheduleData.sched");
  ASSERT_TRUE(writeScheduleFile(real, {Dictionary::make(true), ScheduleItems{}}));
  std::filesystem::create_symlink("real/ScheduleData.sched", link);
  ASSERT_TRUE(writeScheduleFile(link, twoItems()));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(readScheduleItems(real, fixedClock())->size(), 2u);
}

TEST(ScheduleFileTest, OtherRootEntriesSurviveARewrite) {
  ScheduleData data = twoItems();
  data.root = dictionaryOf({{"applicationVersionkey", String::make("4.0")}});
  auto decoded = decodeScheduleData(encodeScheduleData(data), scheduleClassRegistry(fixedClock()));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(objectAs<String>(decoded->root->get("applicationVersionkey"))->text, "4.0");
  EXPECT_EQ(decoded->items->size(), 2u);
}

struct OddFile {
  const char* name;
  std::string bytes;
  bool readable;  // decodeScheduleData succeeds
  bool hasItems;  // and the items entry is there
};

TEST(ScheduleFileTest, OddFilesGiveNoItemsAndNeverCrash) {
  auto rootWith = [](const char* key, ObjectRef value) {
    return Archiver::archivedData(dictionaryOf({{key, value}}, false));
  };
  const OddFile cases[] = {
      {"empty", "", false, false},
      {"not-an-archive", "hello, world", false, false},
      {"root-not-dictionary", Archiver::archivedData(Array::make()), false, false},
      {"no-items-key", rootWith("other", Number::fromInt32(1)), true, false},
      {"items-not-array", rootWith("scheduledItemsObjectkey", String::make("items")), true, false},
      {"element-not-an-item", rootWith("scheduledItemsObjectkey", Array::make({String::make("not an item")})), true,
       true},
  };
  for (const OddFile& c : cases) {
    SCOPED_TRACE(c.name);
    auto data = decodeScheduleData(c.bytes, scheduleClassRegistry(fixedClock()));
    ASSERT_EQ(data.ok(), c.readable);
    EXPECT_EQ(data && data->items.has_value(), c.hasItems);
    EXPECT_TRUE(!data || !data->items || data->items->empty());
  }
}

TEST(ScheduleFileTest, EveryTruncationOfAFileIsRejectedCleanly) {
  const std::string bytes = encodeScheduleData(twoItems());
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    SCOPED_TRACE(length);
    auto data = decodeScheduleData(std::string_view(bytes).substr(0, length), scheduleClassRegistry(fixedClock()));
    ASSERT_FALSE(data.ok());
    ASSERT_TRUE(data.error().offset);
    EXPECT_LE(*data.error().offset, length);
  }
}

TEST(ScheduleFileTest, MissingOrUnreadableFileGivesNoItemsAndNoMessage) {
  TestFolder folder;
  folder.writeFile("bad.sched", "streamtyped but not really");
  LogCapture capture;
  EXPECT_FALSE(readScheduleItems(folder.path("absent.sched"), fixedClock()));
  EXPECT_FALSE(readScheduleItems(folder.path("bad.sched"), fixedClock()));
  EXPECT_FALSE(readScheduleItems(folder.root(), fixedClock()));  // a folder
  // A FIFO with no writer: answered at once, never waited on.
  ASSERT_EQ(::mkfifo(folder.path("fifo.sched").c_str(), 0600), 0);
  EXPECT_FALSE(readScheduleItems(folder.path("fifo.sched"), fixedClock()));
  EXPECT_TRUE(capture.lines().empty());
}

}  // namespace
}  // namespace halyard
