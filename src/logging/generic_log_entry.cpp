#include "logging/generic_log_entry.h"

#include <algorithm>
#include <cmath>

#include "foundation/archived_dictionary.h"
#include "foundation/archived_values.h"
#include "foundation/archiver.h"
#include "foundation/json_writer.h"
#include "foundation/unarchiver.h"
#include "foundation/values.h"

namespace halyard {

namespace {
constexpr double kKilobytesPerCharacter = 0.0009765625;
constexpr std::size_t kEntryOverhead = 10;
}  // namespace

std::string describeDate(TimeInterval instant, const cctz::time_zone& zone) {
  const SplitInstant split = splitInstant(instant);
  return cctz::format("%Y-%m-%d %H:%M:%S %z", split.seconds, zone);
}

std::string logLineText(TimeInterval instant, const cctz::time_zone& zone, const std::string& message) {
  return "[" + describeDate(instant, zone) + "] " + message;
}

std::size_t characterCount(const std::string& text) {
  std::size_t units = 0;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    // Characters beyond the basic plane take two UTF-16 units.
    units += (length == 4 && i + 4 <= text.size()) ? 2 : 1;
    i += std::min(length, text.size() - i);
  }
  return units;
}

std::string GenericLogEntry::description(const cctz::time_zone& zone) const {
  return logLineText(_timeStamp, zone, _message);
}

float GenericLogEntry::dataSize() const {
  return static_cast<float>(static_cast<double>(characterCount(_message) + kEntryOverhead) * kKilobytesPerCharacter);
}

ClassChain GenericLogEntry::archiveClassChain() const { return rootedChain({{kClassName, 0}}); }

void GenericLogEntry::encodeWithCoder(Archiver& coder) const {
  auto archive = Dictionary::make(true);
  archive->set("time", Date::make(_timeStamp));
  archive->set("msg", String::make(_message));
  coder.encodeObject(archive);
}

void GenericLogEntry::writeJson(JsonWriter& json) const {
  json.key("time").real(_timeStamp);
  json.key("msg").string(_message);
}

Expected<ObjectRef> GenericLogEntry::initWithCoder(Unarchiver& coder) {
  auto archive = decodeArchivedDictionary(coder, "a log entry");
  if (!archive) return archive.error();
  const ArchivedValues values(**archive, "a log entry");
  TimeInterval time = 0;
  if (auto date = objectAs<Date>((*archive)->get("time"))) {
    time = date->seconds;
  } else if (auto calendarDate = objectAs<CalendarDate>((*archive)->get("time"))) {
    time = calendarDate->seconds;
  }
  if (!std::isfinite(time)) time = 0;
  return ObjectRef{std::make_shared<GenericLogEntry>(values.textOf("msg").value_or(""), time)};
}

}  // namespace halyard
