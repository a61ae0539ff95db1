// The fast run-date searches against the plain minute walk, over seeded
// random cases: random selection sets (full, sparse, dense, odd lengths),
// random start, after, before and now around DST changes, binade crossings of
// the double candidates, the reference date, the far future past the zones'
// transition tables and the distant future.
//
// HALYARD_RUNDATE_CASES and HALYARD_RUNDATE_SEED choose a larger or other run.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>

#include "foundation/dates.h"
#include "schedule/minute_walk.h"
#include "schedule/run_dates.h"

namespace halyard {
namespace {

constexpr long kDefaultCases = 100'000;

constexpr double kDay = 86400.0;
constexpr const char* kZones[] = {"America/New_York", "Europe/Berlin", "Australia/Lord_Howe", "Asia/Kathmandu",
                                  "Pacific/Apia"};

long environmentNumber(const char* name, long fallback) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtol(text, nullptr, 10) : fallback;
}

class CaseMaker {
 public:
  explicit CaseMaker(std::uint64_t seed) : rng_(seed) {}

  double uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(rng_); }
  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
  bool chance(double p) { return uniform(0, 1) < p; }

  // Dense sets match often, sparse ones leave long stretches to skip.
  std::string selection(int width, bool dense) {
    const int shape = dense ? below(5) : below(10);
    std::string set(width, shape < 3 ? '1' : '0');
    if (shape == 2) {  // all but one
      set[below(width)] = '0';
    } else if (shape == 3 || shape == 4) {
      for (char& c : set) c = chance(0.5) ? '1' : '0';
    } else if (shape == 5) {  // odd shapes: shorter, longer, foreign characters, empty
      set.resize(below(width + 4));
      for (char& c : set) c = "01x1"[below(4)];
    } else if (shape > 5) {
      for (int n = 1 + below(3); n > 0; --n) set[below(width)] = '1';
    }
    return set;
  }

  RunPattern pattern() {
    const bool dense = chance(0.5);
    // A braced list is evaluated in order: the same seed makes the same sets.
    return {!chance(0.01),       std::nullopt,         selection(12, dense), selection(31, dense),
            selection(7, dense), selection(24, dense), selection(60, dense)};
  }

  // Seconds: mostly minutes to two weeks, some a second or two, 2% a year or more.
  double span() {
    const double r = uniform(0, 1);
    if (r < 0.02) return uniform(365 * kDay, 3 * 365 * kDay);
    if (r < 0.08) return uniform(0, 120);
    return std::exp(uniform(std::log(60.0), std::log(14 * kDay)));
  }

  double base(const cctz::time_zone& zone) {
    const double r = uniform(0, 1);
    double t;
    if (r < 0.72) {
      t = uniform(-121 * 365.2425 * kDay, 109 * 365.2425 * kDay);  // 1880 to 2110
    } else if (r < 0.80) {
      t = uniform(400 * 365.2425 * kDay, 1989 * 365.2425 * kDay);  // 2401 to 3990
    } else if (r < 0.83) {
      t = uniform(-2 * kDay, 2 * kDay);  // the reference date, where fractions are finest
    } else if (r < 0.89) {
      t = std::ldexp(chance(0.8) ? 1.0 : -1.0, 29 + below(7)) + uniform(-3 * kDay, 3 * kDay);
    } else if (r < 0.91) {
      t = kDistantFuture - uniform(0, 21 * kDay);
    } else {
      t = nearTransition(zone);
    }
    const int rounding = below(3);  // to the minute, to the second, or not at all
    return rounding == 0 ? std::floor(t / 60) * 60 : rounding == 1 ? std::floor(t) : t;
  }

 private:
  double nearTransition(const cctz::time_zone& zone) {
    const cctz::civil_second from(1880 + below(560), 1 + below(12), 1, 0, 0, 0);
    cctz::time_zone::civil_transition transition;
    if (!zone.next_transition(cctz::convert(from, zone), &transition)) return uniform(0, 40 * 365 * kDay);
    const auto at = zone.lookup(transition.to).trans.time_since_epoch().count();
    return fromUnixSeconds(static_cast<double>(at)) + uniform(-2 * kDay, 2 * kDay);
  }

  std::mt19937_64 rng_;
};

struct Query {
  bool forward;
  std::optional<TimeInterval> after, before;
  TimeInterval now;
};

