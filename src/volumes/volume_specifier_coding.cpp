// VolumeSpecifier: its archive form (one dictionary of keys "vs00" to
// "vs27", binary fields big-endian), reading it back with the defaults of
// absent keys, and copying.

#include <utility>
#include <vector>

#include "foundation/archived_dictionary.h"
#include "foundation/archived_values.h"
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

// The empty string reads as none.
std::optional<std::string> nonEmptyTextOf(const ArchivedValues& values, const char* key) {
  auto text = values.textOf(key);
  if (text && text->empty()) return std::nullopt;
  return text;
}

ObjectRef textObject(const std::optional<std::string>& text) { return text ? String::make(*text) : nullptr; }
// The format's writers keep 32-bit fields as int ('i'), whatever their sign
// in the record: the reader takes the bits back as unsigned.
ObjectRef int32Object(std::uint32_t v) { return Number::fromInt32(static_cast<std::int32_t>(v)); }

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
      {"vs09", int32Object(_blockSize)},
      {"vs10", Number::fromInt32(_fileSystemID)},
      {"vs11", Number::fromInt32(_signature)},
      {"vs16", int32Object(_bufferSize)},
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
  archive->set("vs15", int32Object(_serverMedia));
  return archive;
}

void VolumeSpecifier::encodeWithCoder(Archiver& coder) const { coder.encodeObject(archiveDictionary()); }

void VolumeSpecifier::writeJson(JsonWriter& json) const {
  json.key("entries");
  json.object(archiveDictionary());
}

Expected<ObjectRef> VolumeSpecifier::initWithCoder(Unarchiver& coder, const FileManagerFactory& makeFileManager) {
  auto archive = decodeArchivedDictionary(coder, "a volume specifier", true);
  if (!archive) return archive.error();
  // "vs17" holds no state of its own: a written manager reads as a local one.
  auto record = std::make_shared<VolumeSpecifier>(makeFileManager());
  record->applyArchiveDictionary(*archive ? **archive : Dictionary());
  return ObjectRef{record};
}

void VolumeSpecifier::applyArchiveDictionary(const Dictionary& archive) {
  const ArchivedValues values(archive, "a volume specifier");
  _volumeName = values.textOf("vs00");
  _volumeRootPath = values.textOf("vs01");
  if (auto info = values.objectOf<Data>("vs02", "data"); info && !info->bytes.empty()) {
    _serverMountInfo = mountInfoToHost(info->bytes);
  }
  _serverAlias = values.objectOf<Data>("vs12", "data");
  _volumeIcon = archive.get("vs13");
  _serverURL = values.objectOf<URL>("vs14", "a URL");
  _serverMedia = static_cast<std::uint32_t>(values.int64Of("vs15").value_or(0));
  _bufferSize = static_cast<std::uint32_t>(values.int64Of("vs16").value_or(kDefaultBufferSize));
  _volumeFormat = nonEmptyTextOf(values, "vs21");
  _volumePercentFull = -1.0f;

  _fsOnServer = values.boolOf("vs03").value_or(false);
  _fsOnRemovableMedia = values.boolOf("vs04").value_or(false);
  _supportsLargeFiles = values.boolOf("vs05").value_or(false);
  _supportsSymbolicLinks = values.boolOf("vs06").value_or(false);
  _nameLengthLimit = static_cast<std::int32_t>(values.int64Of("vs07").value_or(0));
  const auto date = values.objectOf<Data>("vs08", "data");
  _blockSize = static_cast<std::uint32_t>(values.int64Of("vs09").value_or(0));
  _fileSystemID = static_cast<std::uint16_t>(values.int64Of("vs10").value_or(0));
  _signature = static_cast<std::uint16_t>(values.int64Of("vs11").value_or(0));
  if (auto sensitive = values.boolOf("vs18")) _caseSensitive = *sensitive;
  else _needsCaseSensitiveTest = true;
  if (auto v = values.boolOf("vs19")) _ignoresOwnership = *v;
  if (auto v = values.boolOf("vs20")) _readOnly = *v;
  // Reading is more generous than making a record: any volume that is not
  // a file-server one gets strict identification.
  _strictVolumeIdentification = values.boolOf("vs22").value_or(_signature == kJournaledNativeSignature || !_fsOnServer);
  if (auto v = values.boolOf("vs23")) _supportsACLs = *v;
  if (date) _creationDate = creationDateFromBigEndian(date->bytes).value_or(UTCDateTime{});
  applyDeviceInformation(archive);
}

void VolumeSpecifier::applyDeviceInformation(const Dictionary& archive) {
  const ArchivedValues values(archive, "a volume specifier");
  if (auto valid = values.boolOf("vs24")) {
    _deviceInfoValid = *valid;
    if (!*valid) return;
    _deviceModel = nonEmptyTextOf(values, "vs25");
    _deviceProtocol = nonEmptyTextOf(values, "vs26");
    _deviceGUID = nonEmptyTextOf(values, "vs27");
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
