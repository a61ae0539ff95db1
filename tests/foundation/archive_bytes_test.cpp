// Archives built by hand from the format's facts, one field per line,
// decode to the expected values, and the writer produces the same bytes.

#include <string_view>

#include <gtest/gtest.h>

#include "archive_test_support.h"
#include "foundation/archiver.h"
#include "foundation/unarchiver.h"

namespace halyard {
namespace {

using namespace halyard::testing;
using namespace std::literals;

// S = string table entry, O = object table entry. The root object O0 is the
// dictionary. A length byte followed by a hex digit is a literal of its own.
const std::string kDictionaryArchive = joined({
    kRootObjectOpening,
    "\x84\x84\x0cNSDictionary\x00"sv,  // new class O1, name new S1, version 0
    kNSObjectRootClass,                // new class O2, name S2, version 0; root
    "\x84\x01i\x05"                    // group type new S3 "i": 5 entries
    "\x92\x84"                         // group S0 "@": new object O3 (key)
    "\x84\x84\x08NSString\x01\x94"     //   new class O4, name S4, version 1, superclass O2
    "\x84\x01+\x04name\x86"            //   group type new S5 "+": 4 bytes; end O3
    "\x92\x84\x96\x97\x06"
    "Backup\x86"  // value O5: class O4, group S5, "Backup"
    "\x92\x84\x96\x97\x05"
    "count\x86"                    // key O6 "count"
    "\x92\x84"                     // value: new object O7
    "\x84\x84\x08NSNumber\x00"     //   new class O8, name S6, version 0
    "\x84\x84\x07NSValue\x00\x94"  //   new class O9, name S7, version 0, superclass O2
    "\x84\x01*\x84\x95"            //   group type new S8 "*": new C string O10, body S3 "i"
    "\x95\x03\x86"                 //   group S3 "i": 3; end O7
    "\x92\x84\x96\x97\x04"
    "blob\x86"                        // key O11 "blob"
    "\x92\x84"                        // value: new object O12
    "\x84\x84\x06NSData\x00\x94"      //   new class O13, name S9, version 0, superclass O2
    "\x95\x02"                        //   group S3 "i": 2 bytes
    "\x84\x04[2c]\x01\x02\x86"        //   group type new S10 "[2c]": the bytes; end O12
    "\x92\x84\x96\x97\x04list\x86"    // key O14 "list"
    "\x92\x84"                        // value: new object O15
    "\x84\x84\x07NSArray\x00\x94"     //   new class O16, name S11, version 0, superclass O2
    "\x95\x02"                        //   group S3 "i": 2 elements
    "\x92\x84\x96\x97\x01x\x86"       //   element O17 "x"
    "\x92\x84\x9a"                    //   element: new object O18, class O8 (NSNumber)
    "\x9a\x9c"                        //     group S8 "*": C string O10 ("i")
    "\x95\x03\x86"                    //     group S3 "i": 3; end O18
    "\x86"                            //   end O15
    "\x92\x84\x96\x97\x04when\x86"    // key O19 "when"
    "\x92\x84"                        // value: new object O20
    "\x84\x84\x0eNSCalendarDate\x00"  //   new class O21, name S12, version 0
    "\x84\x84\x06NSDate\x00\x94"      //   new class O22, name S13, version 0, superclass O2
    "\x84\x01"
    "d\x82\x80\x01\x4b\x01"           //   group type new S14 "d": 21692800 as int32
    "\x92\x84"                        //   group "@": new object O23, the zone
    "\x84\x84\x0aNSTimeZone\x00\x94"  //     new class O24, name S15, version 0, superclass O2
    "\x92\x84\x96\x97\x0d"
    "Europe/Berlin\x86"                             //     group "@": string O25;
    "\x86"                                          //   end O23
    "\x92\x84\x96\x97\x14%Y-%m-%d %H:%M:%S %z\x86"  // group "@": format string O26
    "\x86"                                          //   end O20
    "\x86"sv,                                       // end O0
});

TEST(ArchiveBytes, HandBuiltDictionaryDecodesAndIsWrittenIdentically) {
  auto expected = dict({
      {"name", str("Backup")},
      {"count", Number::fromInt32(3)},
      {"blob", Data::make("\x01\x02")},
      {"list", arr({str("x"), Number::fromInt32(3)})},
      {"when", CalendarDate::make(21692800, TimeZone::make("Europe/Berlin"))},
  });
  auto decoded = Unarchiver::unarchiveRootObject(kDictionaryArchive);
  ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
  EXPECT_EQ(json(*decoded), json(expected));
  EXPECT_EQ(Archiver::archivedData(expected), kDictionaryArchive);
}

struct IntegerCase {
  const char* name;
  std::string_view encoded;
  std::int64_t value;
};

TEST(ArchiveBytes, IntegersUseTheShortestForm) {
  const IntegerCase cases[] = {
      {"smallest single byte", "\x92"sv, -110},
      {"largest single byte", "\x7f"sv, 127},
      {"int16 below the single-byte range", "\x81\x91\xff"sv, -111},
      {"int16", "\x81\x37\x09"sv, 2359},
      {"int32", "\x82\x80\x01\x4b\x01"sv, 21692800},
      {"int64", "\x87\x00\xe6\x8e\xe7\xfd\xff\xff\xff"sv, -9000000000},
  };
  for (const IntegerCase& test : cases) {
    SCOPED_TRACE(test.name);
    const std::string bytes = std::string(kArchiveHeader) + "\x84\x01q" + std::string(test.encoded);
    auto groups = Unarchiver::unarchiveGroups(bytes);
    ASSERT_TRUE(groups.ok()) << groups.error().describe();
    EXPECT_EQ(std::get<std::int64_t>(groups->at(0).values.at(0).value), test.value);
    Archiver archiver;
    archiver.encodeValue({"q", test.value});
    EXPECT_EQ(archiver.bytes(), bytes);
  }
}

}  // namespace
}  // namespace halyard
