#pragma once
// Shared helpers of the schedule tests: a fixed present moment, and a
// scratch folder that is removed afterwards.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "foundation/values.h"
#include "schedule/scheduled_item.h"

namespace halyard::testing {

// 2024-03-05 10:20:30 UTC (a Tuesday), in Europe/Berlin.
constexpr TimeInterval kFixedNow = 731326830.0;

inline std::shared_ptr<CalendarDate> fixedDate(TimeInterval seconds = kFixedNow) {
  return CalendarDate::make(seconds, TimeZone::make("Europe/Berlin"));
}

inline CalendarClock fixedClock(TimeInterval seconds = kFixedNow) {
  return [seconds] { return fixedDate(seconds); };
}

inline std::shared_ptr<KSScheduledItem> newItem() { return std::make_shared<KSScheduledItem>(fixedDate()); }

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "halyard-schedule-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  // Makes an empty file and answers its path.
  std::string emptyFile(const std::string& name) const {
    std::fclose(std::fopen(file(name).c_str(), "w"));
    return file(name);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace halyard::testing
