// VolumeSpecifier: its archive form (one dictionary of keys "vs00" to
// "vs27", binary fields big-endian), reading it back with the defaults of
// absent keys, and copying.

#include <utility>
#include <vector>

#include "foundation/archiver.h"
#include "foundation/json_writer.h"
#include "foundation/log_sink.h"
#include "foundation/unarchiver.h"
#include "volumes/volume_byte_order.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

constexpr std::int32_t kFormatWithFileManager = 1024;
constexpr std::uint32_t kDefaultBufferSize = 4194304;

std::string classNameOf(const ObjectRef& value) {
  const ClassChain chain = value->archiveClassChain();
  return chain.empty() ? "an object" : chain.front().name;
}

void logIgnored(const char* key, const ObjectRef& value, const char* wanted) {
  logLine(std::string("<Error:> Ignored \"") + key + "\" of a volume specifier: " + classNameOf(value) + " is not " +
              wanted,
          LogPriority::Error);
}

// A number read from an NSNumber, or from an NSString as the platform converts.
std::optional<std::int64_t> intOf(const Dictionary& archive, const char* key) {
  const ObjectRef value = archive.get(key);
  if (!value) return std::nullopt;
  if (auto number = objectAs<Number>(value)) return number->int64Value();
  if (auto text = objectAs<String>(value)) return text->intValue();
  logIgnored(key, value, "a number");
  return std::nullopt;
}

std::optional<bool> boolOf(const Dictionary& archive, const char* key) {
  const ObjectRef value = archive.get(key);
  if (!value) return std::nullopt;
  if (auto number = objectAs<Number>(value)) return number->boolValue();
  if (auto text = objectAs<String>(value)) return text->boolValue();
  logIgnored(key, value, "a number");
  return std::nullopt;
}

template <class T>
std::shared_ptr<T> objectOf(const Dictionary& archive, const char* key, const char* wanted) {
  const ObjectRef value = archive.get(key);
  if (!value) return nullptr;
  if (auto typed = objectAs<T>(value)) return typed;
  logIgnored(key, value, wanted);
  return nullptr;
}

std::optional<std::string> textOf(const Dictionary& archive, const char* key) {
  if (auto text = objectOf<String>(archive, key, "a string")) return text->text;
  return std::nullopt;
}

// The empty string reads as none.
std::optional<std::string> nonEmptyTextOf(const Dictionary& archive, const char* key) {
  auto text = textOf(archive, key);
  if (text && text->empty()) return std::nullopt;
  return text;
}

ObjectRef textObject(const std::optional<std::string>& text) { return text ? String::make(*text) : nullptr; }
ObjectRef unsignedObject(std::uint32_t v) { return std::make_shared<Number>('I', std::uint64_t{v}); }

}  // namespace

ClassChain VolumeSpecifier::archiveClassChain() const { return rootedChain({{"VolumeSpecifier", 0}}); }

ClassChain ArchivedFileManager::archiveClassChain() const {
  return rootedChain({{fileservices::VTFileManager::kClassName, 0}});
}

// The ordered pairs are taken up to the first missing value and everything
// after it is left out: a record without a name writes none of them.
std::shared_ptr<Dictionary> VolumeSpecifier::archiveDictionary() const {
  auto archive = Dictionary::make(true);
  const std::vector<std::pair<const char*, ObjectRef>> ordered{
      {"vs00", textObject(_volumeName)},
      {"vs01", textObject(_volumeRootPath)},
      {"vs03", Number::fromBool(_fsOnServer)},
      {"vs04", Number::fromBool(_fsOnRemovableMedia)},
      {"vs05", Number::fromBool(_supportsLargeFiles)},
      {"vs06", Number::fromBool(_supportsSymbolicLinks)},
      {"vs18", Number::fromBool(_caseSensitive)},
      {"vs23", Number::fromBool(_supportsACLs)},
      {"vs19", Number::fromBool(_ignoresOwnership)},
      {"vs20", Number::fromBool(_readOnly)},
      {"vs22", Number::fromBool(_strictVolumeIdentification)},
      {"vs07", Number::fromInt32(_nameLengthLimit)},
      {"vs08", Data::make(creationDateToBigEndian(_creationDate))},
      {"vs09", unsignedObject(_blockSize)},
      {"vs10", Number::fromInt32(_fileSystemID)},
      {"vs11", Number::fromInt32(_signature)},
      {"vs16", unsignedObject(_bufferSize)},
      {"vs21", String::make(volumeFormat())},
      {"vs24", Number::fromBool(deviceInfoValid())},
      {"vs25", String::make(deviceModel())},
      {"vs26", String::make(deviceProtocol())},
      {"vs27", String::make(deviceGUID())},
  };
  for (const auto& [key, value] : ordered) {
    if (!value) break;
    archive->set(key, value);
  }
  archive->set("vs02", Data::make(mountInfoToBigEndian(_serverMountInfo.value_or("")), true));
  if (_serverAlias) archive->set("vs12", _serverAlias);
  if (_volumeIcon) archive->set("vs13", _volumeIcon);
  if (_serverURL) archive->set("vs14", _serverURL);
  if (_fileManager && _fileFormatToSave >= kFormatWithFileManager) {
    archive->set("vs17", std::make_shared<ArchivedFileManager>());
  }
  archive->set("vs15", unsignedObject(_serverMedia));
  return archive;
}