Query forwardQuery(CaseMaker& make, RunPattern& p, double base, double span) {
  Query q{true, base, base + span, make.uniform(base - span, base + span)};
  const int start = make.below(5);
  if (start == 0 || start == 3) p.startDate = base;
  if (start == 0) q.after = base - make.uniform(0, span);
  if (start == 1 || start == 2) p.startDate = base - make.uniform(0, 10 * span);
  if (start == 4) p.startDate = make.chance(0.5) ? std::nullopt : std::optional(base + make.uniform(0, span));
  if (make.chance(0.3)) {
    q.now = *q.after;
    q.after.reset();
  }
  const double r = make.uniform(0, 1);
  if (r < 0.05) q.before = base - make.uniform(0, span);
  else if (r < 0.08) q.before = base;
  else if (base > kDistantFuture - 21 * kDay && r < 0.6) q.before.reset();
  return q;
}

Query backwardQuery(CaseMaker& make, RunPattern& p, double base, double span) {
  Query q{false, std::nullopt, std::nullopt, base};
  const double r = make.uniform(0, 1);
  if (r < 0.3) q.before = base + make.uniform(0, span);
  else if (r < 0.6) q.before = base - make.uniform(0, span / 4);
  const double first = q.before && *q.before < base ? *q.before : base;
  const double lower = make.chance(0.05) ? first + make.uniform(0, span) : first - span;
  const int bounds = make.below(6);
  const bool neither = bounds == 5 && make.chance(0.2);  // no lower bound at all
  if (bounds == 0 || bounds == 4 || (bounds == 5 && !neither)) q.after = lower;
  if (bounds == 0) p.startDate = lower - make.uniform(0, span);
  if (bounds == 1 || bounds == 2 || bounds == 3 || (bounds == 5 && !neither)) p.startDate = lower;
  if (bounds == 1) q.after = lower - make.uniform(0, span);
  return q;
}

std::string describe(const RunPattern& p, const Query& q, const char* zone) {
  auto value = [](std::optional<double> v) {
    if (!v) return std::string("absent");
    char text[64];
    std::snprintf(text, sizeof text, "%a", *v);
    return std::string(text);
  };
  std::ostringstream out;
  out << (q.forward ? "next" : "previous") << " in " << zone << " active=" << p.active << " months=" << p.months
      << " dom=" << p.daysOfMonth << " dow=" << p.daysOfWeek << " hours=" << p.hours << " minutes=" << p.minutes
      << " start=" << value(p.startDate) << " after=" << value(q.after) << " before=" << value(q.before)
      << " now=" << value(q.now);
  return out.str();
}

TEST(RunDatesDifferential, MatchesTheMinuteWalk) {
  const long cases = environmentNumber("HALYARD_RUNDATE_CASES", kDefaultCases);
  const auto seed = static_cast<std::uint64_t>(environmentNumber("HALYARD_RUNDATE_SEED", 20240521));
  std::vector<cctz::time_zone> zones;
  for (const char* name : kZones) zones.push_back(loadTimeZone(name).value());

  CaseMaker make(seed);
  long differences = 0, longSpans = 0, found = 0;
  for (long i = 0; i < cases && differences < 10; ++i) {
    const int zoneIndex = make.below(5);
    const cctz::time_zone& zone = zones[zoneIndex];
    RunPattern p = make.pattern();
    const double base = make.base(zone);
    const double span = make.span();
    longSpans += span >= 365 * kDay;
    const Query q = make.chance(0.5) ? forwardQuery(make, p, base, span) : backwardQuery(make, p, base, span);

    testing::MinuteWalk walk(p, zone);
    const auto expected = q.forward ? walk.next(q.after, q.before, q.now) : walk.previous(q.before, q.after, q.now);
    const auto actual = q.forward ? nextScheduledDateAfter(p, q.after, q.before, q.now, zone)
                                  : previousScheduledDateBefore(p, q.before, q.after, q.now, zone);
    found += expected.has_value();
    if (expected != actual) {
      ++differences;
      ADD_FAILURE() << "case " << i << ": " << describe(p, q, kZones[zoneIndex]) << "\n  walk "
                    << (expected ? formatInstant(*expected, zone) : "absent") << ", fast "
                    << (actual ? formatInstant(*actual, zone) : "absent");
    }
  }
  std::printf("%ld cases (seed %llu), %ld with spans of a year or more, %ld with a date, %ld differences\n", cases,
              static_cast<unsigned long long>(seed), longSpans, found, differences);
  EXPECT_GE(longSpans, cases / 100);
}

}  // namespace
}  // namespace halyard
