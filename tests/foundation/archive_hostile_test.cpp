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

// The pieces the fixtures are made of. A head byte from 0x92 (-110) to 0x7f
// is a small integer in place, 0x92 also reference 0; 0x81/0x82/0x87 lead
// 2/4/8-byte integers, 0x84 something new, 0x85 nil, 0x86 the end of an object.
const std::string kHeader(kArchiveHeader);
const std::string kObjectGroup = "\x84\x01@"s;  // a group of type: new shared string 0 of 1 byte, "@", an object
// A new object (entry 0) of a new class (entry 1) named by a new shared
// string of 7 bytes, "NSArray", version 0, no superclass.
const std::string kNewArrayObject = "\x84\x84\x84\x07NSArray\x00\x85"s;
const std::string kIntGroup = "\x84\x01i"s;  // a group of type: new shared string of 1 byte, "i", the array's count

// `depth` arrays, each holding the next.
std::string nested(std::size_t depth) {
  // A new object (entry 0) of a new class (entry 1), named by new string 1
  // "NSArray", version 0, whose superclass is NSObject (entry 2, string 2);
  // a group "i" (string 3): count 1.
  std::string bytes =
      kHeader + kObjectGroup + "\x84\x84\x84\x07NSArray\x00"s + std::string(kNSObjectRootClass) + kIntGroup + "\x01"s;
  // A group of type string 0 "@", a new object of class entry 1 (NSArray),
  // a group of type string 3 "i", count 1, and so on inside.
  for (std::size_t i = 1; i < depth; ++i) bytes += "\x92\x84\x93\x95\x01"s;
  return bytes;
}

struct BadArchive {
  const char* name;
  std::string bytes;
  const char* reason;  // a part of the message
};

std::vector<BadArchive> badArchives() {
  // Version, signature length, signature, system version 1000 (2 bytes).
  return {
      {"empty", "", "end of data"},
      {"wrong magic", "\x04\x0bstreamtypex\x81\xe8\x03"s, "streamtyped"},
      {"big-endian", "\x04\x0btypedstream\x81\x03\xe8"s, "big-endian"},  // as a big-endian writer leaves it
      {"wrong version", "\x03\x0bstreamtyped\x81\xe8\x03"s, "version"},
      // A group of type: new shared string of 1 byte "z", which no type is, and a value.
      {"unknown type code", kHeader + "\x84\x01z\x01"s, "unknown type code"},
      // Object reference 7, with no object yet.
      {"reference to an object not yet defined", kHeader + kObjectGroup + "\x99"s, "not yet defined"},
      // A group type by reference to shared string 3, with no string yet, and a value.
      {"reference to a string not yet defined", kHeader + "\x95\x01"s, "not yet defined"},
      // Object reference 2^63-38.
      {"reference number at the top of 8 bytes", kHeader + kObjectGroup + "\x87\xda\xff\xff\xff\xff\xff\xff\x7f"s,
       "invalid reference number"},
      // Counts: 2^31 as an 8-byte integer; -2^31 as a 4-byte one; 4096 as a
      // 2-byte one with no elements after it.
      {"count of 2^31", kHeader + kObjectGroup + kNewArrayObject + kIntGroup + "\x87\x00\x00\x00\x80\x00\x00\x00\x00"s,
       "too large"},
      {"negative count", kHeader + kObjectGroup + kNewArrayObject + kIntGroup + "\x82\x00\x00\x00\x80"s, "negative"},
      {"count larger than the data", kHeader + kObjectGroup + kNewArrayObject + kIntGroup + "\x81\x00\x10"s,
       "ends after"},
      // A group of type "+", an unshared string, of length 2^30, and no bytes follow.
      {"string longer than the data", kHeader + "\x84\x01+\x82\x00\x00\x00\x40"s, "past the end"},
      // A group type of 13 bytes: 2^31-1 chars, and no bytes follow.
      {"byte array longer than the data", kHeader + "\x84\x0d[2147483647c]"s, "past the end"},
      // A group type of 14 bytes: a billion structs that take no bytes.
      {"array of empty structs", kHeader + "\x84\x0e[999999999{=}]"s, "exceeds"},
      // A group type of 40 bytes: 40 opening brackets.
      {"type nested too deeply", kHeader + "\x84\x28"s + std::string(40, '['), "nested too deeply"},
      {"nesting 100,000 deep", nested(100000), "nested too deeply"},
      // A new object (entry 0) of a new class (entry 1) named "X", version 0,
      // whose superclass is entry 1: itself.
      {"class that is its own superclass", kHeader + kObjectGroup + "\x84\x84\x84\x01X\x00\x93"s,
       "refers back into itself"},
      {"object with a nil class", kHeader + kObjectGroup + "\x84\x85"s, "nil class"},  // a new object of class nil
      // The end-of-object tag instead of the integer.
      {"tag where an integer belongs", kHeader + kIntGroup + "\x86"s, "expected an integer"},
      // A new object of a new class "NSNumber", version 0, no superclass; a
      // group of type "*", the number's type code as a C string: a new C
      // string whose body is a new shared string of 4 bytes, "{a=}", a struct.
      {"number with a struct type",
       kHeader + kObjectGroup + "\x84\x84\x84\x08NSNumber\x00\x85\x84\x01*\x84\x84\x04{a=}"s, "numeric"},
      // A new object (entry 0) of a new class (entry 1) "X", version 0, no
      // superclass, ended; then a group "@" and a new object whose class is
      // entry 0, an object and not a class.
      {"class reference to a string entry", kHeader + kObjectGroup + "\x84\x84\x84\x01X\x00\x85\x86\x92\x84\x92"s,
       "class"},
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
  // One 4 KiB selector string (a group of type ":", a new shared string of
  // 4096 bytes), then a million references to it (group ":", string 1): the
  // copies would be thousands of times the input.
  std::string bytes = kHeader + "\x84\x01:\x84\x81\x00\x10"s + std::string(4096, 'a');
  for (int i = 0; i < 1000000; ++i) bytes += "\x92\x93"s;
  auto result = Unarchiver::unarchiveGroups(bytes);
  ASSERT_FALSE(result.ok());
  EXPECT_NE(result.error().message.find("expands"), std::string::npos);
}

}  // namespace
}  // namespace halyard
