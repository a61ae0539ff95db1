#pragma once
// GenericLog: a thread-safe, size-bounded list of timestamped messages,
// optionally mirrored line by line ("[<date>] <message>", UTF-8) to a text
// file opened in append mode, archivable as part of a document.
//
// Two limits, deliberately apart: the list keeps at most 4096 kilobytes of
// entries (oldest dropped first), while `maxSize` bounds only the mirror
// file, which is cut to its last `maxSize` kilobytes when the log is
// archived with the limit switched on.
//
// Changes are announced to the log's notification centre, outside the lock
// and on the calling thread: kGenericLogEntriesChangedNotification (spelt
// "GenericLogEntiresChangedNotify", as observers match it) and
// kGenericLogNameChangedNotification.
//
//   auto log = std::make_shared<GenericLog>();
//   log->setLogFilePath("/var/tmp/sync.log");
//   log->setMirrorToLogFile(true);
//   log->addLogMessage("Synchronisation started");

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "fileservices/append_stream.h"
#include "foundation/class_registry.h"
#include "foundation/exception_guard.h"
#include "foundation/values.h"
#include "logging/generic_log_entry.h"
#include "logging/log_collaborators.h"

namespace halyard {

inline constexpr std::string_view kGenericLogEntriesChangedNotification = "GenericLogEntiresChangedNotify";
inline constexpr std::string_view kGenericLogNameChangedNotification = "GenericLogNameChangedNotify";

// Where a log's time stamps come from and where its notifications go.
struct LogEnvironment {
  std::shared_ptr<const LogClock> clock = systemLogClock();
  std::shared_ptr<LogNotificationCenter> center = LogNotificationCenter::defaultCenter();
};

class GenericLog final : public Object {
 public:
  using Environment = LogEnvironment;
  static constexpr const char* kClassName = "GenericLog";
  static constexpr float kDefaultMaxSize = 1024.0f;
  // The in-memory bound, in kilobytes, whatever `maxSize` says.
  static constexpr float kEntriesLimit = 4096.0f;
  // Decoded logs never bound their mirror file below this.
  static constexpr float kDecodedMaxSizeFloor = 512.0f;

  // `init`: no entries, `maxSize` 1024, the name "LOG_LABEL" of the strings
  // table, mirroring and its limit off.
  explicit GenericLog(Environment environment = {});
  ~GenericLog() override;
  GenericLog(const GenericLog&) = delete;
  GenericLog& operator=(const GenericLog&) = delete;

  // `copyWithZone:`: the same settings and entries, a lock of its own, no
  // window controller and no open mirror stream.
  std::shared_ptr<GenericLog> copy() const;

  void addLogMessage(const std::string& message);
  void clearLog();
  std::size_t logEntryCount() const;
  // The entry's description ("[<date>] <message>"); nothing for an index
  // out of range.
  std::optional<std::string> logEntryAtIndex(std::size_t index) const;
  // Drops the oldest entries while the total exceeds 4096 kilobytes; true
  // when it dropped any.
  bool assertMaxSize();

  float maxSize() const;
  void setMaxSize(float maxSize);
  // The running total of the entries' sizes, in kilobytes.
  float curSize() const;
  std::optional<std::string> name() const;
  void setName(std::optional<std::string> name);
  std::optional<std::string> logFilePath() const;
  // Takes effect for a stream opened later; an open stream stays on its file.
  void setLogFilePath(std::optional<std::string> path);
  bool mirrorToLogFile() const;
  void setMirrorToLogFile(bool mirror);
  bool limitMirroredLogFileSize() const;
  void setLimitMirroredLogFileSize(bool limit);
  bool customMirrorPathSpecified() const;
  void setCustomMirrorPathSpecified(bool custom);

  // The owning document outlives its log; the log only tells it of changes.
  LogDocument* document() const;
  void setDocument(LogDocument* document);
  std::shared_ptr<LogWindowController> logWindowController() const;
  void setLogWindowController(std::shared_ptr<LogWindowController> controller);
  // Asks the window controller, if any, to record its frame.
  void updateLog();

  // The mirror stream while mirroring to a path: opened on first use (an
  // empty file made first when nothing or a folder stands at the path; when
  // that fails mirroring is switched off), closed once mirroring is off.
  // The pointer is valid until the next call that changes the mirroring.
  fileservices::AppendStream* stream();

  ClassChain archiveClassChain() const override;
  // Also cuts the mirror file to `maxSize` kilobytes when mirroring and its
  // limit are both on.
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;
  static Expected<ObjectRef> initWithCoder(Unarchiver& coder, const Environment& environment);

  // Test seam: called with the selector inside every exception guard.
  void setGuardFaultForTesting(std::function<void(std::string_view selector)> fault);

 private:
  using Lock = std::unique_lock<std::recursive_mutex>;
  template <class Body>
  auto guarded(const char* selector, Body&& body) const;
  template <class T>
  T lockedGet(T GenericLog::*field, const char* selector) const;
  template <class T>
  void lockedSetMarkingDocument(T GenericLog::*field, T value, const char* selector);
  void markDocumentChanged();
  void post(std::string_view notification) const;
  std::shared_ptr<Dictionary> archiveDictionary() const;
  void applyArchiveDictionary(const Dictionary& archive);
  void cutMirrorFile() const;

  std::deque<std::shared_ptr<GenericLogEntry>> _entries;
  float _maxSize = kDefaultMaxSize;
  float _curSize = 0.0f;
  std::shared_ptr<LogWindowController> _logWindowController;
  std::optional<std::string> _logName;
  mutable std::recursive_mutex _threadLock;
  LogDocument* _myDocument = nullptr;
  std::optional<std::string> _logFilePath;
  std::unique_ptr<fileservices::AppendStream> _logFileStream;
  bool _mirrorToLogFile = false;
  bool _customMirrorPathSpecified = false;
  bool _limitMirroredLogFileSize = false;
  Environment environment_;
  std::function<void(std::string_view)> guardFault_;
};

// Every locked accessor runs its body under the lock, inside the exception
// guard.
template <class Body>
auto GenericLog::guarded(const char* selector, Body&& body) const {
  const Lock hold(_threadLock);
  return runGuarded(selector, guardFault_, std::forward<Body>(body));
}

// Adds the decoders of GenericLog and GenericLogEntry; decoded logs take
// their clock and notification centre from `environment`.
void registerLogClasses(ClassRegistry& registry, GenericLog::Environment environment = {});

}  // namespace halyard
