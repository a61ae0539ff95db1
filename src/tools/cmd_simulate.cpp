// `halyardctl simulate`: replays the agent's heartbeat and checks over a
// period, on a simulated clock in a given zone, and prints one JSON line per
// hand-over. Bad input (options, schedule, events) exits with status 2 and a
// message naming the option, the item and field, or the event line.

#include <algorithm>
#include <charconv>
#include <iostream>
#include <map>
#include <unordered_map>

#include "agent/rules/simulation.h"
#include "foundation/file_io.h"
#include "foundation/json_writer.h"
#include "tools/commands.h"
#include "tools/iso_time.h"
#include "tools/json_reader.h"
#include "tools/schedule_json.h"

namespace halyard::tools {
namespace {

using agent::SimulationEvent;

constexpr const char* kUsage =
    "usage: halyardctl simulate --from ISO --to ISO --tz ZONE (--schedule FILE.sched | --schedule-json FILE.json)\n"
    "                           [--events FILE.jsonl] [--beat-fraction S] [--check-cost S] [--all-checks]\n"
    "                           [--exactly-once] [--catch-up]\n";

using Values = std::map<std::string, std::string>;

struct SimulateArguments {
  Values values;
  bool allChecks = false;
  bool exactlyOnce = false;
  bool catchUp = false;
};

Expected<SimulateArguments> parseArguments(const Arguments& args) {
  static const std::string kValued[] = {
      "--from", "--to", "--tz", "--schedule", "--schedule-json", "--events", "--beat-fraction", "--check-cost"};
  SimulateArguments parsed;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--all-checks") {
      parsed.allChecks = true;
    } else if (args[i] == "--exactly-once") {
      parsed.exactlyOnce = true;
    } else if (args[i] == "--catch-up") {
      parsed.catchUp = true;
    } else if (std::find(std::begin(kValued), std::end(kValued), args[i]) != std::end(kValued)) {
      if (i + 1 >= args.size()) return makeError(args[i] + ": missing value");
      parsed.values[args[i]] = args[i + 1];
      ++i;
    } else {
      return makeError("unknown argument '" + args[i] + "'");
    }
  }
  for (const char* required : {"--from", "--to", "--tz"}) {
    if (!parsed.values.count(required)) return makeError(std::string(required) + " is required");
  }
  if (parsed.values.count("--schedule") == parsed.values.count("--schedule-json")) {
    return makeError("give one of --schedule FILE.sched and --schedule-json FILE.json");
  }
  return parsed;
}

Expected<double> parseSeconds(const std::string& name, const std::string& text) {
  double value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) {
    return makeError(name + ": '" + text + "' is not a number of seconds");
  }
  return value;
}

Expected<TimeInterval> timeOption(const Values& values, const std::string& name, const cctz::time_zone& zone) {
  auto time = parseIsoInstant(values.at(name), zone);
  if (!time) return makeError(name + ": " + time.error().describe());
  return time;
}

// The schedule file (items without a start date take the period's start)
// or the JSON item form.
Expected<ScheduleItems> readSchedule(const Values& values, const cctz::time_zone& zone, TimeInterval from) {
  const bool json = values.count("--schedule-json") != 0;
  const std::string& path = values.at(json ? "--schedule-json" : "--schedule");
  auto bytes = readWholeFile(path);
  if (!bytes) return bytes.error();
  const CalendarClock clock = [&] { return CalendarDate::make(from, TimeZone::make(zone.name(), true)); };
  if (json) {
    auto items = readScheduleJson(*bytes, zone, clock);
    if (!items) return makeError(path + ": " + items.error().describe());
    return items;
  }
  auto data = decodeScheduleData(*bytes, scheduleClassRegistry(clock));
  if (!data) return makeError(path + ": not a schedule file: " + data.error().describe());
  return data->items.value_or(ScheduleItems{});
}

Expected<TimeInterval> eventTime(const JsonValue& line, const char* field, const cctz::time_zone& zone) {
  const JsonValue* value = line.member(field);
  if (!value || value->kind != JsonValue::Kind::String)
    return makeError(std::string("\"") + field + "\" must be an ISO time");
  auto time = parseIsoInstant(value->text, zone);
  if (!time) return makeError(std::string("\"") + field + "\": " + time.error().describe());
  return time;
}

