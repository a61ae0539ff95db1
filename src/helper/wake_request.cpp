#include "helper/wake_request.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

#include "foundation/dates.h"
#include "foundation/unique_handle.h"

namespace halyard::wake {
namespace {

using PlistPtr = UniqueHandle<CPointer<void, plist_free>>;

std::size_t countOf(std::string_view text, std::string_view needle) {
  std::size_t count = 0;
  for (auto at = text.find(needle); at != std::string_view::npos; at = text.find(needle, at + 1)) ++count;
  return count;
}

// A request is one flat dictionary, so anything that nests, declares
// entities or is not XML is refused before the parser sees it.
Status checkShape(std::string_view bytes) {
  if (bytes.size() > kMaxRequestBytes) return makeError("request larger than 65536 bytes");
  if (bytes.find('\0') != std::string_view::npos) return makeError("request holds a NUL byte");
  if (bytes.substr(0, 6) == "bplist") return makeError("request is not an XML property list");
  if (countOf(bytes, "<dict") != 1) return makeError("request is not exactly one dictionary");
  if (countOf(bytes, "<array") != 0 || countOf(bytes, "<!ENTITY") != 0 || countOf(bytes, "[") != 0)
    return makeError("request holds nested values or declarations");
  return success();
}

plist_t itemOfType(plist_t dict, const char* key, plist_type type) {
  plist_t node = plist_dict_get_item(dict, key);
  return node && plist_get_node_type(node) == type ? node : nullptr;
}

Expected<WakeRequest> readCommand(plist_t dict) {
  plist_t name = itemOfType(dict, kCommandNameKey, PLIST_STRING);
  if (!name) return makeError("request has no CommandName string");
  const char* text = plist_get_string_ptr(name, nullptr);
  const std::string_view command(text ? text : "");
  const std::uint32_t keys = plist_dict_get_size(dict);
  if (command == kCancelCommand) {
    if (keys != 1) return makeError("CancelMultipleScheduledPowerEvents takes no further keys");
    return WakeRequest{Command::CancelOwnEvents, 0};
  }
  if (command != kScheduleCommand) return makeError("unknown command \"" + std::string(command) + "\"");
  plist_t date = itemOfType(dict, kPowerEventDateKey, PLIST_DATE);
  if (!date) return makeError("SchedulePowerEvent has no PowerEventDate date");
  if (keys != 2) return makeError("SchedulePowerEvent takes only PowerEventDate");
  std::int32_t seconds = 0, micro = 0;
  plist_get_date_val(date, &seconds, &micro);
  return WakeRequest{Command::SchedulePowerOn, std::int64_t{seconds} + kReferenceDateUnixSeconds};
}

std::string toXml(plist_t dict) {
  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(dict, &xml, &length);
  std::string text(xml ? xml : "", xml ? length : 0);
  std::free(xml);
  return text;
}

PlistPtr parseDictionary(std::string_view bytes) {
  plist_t root = nullptr;
  plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  PlistPtr owned(root);
  if (!root || plist_get_node_type(root) != PLIST_DICT) return PlistPtr();
  return owned;
}

}  // namespace

Expected<WakeRequest> readWakeRequest(std::string_view bytes) {
  if (auto shape = checkShape(bytes); !shape) return shape.error();
  PlistPtr dict = parseDictionary(bytes);
  if (!dict) return makeError("request is not an XML property-list dictionary");
  return readCommand(dict.get());
}

Status checkWakeDate(std::int64_t powerOnUnixSeconds, std::int64_t nowUnixSeconds) {
  if (powerOnUnixSeconds < nowUnixSeconds + kMinLeadSeconds)
    return makeError("wake date " + std::to_string(powerOnUnixSeconds) + " is less than 30 s ahead");
  if (powerOnUnixSeconds > nowUnixSeconds + kMaxLeadSeconds)
    return makeError("wake date " + std::to_string(powerOnUnixSeconds) + " is more than 366 days ahead");
  return success();
}

std::string writeWakeRequest(const WakeRequest& request) {
  PlistPtr dict(plist_new_dict());
  const bool schedule = request.command == Command::SchedulePowerOn;
  plist_dict_set_item(dict.get(), kCommandNameKey, plist_new_string(schedule ? kScheduleCommand : kCancelCommand));
  if (schedule) {
    const auto seconds = static_cast<std::int32_t>(request.powerOnUnixSeconds - kReferenceDateUnixSeconds);
    plist_dict_set_item(dict.get(), kPowerEventDateKey, plist_new_date(seconds, 0));
  }
  return toXml(dict.get());
}

std::string writeWakeResponse(int errorNumber) {
  PlistPtr dict(plist_new_dict());
  plist_dict_set_item(dict.get(), kErrorNumberKey, plist_new_uint(static_cast<std::uint64_t>(errorNumber)));
  return toXml(dict.get());
}

Expected<int> readWakeResponse(std::string_view bytes) {
  if (auto shape = checkShape(bytes); !shape) return shape.error();
  PlistPtr dict = parseDictionary(bytes);
  plist_t number = dict ? itemOfType(dict.get(), kErrorNumberKey, PLIST_UINT) : nullptr;
  if (!number) return makeError("answer has no ErrorNumber");
  std::uint64_t value = 0;
  plist_get_uint_val(number, &value);
  return static_cast<int>(value);
}

}  // namespace halyard::wake
