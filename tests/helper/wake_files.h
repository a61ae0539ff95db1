#pragma once
// A temporary file standing for the RTC alarm, with the tool's record beside
// it, in a fresh folder removed when the test ends.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <stdlib.h>
#include <unistd.h>

#include "helper/wake_alarm.h"

namespace halyard::wake {

class FakeRtc {
 public:
  FakeRtc() {
    std::string pattern = (std::filesystem::temp_directory_path() / "wake-rtc-XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    files_.alarmPath = folder_ + "/wakealarm";
    files_.recordPath = files_.alarmPath + ".owner";
    setAlarmText("");
  }
  ~FakeRtc() { std::filesystem::remove_all(folder_); }
  FakeRtc(const FakeRtc&) = delete;
  FakeRtc& operator=(const FakeRtc&) = delete;

  const AlarmFiles& files() const { return files_; }
  const std::string& folder() const { return folder_; }
  void setAlarmText(const std::string& text) const { std::ofstream(files_.alarmPath) << text; }
  std::string alarmText() const {
    std::ostringstream text;
    text << std::ifstream(files_.alarmPath).rdbuf();
    return text.str();
  }
  // An alarm the tool set and recorded as the wake of the user `uid`.
  void setOwnedAlarm(const std::string& text, unsigned uid = ::getuid()) const {
    setAlarmText(text);
    std::ofstream(userRecordPath(files_.recordPath, uid)) << text;
  }
  bool hasRecord(unsigned uid = ::getuid()) const {
    return std::filesystem::exists(userRecordPath(files_.recordPath, uid));
  }

 private:
  std::string folder_;
  AlarmFiles files_;
};

}  // namespace halyard::wake
