// GenericLog's archived form (one dictionary), decoding with the 512
// kilobyte floor on the mirror limit, copying, and the class decoders.

#include <algorithm>
#include <cmath>

#include "foundation/archived_dictionary.h"
#include "foundation/archived_values.h"
#include "foundation/archiver.h"
#include "foundation/json_writer.h"
#include "foundation/unarchiver.h"
#include "foundation/values.h"
#include "logging/generic_log.h"

namespace halyard {

namespace {

constexpr double kBytesPerKilobyte = 1024.0;

ObjectRef textOrEmpty(const std::optional<std::string>& text) { return String::make(text.value_or("")); }

}  // namespace

ClassChain GenericLog::archiveClassChain() const { return rootedChain({{kClassName, 0}}); }

std::shared_ptr<Dictionary> GenericLog::archiveDictionary() const {
  auto entries = Array::make({}, true);
  entries->items.assign(_entries.begin(), _entries.end());
  auto archive = Dictionary::make(true);
  archive->set("entries", entries);
  archive->set("maxSize", Number::fromFloat(_maxSize));
  archive->set("curSize", Number::fromFloat(_curSize));
  archive->set("name", textOrEmpty(_logName));
  archive->set("path", textOrEmpty(_logFilePath));
  archive->set("mirrorFlag", Number::fromBool(_mirrorToLogFile));
  archive->set("limitMirror", Number::fromBool(_limitMirroredLogFileSize));
  archive->set("customPathFlag", Number::fromBool(_customMirrorPathSpecified));
  return archive;
}

void GenericLog::encodeWithCoder(Archiver& coder) const {
  guarded("encodeWithCoder:", [&] {
    coder.encodeObject(archiveDictionary());
    if (_mirrorToLogFile && _limitMirroredLogFileSize) cutMirrorFile();
  });
}

// A limit that is not a positive number leaves the file alone rather than
// emptying it.
void GenericLog::cutMirrorFile() const {
  if (!_logFilePath || !(_maxSize > 0.0f)) return;
  const double limit = std::min(kBytesPerKilobyte * _maxSize, 0x1p62);
  (void)fileservices::cutFileToTail(*_logFilePath, static_cast<std::uint64_t>(limit));
}

void GenericLog::writeJson(JsonWriter& json) const {
  const Lock hold(_threadLock);
  json.key("entries");
  json.object(archiveDictionary());
}

void GenericLog::applyArchiveDictionary(const Dictionary& archive) {
  const ArchivedValues values(archive, "a log");
  if (auto entries = values.objectOf<Array>("entries", "an array")) {
    for (const auto& item : entries->items) {
      if (auto entry = objectAs<GenericLogEntry>(item)) _entries.push_back(std::move(entry));
    }
  }
  _maxSize = static_cast<float>(values.doubleOf("maxSize").value_or(kDefaultMaxSize));
  if (_maxSize < kDecodedMaxSizeFloor) _maxSize = kDecodedMaxSizeFloor;
  _curSize = static_cast<float>(values.doubleOf("curSize").value_or(0.0));
  _logName = values.textOf("name");
  _logFilePath = values.textOf("path");
  if (_logFilePath && _logFilePath->empty()) _logFilePath.reset();
  _mirrorToLogFile = values.boolOf("mirrorFlag").value_or(false);
  _limitMirroredLogFileSize = values.boolOf("limitMirror").value_or(false);
  _customMirrorPathSpecified = values.boolOf("customPathFlag").value_or(false);
}

Expected<ObjectRef> GenericLog::initWithCoder(Unarchiver& coder, const Environment& environment) {
  auto archive = decodeArchivedDictionary(coder, "a log");
  if (!archive) return archive.error();
  auto log = std::make_shared<GenericLog>(environment);
  log->applyArchiveDictionary(**archive);
  return ObjectRef{log};
}

std::shared_ptr<GenericLog> GenericLog::copy() const {
  auto copied = std::make_shared<GenericLog>(environment_);
  const Lock hold(_threadLock);
  copied->_entries = _entries;
  copied->_maxSize = _maxSize;
  copied->_curSize = _curSize;
  copied->_logName = _logName;
  copied->_myDocument = _myDocument;
  copied->_logFilePath = _logFilePath;
  copied->_mirrorToLogFile = _mirrorToLogFile;
  copied->_customMirrorPathSpecified = _customMirrorPathSpecified;
  copied->_limitMirroredLogFileSize = _limitMirroredLogFileSize;
  copied->guardFault_ = guardFault_;
  return copied;
}

void registerLogClasses(ClassRegistry& registry, GenericLog::Environment environment) {
  registry.add(GenericLog::kClassName, [environment](Unarchiver& coder, const ClassChain&) {
    return GenericLog::initWithCoder(coder, environment);
  });
  registry.add(GenericLogEntry::kClassName,
               [](Unarchiver& coder, const ClassChain&) { return GenericLogEntry::initWithCoder(coder); });
}

}  // namespace halyard
