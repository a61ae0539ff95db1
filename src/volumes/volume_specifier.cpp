// VolumeSpecifier: making a record from a mounted volume, its dynamic
// properties, the case test and the buffer-size advice.

#include "volumes/volume_specifier.h"

#include <cctype>
#include <cstring>

namespace halyard {
namespace {

std::mutex& switchesLock() {
  static std::mutex lock;
  return lock;
}

VolumeSpecifier::PrivateProperties& switchesSource() {
  static VolumeSpecifier::PrivateProperties source;
  return source;
}

// The name with the case of its ASCII letters swapped.
std::string alternateCaseString(const std::string& name) {
  std::string swapped = name;
  for (char& c : swapped) {
    const auto u = static_cast<unsigned char>(c);
    if (std::islower(u)) c = static_cast<char>(std::toupper(u));
    else if (std::isupper(u)) c = static_cast<char>(std::tolower(u));
  }
  return swapped;
}

std::string joinPath(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

bool hasFileScheme(const std::shared_ptr<URL>& url) {
  if (!url) return false;
  const std::string& text = url->relative;
  return text.size() >= 5 && std::tolower(static_cast<unsigned char>(text[0])) == 'f' &&
         std::tolower(static_cast<unsigned char>(text[1])) == 'i' &&
         std::tolower(static_cast<unsigned char>(text[2])) == 'l' &&
         std::tolower(static_cast<unsigned char>(text[3])) == 'e' && text[4] == ':';
}

}  // namespace

void VolumeSpecifier::setPrivatePropertySource(PrivateProperties source) {
  std::lock_guard guard(switchesLock());
  switchesSource() = std::move(source);
}

bool volumeSpecSwitch(std::string_view key) {
  std::lock_guard guard(switchesLock());
  return switchesSource() && switchesSource()(key);
}

std::recursive_mutex& VolumeSpecifier::volumeMountLock() {
  static auto* lock = new std::recursive_mutex;
  return *lock;
}

VolumeSpecifier::VolumeSpecifier(FileManagerRef fileManager) : _fileManager(std::move(fileManager)) {}

std::shared_ptr<VolumeSpecifier> VolumeSpecifier::volumeSpecifierWithPath(const std::string& path,
                                                                          FileManagerRef fileManager) {
  if (!fileManager || !fileManager->connect()) return nullptr;
  auto record = std::make_shared<VolumeSpecifier>(std::move(fileManager));
  record->initWithPath(path);
  return record;
}

std::shared_ptr<VolumeSpecifier> VolumeSpecifier::volumeSpecifierWithAlias(const std::shared_ptr<Data>& alias,
                                                                           FileManagerRef fileManager) {
  if (!fileManager) return nullptr;
  const auto path = fileManager->getNSPathFromAliasObject(alias, true);
  if (!path) return nullptr;
  return volumeSpecifierWithPath(*path, std::move(fileManager));
}

std::shared_ptr<VolumeSpecifier> VolumeSpecifier::volumeSpecifierWithFileManager(FileManagerRef fileManager) {
  if (!fileManager || !fileManager->connect()) return nullptr;
  auto queries = fileManager->volumeQueries();
  const std::string home = (queries ? queries : linuxVolumeQueries())->defaultUserPath();
  return volumeSpecifierWithPath(home, std::move(fileManager));
}

std::shared_ptr<const VolumeQueries> VolumeSpecifier::queries() const {
  auto installed = _fileManager ? _fileManager->volumeQueries() : nullptr;
  return installed ? installed : linuxVolumeQueries();
}

// A failing parameter call (no volume holds the path) leaves the record with
// its file manager only.
void VolumeSpecifier::initWithPath(const std::string& path) {
  const auto machine = queries();
  if (auto volume = locateVolume(*machine, path)) initWithVolume(*machine, *volume);
}

// Every step reads the one location: the root path, its statistics and its
// device facts are those of the volume found.
void VolumeSpecifier::initWithVolume(const VolumeQueries& machine, const VolumeLocation& volume) {
  takeParms(getParms(volume));
  takeInfo(getInfoForVolume(machine, volume));
  const MountFlags flags = statfsPath(volume);
  _ignoresOwnership = flags.ignoresOwnership;
  _readOnly = flags.readOnly;
  if (!_fsOnServer) takeDiskInformation(getDetailedDiskInformation(volume));
  if (!volume.mount.fsType.empty()) _volumeFormat = volume.mount.fsType;
  _volumePercentFull = -1.0f;
  const std::string root = _volumeRootPath.value_or("");
  if (_fsOnServer || _fsOnRemovableMedia) _serverAlias = _fileManager->createAliasObjectFromNSPath(root);
  _strictVolumeIdentification = hasReliableIdentity(fsKind());
  runCaseTestUnlessExempt();
}

void VolumeSpecifier::takeParms(const VolumeParms& parms) {
  if (parms.onServer) {
    _fsOnServer = true;
    if (parms.mountInfo && !parms.mountInfo->empty()) {
      _serverMountInfo = parms.mountInfo;
      if (parms.mountInfo->size() >= 6) std::memcpy(&_serverMedia, parms.mountInfo->data() + 2, 4);
    }
    if (parms.url) _serverURL = std::make_shared<URL>(*parms.url);
  }
  _fsOnRemovableMedia = parms.removable;
  _supportsLargeFiles = parms.largeFiles;
  _supportsSymbolicLinks = parms.symbolicLinks;
  _supportsACLs = parms.acls;
  _caseSensitive = parms.caseSensitive;
  _nameLengthLimit = static_cast<std::int32_t>(parms.nameLengthLimit);
  _bufferSize = bufferSizeForVolumeGrade(parms.grade);
}

void VolumeSpecifier::takeInfo(const VolumeInfo& info) {
  _volumeName = info.name;
  _volumeRootPath = info.rootPath;
  _creationDate = info.creationDate;
  _blockSize = info.blockSize;
  _fileSystemID = info.fileSystemID;
  _signature = info.signature;
}

void VolumeSpecifier::takeDiskInformation(const std::map<std::string, std::string>& description) {
  _deviceInfoValid = !description.empty();
  if (!_deviceInfoValid) return;
  const auto take = [&](const char* key, std::optional<std::string>& field) {
    if (auto found = description.find(key); found != description.end()) field = found->second;
  };
  take("DADeviceModel", _deviceModel);
  take("DADeviceProtocol", _deviceProtocol);
  take("DAVolumeUUID", _deviceGUID);
}

// A volume that reports itself case-sensitive is always tested, and a test
// that finds it insensitive wins; "file" URLs are never tested.
void VolumeSpecifier::runCaseTestUnlessExempt() {
  if (!_caseSensitive && !volumeSpecSwitch("VolumeSpecForceCaseTest")) return;
  if (hasFileScheme(_serverURL)) return;
  _caseSensitive = testCaseSensitivityAtPath(_volumeRootPath.value_or(""));
}

std::string VolumeSpecifier::volumeFormat() const {
  if (!_volumeFormat) {
    if (auto format = fileSystemFormatStringForNSPath(*queries(), _volumeRootPath.value_or("")); !format.empty()) {
      _volumeFormat = format;
    }
  }
  return _volumeFormat.value_or("");
}

std::string VolumeSpecifier::resetVolumeFormat() {
  _volumeFormat.reset();
  return volumeFormat();
}

void VolumeSpecifier::setInsertVolumePanel(std::shared_ptr<void> window, std::shared_ptr<void> promptField) {
  _insertVolumeWindow = std::move(window);
  _insertPromptField = std::move(promptField);
}

// A call that fails answers the status the root path gets from the machine;
// a path that can be reached but lies on no volume answers no-such-volume.
fileservices::ErrorCode VolumeSpecifier::refreshDynamicProperties() {
  const auto machine = queries();
  const std::string root = _volumeRootPath.value_or("");
  const auto failed = [&] {
    const int status = machine->pathStatus(root);
    return status != 0 ? status : kNoSuchVolume;
  };
  const auto flags = statfsPath(*machine, root);
  if (!flags) return failed();
  _ignoresOwnership = flags->ignoresOwnership;
  _readOnly = flags->readOnly;
  if (!machine->deviceOf(root)) return 0;
  const auto parms = getParms(*machine, root);
  if (!parms) return failed();
  _supportsACLs = parms->acls;
  return 0;
}

bool VolumeSpecifier::isCaseSensitive() {
  if (!_needsCaseSensitiveTest) return _caseSensitive;
  const auto parms = getParms(*queries(), _volumeRootPath.value_or(""));
  if (!parms) {
    _needsCaseSensitiveTest = false;
    return _caseSensitive;
  }
  if (parms->caseSensitive) _caseSensitive = true;
  runCaseTestUnlessExempt();
  _needsCaseSensitiveTest = false;
  return _caseSensitive;
}

// Undecidable cases count as case-sensitive, the safe side for a synchroniser.
bool VolumeSpecifier::testCaseSensitivityAtPath(const std::string& path) const {
  const auto machine = queries();
  const auto names = machine->listDirectory(path);
  if (!names || names->empty()) return true;
  for (const std::string& name : *names) {
    const auto number = machine->fileNumber(joinPath(path, name));
    if (!number) continue;
    const std::string swapped = alternateCaseString(name);
    if (swapped == name) continue;
    const auto other = machine->fileNumber(joinPath(path, swapped));
    if (!other) return true;
    return static_cast<std::uint32_t>(*number) != static_cast<std::uint32_t>(*other);
  }
  return true;
}

std::uint32_t VolumeSpecifier::optimalBufferSize() const {
  std::uint32_t size = _fsOnServer ? 262144 : (_fileManager->isDistantRemote() ? 5242880 : 4194304);
  const std::uint32_t limit = fileservices::VTFileManager::maximumCopyBufferSize;
  return limit != 0 && limit < size ? limit : size;
}

std::uint32_t VolumeSpecifier::bufferSizeForVolumeGrade(std::int32_t grade) {
  std::uint32_t size = grade < 0 ? static_cast<std::uint32_t>(-static_cast<std::int64_t>(grade)) >> 2 : 4194304;
  size -= size % 512;
  if (size < 1024) return 1024;
  if (size > 16777216) return 16777216;
  return size;
}

}  // namespace halyard