Expected<SimulationEvent> parseEvent(std::string_view text, const cctz::time_zone& zone) {
  auto line = parseJson(text);
  if (!line) return line.error();
  if (line->kind != JsonValue::Kind::Object) return makeError("an event is an object");
  const JsonValue* kind = line->member("event");
  static const std::map<std::string, std::pair<SimulationEvent::Kind, const char*>> kKinds = {
      {"sleep", {SimulationEvent::Kind::Sleep, "until"}},
      {"clock", {SimulationEvent::Kind::Clock, "to"}},
      {"suspend", {SimulationEvent::Kind::Suspend, nullptr}},
      {"resume", {SimulationEvent::Kind::Resume, nullptr}},
      {"restart", {SimulationEvent::Kind::Restart, "until"}}};
  const auto found = kind && kind->kind == JsonValue::Kind::String ? kKinds.find(kind->text) : kKinds.end();
  if (found == kKinds.end()) {
    return makeError("\"event\" must be \"sleep\", \"clock\", \"suspend\", \"resume\" or \"restart\"");
  }
  SimulationEvent event;
  event.kind = found->second.first;
  auto at = eventTime(*line, "at", zone);
  if (!at) return at.error();
  event.at = event.to = *at;
  if (const char* field = found->second.second) {
    auto to = eventTime(*line, field, zone);
    if (!to) return to.error();
    event.to = *to;
  }
  return event;
}

Expected<std::vector<SimulationEvent>> readEvents(const std::string& path, const cctz::time_zone& zone) {
  auto text = readWholeFile(path);
  if (!text) return text.error();
  std::vector<SimulationEvent> events;
  std::size_t number = 0;
  for (std::size_t at = 0; at < text->size();) {
    const std::size_t end = std::min(text->find('\n', at), text->size());
    const std::string_view line = std::string_view(*text).substr(at, end - at);
    at = end + 1;
    ++number;
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    auto event = parseEvent(line, zone);
    if (!event) return makeError(path + " line " + std::to_string(number) + ": " + event.error().describe());
    events.push_back(*event);
  }
  return events;
}

std::string quoted(std::string_view text) {
  JsonWriter writer;
  writer.string(text);
  return writer.take();
}

// The descriptions as JSON strings, made once per item.
using QuotedDescriptions = std::unordered_map<const KSScheduledItem*, std::string>;

void printCheck(const agent::SimulatedCheck& check, const cctz::time_zone& zone, QuotedDescriptions& descriptions) {
  std::string line = "{\"beat\": " + quoted(formatIsoInstant(check.beat, zone)) + ", \"mode\": \"" +
                     (check.mode == agent::HeartbeatMode::Missed ? "missed" : "new") + "\", \"items\": [";
  for (std::size_t i = 0; i < check.items.size(); ++i) {
    if (i) line += ", ";
    auto [entry, added] = descriptions.try_emplace(check.items[i].get());
    if (added) entry->second = quoted(check.items[i]->description().value_or(""));
    line += entry->second;
  }
  line += "]}\n";
  std::cout << line;
}

Expected<agent::SimulationOptions> simulationOptions(const SimulateArguments& args) {
  const Values& values = args.values;
  auto zone = loadTimeZone(values.at("--tz"));
  if (!zone) return makeError("--tz: '" + values.at("--tz") + "' is not a time zone");
  agent::SimulationOptions options;
  options.zone = *zone;
  options.allChecks = args.allChecks;
  options.exactlyOnce = args.exactlyOnce;
  options.catchUp = args.catchUp;
  auto from = timeOption(values, "--from", *zone);
  if (!from) return from.error();
  auto to = timeOption(values, "--to", *zone);
  if (!to) return to.error();
  options.from = *from;
  options.to = *to;
  for (auto [name, field] :
       {std::pair{"--beat-fraction", &options.beatFraction}, {"--check-cost", &options.checkCost}}) {
    if (!values.count(name)) continue;
    auto seconds = parseSeconds(name, values.at(name));
    if (!seconds) return seconds.error();
    *field = *seconds;
  }
  return options;
}

int usageError(const Error& error) {
  std::cerr << "halyardctl: simulate: " << error.describe() << "\n";
  return 2;
}

}  // namespace

int runSimulate(const Arguments& args) {
  if (!args.empty() && (args[0] == "--help" || args[0] == "help")) {
    std::cout << kUsage;
    return 0;
  }
  auto parsed = parseArguments(args);
  if (!parsed) return usageError(parsed.error());
  auto options = simulationOptions(*parsed);
  if (!options) return usageError(options.error());
  auto items = readSchedule(parsed->values, options->zone, options->from);
  if (!items) return usageError(items.error());
  std::vector<SimulationEvent> events;
  if (parsed->values.count("--events")) {
    auto read = readEvents(parsed->values.at("--events"), options->zone);
    if (!read) return usageError(read.error());
    events = std::move(*read);
  }
  std::ios::sync_with_stdio(false);
  QuotedDescriptions descriptions;
  const auto simulated = agent::simulate(*items, events, *options, [&](const agent::SimulatedCheck& check) {
    printCheck(check, options->zone, descriptions);
  });
  if (!simulated) return usageError(simulated.error());
  std::cout.flush();
  return 0;
}

}  // namespace halyard::tools
