// Write -> read -> write gives identical bytes for every value type, and
// object identity survives: an object referenced twice is written once and
// read back as one object.

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "archive_test_support.h"
#include "foundation/archiver.h"
#include "foundation/unarchiver.h"

namespace halyard {
namespace {

using namespace halyard::testing;
using namespace std::literals;

struct RoundTrip {
  const char* name;
  ObjectRef value;
};

ObjectRef generic() {
  std::vector<Group> groups{
      {"i", {{"i", std::int64_t{-70000}}}},
      {"{Point=ff}", {{"{Point=ff}", std::vector<TypedValue>{{"f", 1.5}, {"f", -2.0}}}}},
      {"[3s]",
       {{"[3s]",
         std::vector<TypedValue>{
             {"s", std::int64_t{1}}, {"s", std::int64_t{-300}}, {"s", std::int64_t{40000 - 65536}}}}}},
      {"[4C]", {{"[4C]", "\x01\x02\xff\x00"s}}},
      {"*:", {{"*", std::string("a C string")}, {":", std::string("selector:")}}},
      {"#", {{"#", ClassChain{{"Widget", 7}, {"NSObject", 0}}}}},
      {"QL", {{"Q", std::uint64_t{0xFFFFFFFFFFFFFFFFull}}, {"L", std::uint64_t{200}}}},
      {"@", {{"@", str("inside")}}},
      {"+", {{"+", Nil{}}}},
  };
  return std::make_shared<GenericObject>(ClassChain{{"HYFutureThing", 3}, {"NSObject", 0}}, std::move(groups));
}

std::vector<RoundTrip> values() {
  auto berlin = TimeZone::make("Europe/Berlin");
  return {
      {"string", str("Grüße, \"world\"\n")},
      {"empty string", str("")},
      {"mutable string", String::make("mutable", true)},
      {"bool", Number::fromBool(false)},
      {"int32 extremes", arr({Number::fromInt32(INT32_MIN), Number::fromInt32(INT32_MAX), Number::fromInt32(-111),
                              Number::fromInt32(-110), Number::fromInt32(127), Number::fromInt32(128)})},
      {"int64", Number::fromInt64(INT64_MIN)},
      {"unsigned", std::make_shared<Number>('Q', std::uint64_t{18446744073709551615ull})},
      {"short", std::make_shared<Number>('s', std::int64_t{-2})},
      {"float", Number::fromFloat(0.1f)},
      {"doubles", arr({Number::fromDouble(-0.0), Number::fromDouble(std::numeric_limits<double>::infinity()),
                       Number::fromDouble(1e300), Number::fromDouble(-3.0), Number::fromDouble(0.5)})},
      {"data", Data::make(std::string(300, '\xab'))},
      {"empty data", Data::make("", true)},
      {"date", Date::make(-1234.5)},
      {"calendar date", CalendarDate::make(21692800.25, berlin)},
      {"calendar date in the user's zone", CalendarDate::make(0, TimeZone::make("America/New_York", true))},
      {"time zone", berlin},
      {"url", std::make_shared<URL>("x", std::make_shared<URL>("https://example.com/"))},
      {"null", std::make_shared<Null>()},
      {"set", std::make_shared<Set>(std::vector<ObjectRef>{str("a"), q(1)}, true)},
      {"dictionary", dict({{"b", q(2)}, {"a", arr({str("x"), Data::make("y")})}}, true)},
      {"unknown class", generic()},
      {"hundreds of strings",
       [] {
         std::vector<ObjectRef> items;
         for (int i = 0; i < 400; ++i) items.push_back(str("s" + std::to_string(i % 300)));
         return arr(items);
       }()},
  };
}

TEST(ArchiveRoundTrip, WriteReadWriteGivesIdenticalBytes) {
  for (const RoundTrip& test : values()) {
    SCOPED_TRACE(test.name);
    const std::string first = Archiver::archivedData(test.value);
    auto decoded = Unarchiver::unarchiveRootObject(first);
    ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
    EXPECT_EQ(json(*decoded), json(test.value));
    EXPECT_EQ(Archiver::archivedData(*decoded), first);
  }
}

TEST(ArchiveRoundTrip, SharedObjectIsWrittenOnceAndReadBackAsOneObject) {
  auto shared = dict({{"name", str("shared")}});
  auto root = arr({shared, str("between"), shared});
  const std::string bytes = Archiver::archivedData(root);
  // The dictionary's contents appear once in the bytes.
  EXPECT_EQ(bytes.find("shared"), bytes.rfind("shared"));

  auto decoded = Unarchiver::unarchiveRootObject(bytes);
  ASSERT_TRUE(decoded.ok());
  auto array = objectAs<Array>(*decoded);
  ASSERT_TRUE(array);
  ASSERT_EQ(array->items.size(), 3u);
  EXPECT_EQ(array->items[0].get(), array->items[2].get());
  EXPECT_NE(array->items[0].get(), nullptr);
  EXPECT_EQ(Archiver::archivedData(*decoded), bytes);
}

TEST(ArchiveRoundTrip, CycleThroughAnUnknownClassIsKeptAndWrittenBack) {
  // An object that contains itself: the inner occurrence is a reference to
  // an object still being read.
  const std::string bytes = std::string("\x04\x0bstreamtyped\x81\xe8\x03", 16) +
                            "\x84\x01@"                  // group "@" (string 0)
                            "\x84"                       // new object 0
                            "\x84\x84\x04Loop\x00\x85"s  // class 1 "Loop" v0, no superclass
                            "\x92\x92"                   // group "@", reference to object 0 (in progress)
                            "\x86";                      // end of object 0
  auto decoded = Unarchiver::unarchiveRootObject(bytes);
  ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
  auto loop = objectAs<GenericObject>(*decoded);
  ASSERT_TRUE(loop);
  auto inner = objectAs<CycleReference>(std::get<ObjectRef>(loop->groups.at(0).values.at(0).value));
  ASSERT_TRUE(inner);
  EXPECT_EQ(inner->target.lock().get(), loop.get());
  EXPECT_EQ(Archiver::archivedData(*decoded), bytes);
}

}  // namespace
}  // namespace halyard
