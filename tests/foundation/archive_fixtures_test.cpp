// The archives written by the platform's own archiver decode to the values
// they were made from, and re-encode to the same bytes where the platform's
// dictionary hash order does not come into play.

#include <gtest/gtest.h>

#include "archive_test_support.h"
#include "foundation/archiver.h"
#include "foundation/unarchiver.h"

namespace halyard {
namespace {

using namespace halyard::testing;

struct Fixture {
  const char* name;
  ObjectRef expected;
  bool byteIdentical;  // false where a dictionary of two or more entries is inside
};

std::vector<Fixture> fixtures() {
  auto absolute = std::make_shared<URL>("https://example.com/path?q=1");
  auto relative = std::make_shared<URL>("page.html", std::make_shared<URL>("https://example.com/dir/"));
  auto set = std::make_shared<Set>(std::vector<ObjectRef>{str("s")});
  auto mutableSet = std::make_shared<Set>(std::vector<ObjectRef>{str("ms")}, true);
  return {
      {"NSString", str("Hello, world"), true},
      {"NSMutableString", String::make("Hello, world", true), true},
      {"NSData", Data::make(std::string("\xde\xad\xbe\xef\x00\x7f", 6)), true},
      {"NSMutableData", Data::make("\xde\xad\xbe\xef", true), true},
      {"NumberBool", Number::fromBool(true), true},
      {"NumberInt", Number::fromInt32(42), true},
      {"NumberFloat", Number::fromFloat(3.5f), true},
      {"NumberDouble", Number::fromDouble(100.5), true},
      {"NumberInt64", Number::fromInt64(-9000000000), true},
      {"NSArray", arr({str("a"), q(1), str("b")}), true},
      {"NSArrayEmpty", arr({}), true},
      {"NSArrayWithNull", arr({str("x"), std::make_shared<Null>(), str("y")}), true},
      {"NSArrayNested", arr({str("top"), arr({q(1), q(2)})}), true},
      {"NSMutableArray", arr({str("x"), q(2)}, true), true},
      {"NSDictionary", dict({{"k2", str("v")}, {"k1", q(1)}}), false},
      {"NSMutableDictionary", dict({{"key", q(9)}}, true), true},
      {"NSDictionaryNested", dict({{"arr", arr({q(1), q(2)})}, {"data", Data::make("\x01\x02")}, {"num", q(7)}}),
       false},
      {"NSDate", Date::make(21692800), true},
      {"NSDateFractional", Date::make(700000000.523), true},
      {"NSURL", absolute, true},
      {"NSURLRelative", relative, true},
      {"NestedContainers",
       arr({arr({q(1), q(2)}), arr({q(3)}, true), arr({}), dict({{"k", q(9)}}), dict({{"mk", q(8)}}, true), set,
            mutableSet}),
       true},
      {"NestedScalars", arr({Date::make(21692800), absolute, relative, std::make_shared<Null>()}), true},
      {"NestedStrings", arr({str("imm"), String::make("mut", true)}), true},
  };
}

// The platform writes dictionaries in hash order: compare them as sets of
// entries by sorting the JSON of each entry.
std::string normalisedJson(const ObjectRef& object) {
  if (auto d = objectAs<Dictionary>(object)) {
    auto sorted = std::make_shared<Dictionary>(*d);
    std::sort(sorted->entries.begin(), sorted->entries.end(),
              [](const auto& a, const auto& b) { return json(a.first) < json(b.first); });
    return json(sorted);
  }
  return json(object);
}

TEST(ArchiveFixtures, DecodeToTheirValuesAndReencodeToTheSameBytes) {
  for (const Fixture& fixture : fixtures()) {
    SCOPED_TRACE(fixture.name);
    const std::string bytes = readFixture(fixture.name);
    ASSERT_FALSE(bytes.empty());
    auto decoded = Unarchiver::unarchiveRootObject(bytes);
    ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
    EXPECT_EQ(normalisedJson(*decoded), normalisedJson(fixture.expected));
    if (fixture.byteIdentical) {
      EXPECT_EQ(Archiver::archivedData(*decoded), bytes);
      EXPECT_EQ(Archiver::archivedData(fixture.expected), bytes);
    } else {
      // Our order differs, but what we write reads back to the same value.
      auto again = Unarchiver::unarchiveRootObject(Archiver::archivedData(*decoded));
      ASSERT_TRUE(again.ok());
      EXPECT_EQ(json(*again), json(*decoded));
    }
  }
}

}  // namespace
}  // namespace halyard
