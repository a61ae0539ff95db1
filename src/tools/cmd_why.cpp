// `halyardctl why N [--at ISO]`: for item N, its last and next hand-over by
// the agent's minute check, and whether the agent would hand it over at a
// moment (now when not given), with the rule that decides.

#include <cmath>
#include <iostream>

#include "agent/preferences.h"
#include "agent/rules/exactly_once.h"
#include "agent/rules/run_explanation.h"
#include "schedule/minute_check.h"
#include "schedule/schedule_file.h"
#include "tools/commands.h"
#include "tools/iso_time.h"

namespace halyard::tools {
namespace {

constexpr const char* kUsage = "usage: halyardctl why N [--at ISO] [--file PATH]\n";
// The beat at second 0 comes a few milliseconds after the minute turns.
constexpr TimeInterval kBeatAfterSecond = 0.005;

TimeInterval minuteBeat(TimeInterval t) {
  const double unix = toUnixSeconds(t);
  return fromUnixSeconds(60.0 * std::floor(unix / 60.0)) + kBeatAfterSecond;
}

// Whether wall time written without an offset names a minute the zone skips.
bool namesSkippedWallTime(const std::string& text, const cctz::time_zone& zone) {
  if (text.size() > 16 &&
      (text.find('+', 16) != std::string::npos || text.find('-', 16) != std::string::npos || text.back() == 'Z')) {
    return false;
  }
  for (const char* format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M"}) {
    cctz::time_point<cctz::seconds> asUtc;
    if (!cctz::parse(format, text, cctz::utc_time_zone(), &asUtc)) continue;
    return zone.lookup(cctz::convert(asUtc, cctz::utc_time_zone())).kind == cctz::time_zone::civil_lookup::SKIPPED;
  }
  return false;
}

std::string dateOrText(const std::optional<TimeInterval>& t, const cctz::time_zone& zone, const char* none) {
  return t ? formatInstant(std::floor(*t), zone) : none;
}

// The next minute-check hand-over from `after`; the exactly-once mode skips
// the second pass of a repeated minute.
std::optional<TimeInterval> nextHandOver(const KSScheduledItem& item, TimeInterval after, const cctz::time_zone& zone,
                                         const agent::ExplanationContext& context) {
  const MinuteCheckSearch search(item);
  auto next = search.next(after, kDistantFuture, zone);
  while (context.exactlyOnce && next && agent::firstPassOf(*next, zone) < *next) {
    next = search.next(*next + 60, kDistantFuture, zone);
  }
  return next;
}

}  // namespace

int runWhy(const Arguments& args) {
  std::optional<std::string> at, file;
  std::string number;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const bool digits =
        !args[i].empty() && args[i].size() < 7 && args[i].find_first_not_of("0123456789") == std::string::npos;
    if (args[i] == "--at" && i + 1 < args.size()) {
      at = args[++i];
    } else if (args[i] == "--file" && i + 1 < args.size()) {
      file = args[++i];
    } else if (number.empty() && digits) {
      number = args[i];
    } else {
      std::cerr << kUsage;
      return 2;
    }
  }
  if (number.empty() || std::stoul(number) == 0) {
    std::cerr << kUsage;
    return 2;
  }
  // The user's zone and the clock, read here at the tool's edge.
  const cctz::time_zone zone = cctz::local_time_zone();
  const TimeInterval now = systemNow();
  TimeInterval moment = now;
  if (at) {
    auto parsed = parseIsoInstant(*at, zone);
    if (!parsed) {
      std::cerr << "halyardctl: why: --at: " << parsed.error().describe() << "\n";
      return 2;
    }
    moment = *parsed;
  }
  const std::string path = file.value_or(scheduleFilePath());
  const auto items = readScheduleItems(path);
  const std::size_t index = std::stoul(number);
  if (!items || index > items->size()) {
    std::cerr << "halyardctl: why: " << path << " has no item " << number << "\n";
    return 1;
  }
  const KSScheduledItem& item = *(*items)[index - 1];
  agent::Preferences preferences(agent::Preferences::defaultFilePath());
  const agent::ExplanationContext context{
      .schedulerActive = preferences.boolValue(agent::prefs::kSchedulerActive).value_or(true),
      .exactlyOnce = preferences.boolValue(agent::prefs::kExactlyOnceScheduling).value_or(false),
      .skippedMinute = at && namesSkippedWallTime(*at, zone)};
  const TimeInterval beat = minuteBeat(moment);
  const auto explanation = agent::explainMinuteCheck(item, beat, zone, context);
  std::cout << "item " << index << " \"" << item.description().value_or("") << "\", type " << item.scheduleType()
            << "\n"
            << "last hand-over: "
            << dateOrText(agent::lastMinuteCheckHandOver(item, minuteBeat(now), zone, context.exactlyOnce), zone,
                          "none in the past year")
            << "\n"
            << "next hand-over: " << dateOrText(nextHandOver(item, minuteBeat(now) + 60, zone, context), zone, "never")
            << "\n"
            << "at "
            << (context.skippedMinute ? *at + ", a wall time that does not occur here"
                                      : formatInstant(std::floor(beat), zone))
            << ": " << (explanation.handedOver ? "handed over: " : "not handed over: ") << explanation.rule << "\n";
  return 0;
}

}  // namespace halyard::tools
