#include "schedule/schedule_file.h"

#include <filesystem>
#include <system_error>

#include "foundation/archiver.h"
#include "foundation/file_io.h"
#include "foundation/log_sink.h"
#include "foundation/strings_table.h"
#include "foundation/unarchiver.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

constexpr const char* kItemsKey = "scheduledItemsObjectkey";

std::optional<ScheduleItems> itemsOf(const Dictionary& root) {
  const ObjectRef entry = root.get(kItemsKey);
  auto array = objectAs<Array>(entry);
  if (!array) return std::nullopt;
  ScheduleItems items;
  for (const ObjectRef& element : array->items) {
    if (auto item = objectAs<KSScheduledItem>(element)) {
      items.push_back(std::move(item));
    } else {
      logLine("<Error:> Ignored an element of the schedule that is not a scheduled item", LogPriority::Error);
    }
  }
  return items;
}

}  // namespace

std::string scheduleFilePath() { return expandUserFolder(localizedString("USER_PATH")) + "/ScheduleData.sched"; }

ClassRegistry scheduleClassRegistry(CalendarClock clock) {
  ClassRegistry registry = ClassRegistry::foundation();
  registerScheduleClasses(registry, std::move(clock));
  registerVolumeClasses(registry);
  return registry;
}

Expected<ScheduleData> decodeScheduleData(std::string_view bytes, const ClassRegistry& registry) {
  auto root = Unarchiver::unarchiveRootObject(bytes, registry);
  if (!root) return root.error();
  auto dictionary = objectAs<Dictionary>(*root);
  if (!dictionary) return makeError("the schedule's root object is not a dictionary");
  return ScheduleData{dictionary, itemsOf(*dictionary)};
}

std::string encodeScheduleData(const ScheduleData& data) {
  auto root = data.root ? std::make_shared<Dictionary>(*data.root) : Dictionary::make(true);
  if (data.items) {
    root->set(kItemsKey, Array::make(std::vector<ObjectRef>(data.items->begin(), data.items->end()), true));
  }
  return Archiver::archivedData(root);
}

std::optional<ScheduleItems> readScheduleItems(const std::string& path, const CalendarClock& clock) {
  auto bytes = readWholeFile(path);
  if (!bytes) return std::nullopt;
  auto data = decodeScheduleData(*bytes, scheduleClassRegistry(clock));
  if (!data) return std::nullopt;
  return std::move(data->items);
}

std::optional<ScheduleItems> readScheduleItems(const std::string& path) {
  return readScheduleItems(path, systemCalendarClock());
}

Status writeScheduleFile(const std::string& path, const ScheduleData& data) {
  std::error_code error;
  const auto folder = std::filesystem::path(path).parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder, error);
  if (error) return makeError(folder.string() + ": cannot create the folder: " + error.message());
  return writeFileAtomically(path, encodeScheduleData(data));
}

}  // namespace halyard
