// ISO 8601 instants as halyardctl reads them from the user and from JSON
// item files, and writes them back: the offset forms, wall time in the zone,
// and text that must be refused rather than wrapped or trusted.

#include <gtest/gtest.h>

#include "foundation/dates.h"
#include "tools/iso_time.h"

namespace halyard::tools {
namespace {

const cctz::time_zone& newYork() {
  static const cctz::time_zone zone = loadTimeZone("America/New_York").value();
  return zone;
}

TEST(IsoTime, ReadsEveryFormItAccepts) {
  const std::pair<const char*, double> cases[] = {
      {"2026-03-08T02:30:00-05:00", 1772955000}, {"2026-03-08T07:30:00Z", 1772955000},
      {"2026-03-08T07:30Z", 1772955000},         {"2026-03-08T07:30:00.25z", 1772955000.25},
      {"2026-01-15T09:00", 1768485600},        // wall time, EST
      {"2026-11-01T01:30:00", 1793511000},     // repeated hour: the earlier (EDT) reading
      {"9999-12-31T23:59:59Z", 253402300799},  // the last four-digit year
      {"0001-01-01T00:00:00Z", -62135596800},
  };
  for (const auto& [text, unixSeconds] : cases) {
    auto read = parseIsoInstant(text, newYork());
    ASSERT_TRUE(read) << text << ": " << read.error().describe();
    EXPECT_DOUBLE_EQ(toUnixSeconds(*read), unixSeconds) << text;
  }
}

TEST(IsoTime, RefusesTextNamingIt) {
  for (const char* text : {"", "yesterday", "2026-13-01T00:00", "2026-03-08 02:30", "2026-03-08T02:30:00+25:00",
                           "10000-01-01T00:00:00Z", "-0001-01-01T00:00Z", "9999-12-31T23:00:00-05:00",
                           "292277026596-12-04T15:30:08Z", "99999999999999-01-01T00:00"}) {
    auto read = parseIsoInstant(text, newYork());
    ASSERT_FALSE(read) << text;
    EXPECT_NE(read.error().describe().find(std::string("'") + text + "'"), std::string::npos) << text;
  }
}

TEST(IsoTime, WritesMillisecondsAndTheOffsetForAnyDateAFileCanHold) {
  const std::pair<double, const char*> cases[] = {
      {1772955000.05, "2026-03-08T03:30:00.050-04:00"},    // 0.05 is held as 0.04999...
      {1772954999.9996, "2026-03-08T03:29:59.999-04:00"},  // milliseconds are cut, not rounded
      {1768485600, "2026-01-15T09:00:00.000-05:00"},
  };
  for (const auto& [unixSeconds, text] : cases)
    EXPECT_EQ(formatIsoInstant(fromUnixSeconds(unixSeconds), newYork()), text);
  // Far beyond any calendar a user types, yet held by a schedule file: it is
  // written, not wrapped.
  for (double far : {1e14, -1e14, 1e300}) EXPECT_FALSE(formatIsoInstant(far, newYork()).empty());
}

}  // namespace
}  // namespace halyard::tools
