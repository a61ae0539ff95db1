// A caller's fault is told with its message: reading the value of a failed
// Expected, and handing the archive writer a type string it cannot write.

#include <functional>
#include <stdexcept>

#include <gtest/gtest.h>

#include "foundation/archiver.h"
#include "foundation/expected.h"
#include "foundation/values.h"

namespace halyard {
namespace {

std::string thrownMessage(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::logic_error& fault) {
    return fault.what();
  }
  return "(nothing thrown)";
}

TEST(ExpectedFaults, ValueOfAnErrorCarriesItsMessage) {
  Expected<int> failed = makeError("no item 9", 12);
  EXPECT_EQ(thrownMessage([&] { (void)failed.value(); }), "value() read on an error: no item 9 (at byte offset 12)");
  Expected<int> fine = 3;
  EXPECT_EQ(thrownMessage([&] { (void)fine.error(); }), "error() read on a value");
}

TEST(ArchiverFaults, BadTypeStringsAreToldNotSkipped) {
  const struct {
    const char* name;
    Group group;
    const char* message;
  } cases[] = {
      {"unknown-code", {"y", {{"y", std::int64_t{1}}}}, "\"y\": unknown type code 'y' in type string"},
      {"array-without-count", {"[c]", {{"[c]", std::string()}}}, "\"[c]\": array type without a valid count"},
      {"unterminated-struct", {"{P=ff", {}}, "\"{P=ff\": unterminated array or struct type"},
      {"empty", {"", {}}, "\"\": empty type string"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto object = std::make_shared<GenericObject>(ClassChain{{"HYThing", 0}}, std::vector<Group>{c.group});
    const std::string message = thrownMessage([&] { (void)Archiver::archivedData(object); });
    EXPECT_EQ(message, std::string("archive writer: bad type string ") + c.message);
  }
}

// An object that writes one value under a type string naming two.
class TwoTypesForOneValue final : public Object {
 public:
  ClassChain archiveClassChain() const override { return {{"HYThing", 0}}; }
  void encodeWithCoder(Archiver& coder) const override { coder.encodeValue({"ii", std::int64_t{1}}); }
  void writeJson(JsonWriter&) const override {}
};

TEST(ArchiverFaults, OneValueUnderSeveralTypesIsRefused) {
  const std::string message =
      thrownMessage([] { (void)Archiver::archivedData(std::make_shared<TwoTypesForOneValue>()); });
  EXPECT_EQ(message, "archive writer: bad type string \"ii\": one value needs exactly one type");
}

}  // namespace
}  // namespace halyard
