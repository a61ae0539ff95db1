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

// The pieces the fixtures are made of, one field a line. A head byte from
// 0x92 (-110) to 0x7f is a small integer in place, 0x92 also reference 0;
// 0x81/0x82/0x87 lead 2/4/8-byte integers, 0x84 something new, 0x85 nil,
// 0x86 the end of an object.
const std::string kHeader(kArchiveHeader);
const std::string kObjectGroup =
    "\x84\x01"  // a group of type: new shared string 0 of 1 byte
    "@"s;       //   "@", an object
const std::string kNewArrayObject =
    "\x84"s     // a new object (object entry 0)
    "\x84"      // of a new class (entry 1)
    "\x84\x07"  // named by a new shared string of 7 bytes
    "NSArray"   //   "NSArray"
    "\x00"      // class version 0
    "\x85"s;    // no superclass
const std::string kIntGroup =
    "\x84\x01"  // a group of type: new shared string of 1 byte
    "i"s;       //   "i", the array's count

std::string nested(std::size_t depth) {
  // `depth` arrays, each holding the next.
  std::string bytes = kHeader + kObjectGroup +
                      "\x84"s                            // a new object (entry 0)
                      "\x84"                             // of a new class (entry 1)
                      "\x84\x07"                         // named by a new shared string of 7 bytes (string 1)
                      "NSArray"                          //   "NSArray"
                      "\x00"s +                          // version 0
                      std::string(kNSObjectRootClass) +  // whose superclass is NSObject (entry 2, string 2)
                      kIntGroup +                        // a group "i" (string 3)
                      "\x01"s;                           // count 1
  for (std::size_t i = 1; i < depth; ++i) {
    bytes +=
        "\x92"s   // a group of type string 0, "@"
        "\x84"    // a new object
        "\x93"    // of class entry 1, NSArray
        "\x95"    // a group of type string 3, "i"
        "\x01"s;  // count 1, and so on inside
  }
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
      {"wrong magic",
       "\x04"s           // version 4
       "\x0b"            // 11 bytes
       "streamtypex"     // not the signature
       "\x81\xe8\x03"s,  // system version 1000
       "streamtyped"},
      {"big-endian",
       "\x04"s           // version 4
       "\x0b"            // 11 bytes
       "typedstream"     // the signature a big-endian writer leaves
       "\x81\x03\xe8"s,  // system version 1000, big-endian
       "big-endian"},
      {"wrong version",
       "\x03"s           // version 3
       "\x0b"            // 11 bytes
       "streamtyped"     // the signature
       "\x81\xe8\x03"s,  // system version 1000
       "version"},
      {"unknown type code",
       kHeader + "\x84\x01"s  // a group of type: new shared string of 1 byte
                 "z"          //   "z", which no type is
                 "\x01"s,     // a value for it
       "unknown type code"},
      {"reference to an object not yet defined",
       kHeader + kObjectGroup + "\x99"s,  // object reference 7, with no object yet
       "not yet defined"},
      {"reference to a string not yet defined",
       kHeader + "\x95"s   // a group type by reference to shared string 3, with no string yet
                 "\x01"s,  // a value
       "not yet defined"},
      {"reference number at the top of 8 bytes",
       kHeader + kObjectGroup + "\x87\xda\xff\xff\xff\xff\xff\xff\x7f"s,  // object reference 2^63-38
       "invalid reference number"},
      {"count of 2^31",
       kHeader + kObjectGroup + kNewArrayObject + kIntGroup +
           "\x87\x00\x00\x00\x80\x00\x00\x00\x00"s,  // count 2^31 as an 8-byte integer
       "too large"},
      {"negative count",
       kHeader + kObjectGroup + kNewArrayObject + kIntGroup +
           "\x82\x00\x00\x00\x80"s,  // count -2^31 as a 4-byte integer
       "negative"},
      {"count larger than the data",
       kHeader + kObjectGroup + kNewArrayObject + kIntGroup +
           "\x81\x00\x10"s,  // count 4096 as a 2-byte integer, and no elements follow
       "ends after"},
      {"string longer than the data",
       kHeader + "\x84\x01"s               // a group of type: new shared string of 1 byte
                 "+"                       //   "+", an unshared string
                 "\x82\x00\x00\x00\x40"s,  // of length 2^30, and no bytes follow
       "past the end"},
      {"byte array longer than the data",
       kHeader + "\x84\x0d"s       // a group type of 13 bytes:
                 "[2147483647c]",  //   2^31-1 chars, and no bytes follow
       "past the end"},
      {"array of empty structs",
       kHeader + "\x84\x0e"s        // a group type of 14 bytes:
                 "[999999999{=}]",  //   a billion structs that take no bytes
       "exceeds"},
      {"type nested too deeply",
       kHeader + "\x84\x28"s +    // a group type of 40 bytes:
           std::string(40, '['),  //   40 opening brackets
       "nested too deeply"},
      {"nesting 100,000 deep", nested(100000), "nested too deeply"},
      {"class that is its own superclass",
       kHeader + kObjectGroup +
           "\x84"s     // a new object (entry 0)
           "\x84"      // of a new class (entry 1)
           "\x84\x01"  // named by a new shared string of 1 byte
           "X"         //   "X"
           "\x00"      // version 0
           "\x93"s,    // whose superclass is entry 1: itself
       "refers back into itself"},
      {"object with a nil class",
       kHeader + kObjectGroup +
           "\x84"s   // a new object
           "\x85"s,  // of class nil
       "nil class"},
      {"tag where an integer belongs",
       kHeader + kIntGroup + "\x86"s,  // the end-of-object tag instead of the integer
       "expected an integer"},
      {"number with a struct type",
       kHeader + kObjectGroup +
           "\x84"s     // a new object
           "\x84"      // of a new class
           "\x84\x08"  // named by a new shared string of 8 bytes
           "NSNumber"  //   "NSNumber"
           "\x00"      // version 0
           "\x85"      // no superclass
           "\x84\x01"  // a group of type: new shared string of 1 byte
           "*"         //   "*", the number's type code as a C string:
           "\x84"      //   a new C string
           "\x84\x04"  //   whose body is a new shared string of 4 bytes
           "{a=}"s,    //     "{a=}", a struct
       "numeric"},
      {"class reference to a string entry",
       kHeader + kObjectGroup +
           "\x84"s     // a new object (entry 0)
           "\x84"      // of a new class (entry 1)
           "\x84\x01"  // named by a new shared string of 1 byte
           "X"         //   "X"
           "\x00"      // version 0
           "\x85"      // no superclass
           "\x86"      // end of the object
           "\x92"      // a group of type string 0, "@"
           "\x84"      // a new object
           "\x92"s,    // whose class is entry 0, an object and not a class
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
  // One 4 KiB selector string, then a million references to it: the copies
  // would be thousands of times the input.
  std::string bytes = kHeader +
                      "\x84\x01"       // a group of type: new shared string of 1 byte
                      ":"              //   ":", a selector
                      "\x84"           // a new shared string
                      "\x81\x00\x10"s  // of 4096 bytes as a 2-byte integer:
                      + std::string(4096, 'a');
  for (int i = 0; i < 1000000; ++i) {
    bytes +=
        "\x92"    // a group of type string 0, ":"
        "\x93"s;  // a reference to string 1, the long selector
  }
  auto result = Unarchiver::unarchiveGroups(bytes);
  ASSERT_FALSE(result.ok());
  EXPECT_NE(result.error().message.find("expands"), std::string::npos);
}

}  // namespace
}  // namespace halyard