void VolumeSpecifier::encodeWithCoder(Archiver& coder) const { coder.encodeObject(archiveDictionary()); }

void VolumeSpecifier::writeJson(JsonWriter& json) const {
  json.key("entries");
  json.object(archiveDictionary());
}

Expected<ObjectRef> VolumeSpecifier::initWithCoder(Unarchiver& coder, const FileManagerFactory& makeFileManager) {
  const std::size_t at = coder.offset();
  auto object = coder.decodeObject();
  if (!object) return object.error();
  auto archive = objectAs<Dictionary>(*object);
  if (!archive && *object) {
    return coder.failureAt(at, "a volume specifier holds " + classNameOf(*object) + ", not a dictionary");
  }
  // "vs17" holds no state of its own: a written manager reads as a local one.
  auto record = std::make_shared<VolumeSpecifier>(makeFileManager());
  record->applyArchiveDictionary(archive ? *archive : Dictionary());
  return ObjectRef{record};
}

void VolumeSpecifier::applyArchiveDictionary(const Dictionary& archive) {
  _volumeName = textOf(archive, "vs00");
  _volumeRootPath = textOf(archive, "vs01");
  if (auto info = objectOf<Data>(archive, "vs02", "data"); info && !info->bytes.empty()) {
    _serverMountInfo = mountInfoToHost(info->bytes);
  }
  _serverAlias = objectOf<Data>(archive, "vs12", "data");
  _volumeIcon = archive.get("vs13");
  _serverURL = objectOf<URL>(archive, "vs14", "a URL");
  _serverMedia = static_cast<std::uint32_t>(intOf(archive, "vs15").value_or(0));
  _bufferSize = static_cast<std::uint32_t>(intOf(archive, "vs16").value_or(kDefaultBufferSize));
  _volumeFormat = nonEmptyTextOf(archive, "vs21");
  _volumePercentFull = -1.0f;

  _fsOnServer = boolOf(archive, "vs03").value_or(false);
  _fsOnRemovableMedia = boolOf(archive, "vs04").value_or(false);
  _supportsLargeFiles = boolOf(archive, "vs05").value_or(false);
  _supportsSymbolicLinks = boolOf(archive, "vs06").value_or(false);
  _nameLengthLimit = static_cast<std::int32_t>(intOf(archive, "vs07").value_or(0));
  const auto date = objectOf<Data>(archive, "vs08", "data");
  _blockSize = static_cast<std::uint32_t>(intOf(archive, "vs09").value_or(0));
  _fileSystemID = static_cast<std::uint16_t>(intOf(archive, "vs10").value_or(0));
  _signature = static_cast<std::uint16_t>(intOf(archive, "vs11").value_or(0));
  if (auto sensitive = boolOf(archive, "vs18"))
    _caseSensitive = *sensitive;
  else
    _needsCaseSensitiveTest = true;
  if (auto v = boolOf(archive, "vs19")) _ignoresOwnership = *v;
  if (auto v = boolOf(archive, "vs20")) _readOnly = *v;
  // Reading is more generous than making a record: any volume that is not
  // a file-server one gets strict identification.
  _strictVolumeIdentification =
      boolOf(archive, "vs22").value_or(_signature == kJournaledNativeSignature || !_fsOnServer);
  if (auto v = boolOf(archive, "vs23")) _supportsACLs = *v;
  if (date) _creationDate = creationDateFromBigEndian(date->bytes).value_or(UTCDateTime{});
  applyDeviceInformation(archive);
}

void VolumeSpecifier::applyDeviceInformation(const Dictionary& archive) {
  if (auto valid = boolOf(archive, "vs24")) {
    _deviceInfoValid = *valid;
    if (!*valid) return;
    _deviceModel = nonEmptyTextOf(archive, "vs25");
    _deviceProtocol = nonEmptyTextOf(archive, "vs26");
    _deviceGUID = nonEmptyTextOf(archive, "vs27");
    return;
  }
  _deviceInfoValid = false;
  if (!_fsOnServer) takeDiskInformation(getDetailedDiskInformation(*queries(), _volumeRootPath.value_or("")));
}

std::shared_ptr<VolumeSpecifier> VolumeSpecifier::copyWithZone() {
  auto copy = std::make_shared<VolumeSpecifier>(*this);
  if (_serverAlias) copy->_serverAlias = std::make_shared<Data>(*_serverAlias);
  if (_serverURL) copy->_serverURL = std::make_shared<URL>(*_serverURL);
  if (auto icon = objectAs<GenericObject>(_volumeIcon)) copy->_volumeIcon = std::make_shared<GenericObject>(*icon);
  _insertVolumeWindow.reset();
  _insertPromptField.reset();
  return copy;
}

void registerVolumeClasses(ClassRegistry& registry, VolumeSpecifier::FileManagerFactory makeFileManager) {
  if (!makeFileManager) makeFileManager = [] { return fileservices::VTFileManager::make(); };
  registry.add("VolumeSpecifier", [makeFileManager](Unarchiver& coder, const ClassChain&) {
    return VolumeSpecifier::initWithCoder(coder, makeFileManager);
  });
  registry.add(fileservices::VTFileManager::kClassName, [](Unarchiver&, const ClassChain&) {
    return Expected<ObjectRef>(std::make_shared<ArchivedFileManager>());
  });
}

}  // namespace halyard
