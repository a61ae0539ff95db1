// The strings table: its text format, and the fall-backs when the table or
// a key is missing.

#include <cstdlib>

#include <gtest/gtest.h>

#include "foundation/log_sink.h"
#include "foundation/strings_table.h"

namespace halyard {
namespace {

struct Line {
  const char* name;
  const char* text;
  const char* key;
  const char* expected;  // nullptr: the line gives no entry
};

TEST(StringsTableTest, ParsesEntriesAndSkipsEverythingElse) {
  const Line cases[] = {
      {"plain", "\"NONE\" = \"None\";", "NONE", "None"},
      {"spaces-and-crlf", "  \"A\"\t=  \"x y\" ; \r", "A", "x y"},
      {"escapes", R"("E" = "say \"hi\"\\\n\tok";)", "E", "say \"hi\"\\\n\tok"},
      {"utf8", "\"U\" = \"Zurück\";", "U", "Zurück"},
      {"comment", "// \"C\" = \"no\";", "C", nullptr},
      {"missing-semicolon", "\"S\" = \"no\"", "S", nullptr},
      {"unknown-escape", R"("Q" = "a\qb";)", "Q", nullptr},
      {"unterminated", "\"T\" = \"no;", "T", nullptr},
      {"trailing-garbage", "\"G\" = \"no\"; x", "G", nullptr},
  };
  for (const Line& c : cases) {
    SCOPED_TRACE(c.name);
    const auto text = StringsTable::parse(std::string("// header\n\n") + c.text + "\n").find(c.key);
    EXPECT_EQ(text, c.expected ? std::optional<std::string>(c.expected) : std::nullopt);
  }
}

TEST(StringsTableTest, MissingTableFallsBackToBuiltInTextsThenTheKey) {
  const StringsTable table = StringsTable::loadFromResourceFolder("/nonexistent/halyard");
  EXPECT_EQ(table.lookup("USER_PATH"), "~/.local/share/Halyard");
  EXPECT_EQ(table.lookup("NO_DESC"), "No description");
  EXPECT_EQ(table.lookup("NOT_A_KEY"), "NOT_A_KEY");
}

TEST(StringsTableTest, ShippedTableHasTheProgramsKeys) {
  const StringsTable table = StringsTable::loadFromResourceFolder(HALYARD_SOURCE_DIR "/resources");
  EXPECT_EQ(table.find("USER_PATH"), "~/.local/share/Halyard");
  EXPECT_TRUE(table.find("NO_DESC"));
}

TEST(LogSinkTest, CaptureTakesTheLinesWhileItLives) {
  std::vector<std::string> lines;
  {
    LogCapture capture;
    logLine("<Error:> one", LogPriority::Error);
    logLine("two");
    lines = capture.lines();
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"<Error:> one", "two"}));
}

}  // namespace
}  // namespace halyard
