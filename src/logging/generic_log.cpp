// GenericLog: messages, sizes, settings and the mirror stream, every
// access under the recursive lock and inside the exception guard.

#include "logging/generic_log.h"

#include <filesystem>

#include "foundation/strings_table.h"

namespace halyard {

template <class T>
T GenericLog::lockedGet(T GenericLog::*field, const char* selector) const {
  return guarded(selector, [&] { return this->*field; });
}

template <class T>
void GenericLog::lockedSetMarkingDocument(T GenericLog::*field, T value, const char* selector) {
  guarded(selector, [&] {
    if (this->*field == value) return;
    this->*field = std::move(value);
    markDocumentChanged();
  });
}

GenericLog::GenericLog(Environment environment)
    : _logName(localizedString("LOG_LABEL")), environment_(std::move(environment)) {}

// The stream closes before the entries go; the members do it in this order.
GenericLog::~GenericLog() = default;

void GenericLog::setGuardFaultForTesting(std::function<void(std::string_view)> fault) {
  Lock hold(_threadLock);
  guardFault_ = std::move(fault);
}

void GenericLog::markDocumentChanged() {
  if (_myDocument) _myDocument->updateChangeCount(LogDocument::kChangeDone);
}

void GenericLog::post(std::string_view notification) const {
  if (environment_.center) environment_.center->post(notification, *this);
}

void GenericLog::addLogMessage(const std::string& message) {
  guarded("addLogMessage:", [&] {
    const TimeInterval now = environment_.clock->now();
    if (auto* out = stream()) {
      // Write results are not checked: a full disk must not stop logging.
      out->write(logLineText(now, environment_.clock->zone(), message));
      out->write("\n");
    }
    auto entry = std::make_shared<GenericLogEntry>(message, now);
    _curSize += entry->dataSize();
    _entries.push_back(std::move(entry));
    assertMaxSize();
  });
  post(kGenericLogEntriesChangedNotification);
}

void GenericLog::clearLog() {
  const bool hadEntries = guarded("clearLog", [&] {
    const bool had = !_entries.empty();
    if (had) {
      _entries.clear();
      markDocumentChanged();
    }
    _curSize = 0.0f;
    return had;
  });
  if (hadEntries) post(kGenericLogEntriesChangedNotification);
}

std::size_t GenericLog::logEntryCount() const {
  return guarded("logEntryCount", [&] { return _entries.size(); });
}

std::optional<std::string> GenericLog::logEntryAtIndex(std::size_t index) const {
  return guarded("logEntryAtIndex:", [&]() -> std::optional<std::string> {
    return _entries.at(index)->description(environment_.clock->zone());
  });
}

bool GenericLog::assertMaxSize() {
  return guarded("assertMaxSize", [&] {
    bool removed = false;
    while (_curSize > kEntriesLimit) {
      _curSize -= _entries.front()->dataSize();
      _entries.pop_front();
      removed = true;
      if (_entries.empty()) {
        _curSize = 0.0f;
        break;
      }
    }
    return removed;
  });
}

float GenericLog::maxSize() const { return lockedGet(&GenericLog::_maxSize, "maxSize"); }

void GenericLog::setMaxSize(float maxSize) {
  const bool removed = guarded("setMaxSize:", [&] {
    if (_maxSize == maxSize) return false;
    _maxSize = maxSize;
    const bool trimmed = assertMaxSize();
    markDocumentChanged();
    return trimmed;
  });
  if (removed) post(kGenericLogEntriesChangedNotification);
}

float GenericLog::curSize() const { return lockedGet(&GenericLog::_curSize, "curSize"); }

std::optional<std::string> GenericLog::name() const { return lockedGet(&GenericLog::_logName, "name"); }

void GenericLog::setName(std::optional<std::string> name) {
  const bool changed = guarded("setName:", [&] {
    if (_logName == name) return false;
    _logName = std::move(name);
    return true;
  });
  if (changed) post(kGenericLogNameChangedNotification);
}

std::optional<std::string> GenericLog::logFilePath() const {
  return lockedGet(&GenericLog::_logFilePath, "logFilePath");
}

void GenericLog::setLogFilePath(std::optional<std::string> path) {
  guarded("setLogFilePath:", [&] {
    _logFilePath = std::move(path);
    markDocumentChanged();
  });
}

bool GenericLog::mirrorToLogFile() const { return lockedGet(&GenericLog::_mirrorToLogFile, "mirrorToLogFile"); }

void GenericLog::setMirrorToLogFile(bool mirror) {
  lockedSetMarkingDocument(&GenericLog::_mirrorToLogFile, mirror, "setMirrorToLogFile:");
}

bool GenericLog::limitMirroredLogFileSize() const {
  return lockedGet(&GenericLog::_limitMirroredLogFileSize, "limitMirroredLogFileSize");
}

void GenericLog::setLimitMirroredLogFileSize(bool limit) {
  lockedSetMarkingDocument(&GenericLog::_limitMirroredLogFileSize, limit, "setLimitMirroredLogFileSize:");
}

bool GenericLog::customMirrorPathSpecified() const {
  return lockedGet(&GenericLog::_customMirrorPathSpecified, "customMirrorPathSpecified");
}

void GenericLog::setCustomMirrorPathSpecified(bool custom) {
  guarded("setCustomMirrorPathSpecified:", [&] { _customMirrorPathSpecified = custom; });
}

LogDocument* GenericLog::document() const { return lockedGet(&GenericLog::_myDocument, "document"); }

void GenericLog::setDocument(LogDocument* document) {
  guarded("setDocument:", [&] { _myDocument = document; });
}

std::shared_ptr<LogWindowController> GenericLog::logWindowController() const {
  return lockedGet(&GenericLog::_logWindowController, "logWindowController");
}

void GenericLog::setLogWindowController(std::shared_ptr<LogWindowController> controller) {
  guarded("setLogWindowController:", [&] { _logWindowController = std::move(controller); });
}

void GenericLog::updateLog() {
  if (auto controller = logWindowController()) controller->recordWindowSizeAndPos();
}

fileservices::AppendStream* GenericLog::stream() {
  return guarded("stream", [&]() -> fileservices::AppendStream* {
    if (!_mirrorToLogFile || !_logFilePath) {
      _logFileStream.reset();
      return nullptr;
    }
    if (_logFileStream) return _logFileStream.get();
    std::error_code ec;
    const auto status = std::filesystem::status(*_logFilePath, ec);
    if (!std::filesystem::exists(status) || std::filesystem::is_directory(status)) {
      if (fileservices::createEmptyFile(*_logFilePath) != 0) {
        setMirrorToLogFile(false);
        return nullptr;
      }
    }
    _logFileStream = fileservices::AppendStream::open(*_logFilePath);
    return _logFileStream.get();
  });
}

}  // namespace halyard
