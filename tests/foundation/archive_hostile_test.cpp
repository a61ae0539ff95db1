// Hostile archives: every failure is an error with a reason and an offset,
// never a crash, a hang or a huge allocation.

#include <gtest/gtest.h>

#include "archive_test_support.h"
#include "foundation/archiver.h"
#include "foundation/unarchiver.h"

namespace halyard {
namespace {

using namespace halyard::testing;
using namespace std::literals;

const std::string kHeader("\x04\x0bstreamtyped\x81\xe8\x03", 16);

std::string nested(std::size_t depth) {
  // depth arrays, each holding the next: "@" group, new object, class ref.
  std::string bytes = kHeader + "\x84\x01@" + "\x84\x84\x84\x07NSArray\x00\x84\x84\x08NSObject\x00\x85"s +
                      std::string("\x84\x01i\x01", 4);
  for (std::size_t i = 1; i < depth; ++i) bytes += std::string("\x92\x84\x93\x95\x01", 5);
  return bytes;
}

struct BadArchive {
  const char* name;
  std::string bytes;
  const char* reason;  // a part of the message
};

std::vector<BadArchive> badArchives() {
  return {
      {"empty", "", "end of data"},
      {"wrong magic", std::string("\x04\x0bstreamtypex\x81\xe8\x03", 16), "streamtyped"},
      {"big-endian", std::string("\x04\x0btypedstream\x81\x03\xe8", 16), "big-endian"},
      {"wrong version", std::string("\x03\x0bstreamtyped\x81\xe8\x03", 16), "version"},
      {"unknown type code", kHeader + "\x84\x01z\x01", "unknown type code"},
      {"reference to an object not yet defined", kHeader + "\x84\x01@\x99", "not yet defined"},
      {"reference to a string not yet defined", kHeader + "\x95\x01", "not yet defined"},
      {"count of 2^31", kHeader + "\x84\x01@\x84\x84\x84\x07NSArray\x00\x85"s + "\x84\x01i\x87\x00\x00\x00\x80\x00\x00\x00\x00"s,
       "too large"},
      {"negative count", kHeader + "\x84\x01@\x84\x84\x84\x07NSArray\x00\x85"s + "\x84\x01i\x82\x00\x00\x00\x80"s,
       "negative"},
      {"count larger than the data", kHeader + "\x84\x01@\x84\x84\x84\x07NSArray\x00\x85"s + "\x84\x01i\x81\x00\x10"s,
       "ends after"},
      {"string longer than the data", kHeader + "\x84\x01+\x82\x00\x00\x00\x40"s, "past the end"},
      {"byte array longer than the data", kHeader + "\x84\x0d[2147483647c]", "past the end"},
      {"array of empty structs", kHeader + "\x84\x0e[999999999{=}]", "exceeds"},
      {"type nested too deeply", kHeader + "\x84\x28" + std::string(40, '[') , "nested too deeply"},
      {"nesting 100,000 deep", nested(100000), "nested too deeply"},
      {"class that is its own superclass", kHeader + "\x84\x01@\x84\x84\x84\x01X\x00\x93"s, "refers back into itself"},
      {"object with a nil class", kHeader + "\x84\x01@\x84\x85", "nil class"},
      {"tag where an integer belongs", kHeader + "\x84\x01i\x86", "expected an integer"},
      {"number with a struct type", kHeader + "\x84\x01@\x84\x84\x84\x08NSNumber\x00\x85\x84\x01*\x84\x84\x04{a=}"s, "numeric"},
      {"class reference to a string entry", kHeader + "\x84\x01@\x84\x84\x84\x01X\x00\x85\x86\x92\x84\x92"s, "class"},
  };
}

TEST(ArchiveHostile, BadArchivesGiveAnErrorWithAReasonAndOffset) {
  for (const BadArchive& test : badArchives()) {
    SCOPED_TRACE(test.name);
    auto result = Unarchiver::unarchiveGroups(test.bytes);
    ASSERT_FALSE(result.ok());
    EXPECT_NE(result.error().message.find(test.reason), std::string::npos) << result.error().describe();
    ASSERT_TRUE(result.error().offset.has_value());
    EXPECT_LE(*result.error().offset, test.bytes.size());
  }
}

TEST(ArchiveHostile, EveryTruncationOfValidArchivesFails) {
  const std::vector<std::string> valid = {
      readFixture("NestedContainers"), readFixture("NSDictionaryNested"), readFixture("NestedScalars"),
      Archiver::archivedData(dict({{"when", CalendarDate::make(1.5, TimeZone::make("Asia/Kathmandu"))},
                                   {"list", arr({str("a"), Number::fromDouble(0.25), Data::make("xyz")})}}))};
  for (const std::string& bytes : valid) {
    ASSERT_TRUE(Unarchiver::unarchiveRootObject(bytes).ok());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      SCOPED_TRACE(length);
      auto result = Unarchiver::unarchiveRootObject(std::string_view(bytes).substr(0, length));
      ASSERT_FALSE(result.ok());
      EXPECT_LE(result.error().offset.value_or(0), length);
    }
  }
}

TEST(ArchiveHostile, ManyReferencesToALongStringAreRefused) {
  // One 4 KiB selector string, then a million references to it: the copies
  // would be thousands of times the input.
  std::string bytes = kHeader + "\x84\x01:" + "\x84\x81" + "\x00\x10"s + std::string(4096, 'a');
  for (int i = 0; i < 1000000; ++i) bytes += std::string("\x92\x93", 2);
  auto result = Unarchiver::unarchiveGroups(bytes);
  ASSERT_FALSE(result.ok());
  EXPECT_NE(result.error().message.find("expands"), std::string::npos);
}

}  // namespace
}  // namespace halyard
