#pragma once
// GenericLogEntry: one message of a log with the instant it was made. It
// archives as one dictionary ({"time": date, "msg": text}) and counts in the
// log's size by `dataSize`: kilobytes of its text plus a fixed overhead of
// 10 characters.

#include <memory>
#include <string>

#include <cctz/time_zone.h>

#include "foundation/class_registry.h"
#include "foundation/dates.h"
#include "foundation/object.h"

namespace halyard {

class GenericLogEntry final : public Object {
 public:
  static constexpr const char* kClassName = "GenericLogEntry";

  // `initWithMessage:`; the caller passes the instant.
  GenericLogEntry(std::string message, TimeInterval timeStamp) : _timeStamp(timeStamp), _message(std::move(message)) {}

  TimeInterval timeStamp() const { return _timeStamp; }
  void setTimeStamp(TimeInterval timeStamp) { _timeStamp = timeStamp; }
  const std::string& message() const { return _message; }
  void setMessage(std::string message) { _message = std::move(message); }

  // "[<time stamp>] <message>", the time stamp described in `zone`.
  std::string description(const cctz::time_zone& zone) const;
  // (characters + 10) / 1024, as a 32-bit float.
  float dataSize() const;

  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;
  static Expected<ObjectRef> initWithCoder(Unarchiver& coder);

 private:
  TimeInterval _timeStamp;
  std::string _message;
};

// The platform's description of an instant: "2001-01-01 00:00:00 +0000".
std::string describeDate(TimeInterval instant, const cctz::time_zone& zone);
// "[%@] %@" of a date description and a message.
std::string logLineText(TimeInterval instant, const cctz::time_zone& zone, const std::string& message);
// The length of UTF-8 text in UTF-16 code units, as the platform counts a
// string's characters (a malformed byte counts as one).
std::size_t characterCount(const std::string& text);

}  // namespace halyard
