#pragma once
// VolumeSpecifier: the durable identity of a volume. A record taken from a
// mounted volume lets the agent recognise the same volume later, after it has
// been unmounted and mounted again under another path or reached through
// another mount point. A scheduled item carries one for each side of its
// synchronisation; the mounted-volume check asks it whether its volume is
// mounted now, and where. Every query goes through the record's file manager.
//
//   auto fm = VTFileManager::make();
//   auto wanted = VolumeSpecifier::volumeSpecifierWithPath("/media/me/Backup", fm);
//   if (wanted && wanted->isMountedCoalesced(now)) use(wanted->volumePath());
//
// A record takes no lock of its own: use one record from one thread at a
// time. Mounting and unmounting take the class-wide volumeMountLock().

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "fileservices/vt_file_manager.h"
#include "foundation/class_registry.h"
#include "foundation/dates.h"
#include "foundation/values.h"
#include "volumes/volume_facts.h"

namespace halyard {

class Unarchiver;

// The identity checks in the order the identity test runs them; None when
// all pass.
enum class IdentityMismatch {
  None,
  HostName,
  RemoteKind,
  Name,
  BlockSize,
  FileSystemID,
  Signature,
  CaseSensitivity,
  ReadOnly,
  CreationDate,
  MediaKind,
  ConnectionProfile,
  DeviceInfo,
  ServerURL,
};

// The failed check in words ("the volume names differ").
std::string_view describeIdentityMismatch(IdentityMismatch mismatch);

class VolumeSpecifier final : public Object {
 public:
  using FileManagerRef = std::shared_ptr<fileservices::VTFileManager>;
  using FileManagerFactory = std::function<FileManagerRef()>;
  // The application's debugging switches by name; absent ones are off.
  using PrivateProperties = std::function<bool(std::string_view key)>;

  static constexpr std::uint16_t kJournaledNativeSignature = 0x482B;  // 'H+'
  static constexpr fileservices::ErrorCode kNoSuchVolume = -35;

  // ---- constructors (null when the file manager cannot connect) ----
  static std::shared_ptr<VolumeSpecifier> volumeSpecifierWithPath(const std::string& path, FileManagerRef fileManager);
  static std::shared_ptr<VolumeSpecifier> volumeSpecifierWithAlias(const std::shared_ptr<Data>& alias,
                                                                   FileManagerRef fileManager);
  static std::shared_ptr<VolumeSpecifier> volumeSpecifierWithFileManager(FileManagerRef fileManager);
  // The lock every mount and unmount of every record takes.
  static std::recursive_mutex& volumeMountLock();

  // Where the switches "VolumeSpecAudit", "VolumeSpecForceCaseTest" and
  // "VolumeSpecTestURL" are read; none set means all off.
  static void setPrivatePropertySource(PrivateProperties source);

  // An empty record on a file manager, as the archive reader starts it.
  explicit VolumeSpecifier(FileManagerRef fileManager);
  // copyWithZone: the copy shares the file manager. The record copied loses
  // its insert-volume panel references; the copy keeps them.
  std::shared_ptr<VolumeSpecifier> copyWithZone();

  // ---- readers and setters ----
  const FileManagerRef& fileManager() const { return _fileManager; }
  void setFileManager(FileManagerRef fileManager) { _fileManager = std::move(fileManager); }
  const std::optional<std::string>& volumeName() const { return _volumeName; }
  const std::optional<std::string>& volumePath() const { return _volumeRootPath; }
  const UTCDateTime& creationDate() const { return _creationDate; }
  std::uint32_t blockSize() const { return _blockSize; }
  std::uint16_t fileSystemID() const { return _fileSystemID; }
  std::uint16_t signature() const { return _signature; }
  std::uint32_t fsKind() const { return (std::uint32_t{_fileSystemID} << 16) + _signature; }
  std::uint32_t serverMedia() const { return _serverMedia; }
  const std::shared_ptr<URL>& url() const { return _serverURL; }
  const std::optional<std::string>& serverMountInfo() const { return _serverMountInfo; }
  const std::shared_ptr<Data>& serverAlias() const { return _serverAlias; }
  std::int32_t nameLengthLimit() const { return _nameLengthLimit; }
  std::uint32_t bufferSize() const { return _bufferSize; }
  const std::optional<TimeInterval>& lastMountCheck() const { return _lastMountCheck; }
  void setLastMountCheck(std::optional<TimeInterval> when) { _lastMountCheck = when; }
  bool isRemovableMedia() const { return _fsOnRemovableMedia; }
  bool isFileServer() const { return _fsOnServer; }
  bool isReadOnly() const { return _readOnly; }
  bool supportsLargeFiles() const { return _supportsLargeFiles; }
  bool supportsSymbolicLinks() const { return _supportsSymbolicLinks; }
  bool supportsACLs() const { return _supportsACLs; }
  bool arePermissionsIgnored() const { return _ignoresOwnership; }
  bool strictVolumeIdentification() const { return _strictVolumeIdentification; }
  void setStrictVolumeIdentification(bool strict) { _strictVolumeIdentification = strict; }
  bool mountedByMe() const { return _mountedByMe; }
  void setMountedByMe(bool mine) { _mountedByMe = mine; }
  void setFileFormatToSave(std::int32_t format) { _fileFormatToSave = format; }
  // The device strings, the empty string when unset.
  std::string deviceModel() const { return _deviceModel.value_or(""); }
  std::string deviceProtocol() const { return _deviceProtocol.value_or(""); }
  std::string deviceGUID() const { return _deviceGUID.value_or(""); }
  bool deviceInfoValid() const { return !_fsOnServer && _deviceInfoValid; }
  bool isRemoteFileSystem() const { return _fileManager->isRemote(); }
  bool isDistantRemoteFileSystem() const { return _fileManager->isDistantRemote(); }
  bool isConnected() const { return _fileManager->isConnected(); }
  bool connect() { return _fileManager->connect(); }
  // The format name, fetched on first use; the empty string when none.
  std::string volumeFormat() const;
  std::string resetVolumeFormat();
  // The insert-volume panel and its prompt field, kept for the interface.
  void setInsertVolumePanel(std::shared_ptr<void> window, std::shared_ptr<void> promptField);
  const std::shared_ptr<void>& insertVolumeWindow() const { return _insertVolumeWindow; }
  const std::shared_ptr<void>& insertPromptField() const { return _insertPromptField; }

  // Refreshes the ignore-ownership, read-only and ACL flags; 0 or the status
  // of the call that failed.
  fileservices::ErrorCode refreshDynamicProperties();
  // Whether names differ by letter case (lazy after a restore from an archive).
  bool isCaseSensitive();
  bool testCaseSensitivityAtPath(const std::string& path) const;

  // Size statistics, cached for 2.5 seconds (failures too).
  std::string volumeSizeStats(TimeInterval now);
  std::string volumeSizeStatsForced(TimeInterval now);
  float volumePercentFull(TimeInterval now);
  float volumePercentFullForced(TimeInterval now);

  std::uint32_t optimalBufferSize() const;
  // The transfer-size hint of a volume grade.
  static std::uint32_t bufferSizeForVolumeGrade(std::int32_t grade);

  // Whether `other` denotes the same volume (volume_specifier_identity.cpp).
  bool isEqual(Object* other);
  bool isEqual(const ObjectRef& other) { return isEqual(other.get()); }
  // The first identity check that `other` fails, without audit lines.
  IdentityMismatch identityMismatch(VolumeSpecifier& other);
  // Whether the volume is mounted now; when it is, the root path follows it.
  bool isMounted(TimeInterval now);
  // isMounted with a one-second memory of a positive answer.
  bool isMountedCoalesced(TimeInterval now);

  // ---- coding (volume_specifier_coding.cpp) ----
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;
  // The dictionary encodeWithCoder: writes.
  std::shared_ptr<Dictionary> archiveDictionary() const;
  static Expected<ObjectRef> initWithCoder(Unarchiver& coder, const FileManagerFactory& makeFileManager);
  // Reads an archived dictionary into this record (on its file manager).
  void applyArchiveDictionary(const Dictionary& archive);

 private:
  void initWithPath(const std::string& path);
  void initWithVolume(const VolumeQueries& machine, const VolumeLocation& volume);
  bool statisticsAgree(const VolumeLocation& volume) const;
  bool nameAgrees(const VolumeLocation& volume) const;
  void takeParms(const VolumeParms& parms);
  void takeInfo(const VolumeInfo& info);
  void takeDiskInformation(const std::map<std::string, std::string>& description);
  void runCaseTestUnlessExempt();
  std::shared_ptr<const VolumeQueries> queries() const;
  IdentityMismatch firstMismatch(VolumeSpecifier& other, bool audit);
  bool deviceInfoMatches(const VolumeSpecifier& other, bool audit) const;
  void applyDeviceInformation(const Dictionary& archive);

  bool _fsOnServer = false;
  bool _fsOnRemovableMedia = false;
  bool _supportsLargeFiles = false;
  bool _supportsSymbolicLinks = false;
  bool _caseSensitive = false;
  bool _needsCaseSensitiveTest = false;
  bool _ignoresOwnership = false;
  bool _readOnly = false;
  bool _strictVolumeIdentification = false;
  bool _supportsACLs = false;
  std::int32_t _nameLengthLimit = 0;
  std::uint32_t _bufferSize = 0;
  UTCDateTime _creationDate;
  std::uint32_t _blockSize = 0;
  std::uint16_t _fileSystemID = 0;
  std::uint16_t _signature = 0;
  ObjectRef _volumeIcon;
  mutable std::optional<std::string> _volumeFormat;
  std::optional<std::string> _volumeName;
  std::optional<std::string> _volumeRootPath;
  std::optional<std::string> _serverMountInfo;
  std::shared_ptr<Data> _serverAlias;
  std::shared_ptr<URL> _serverURL;
  std::uint32_t _serverMedia = 0;
  bool _deviceInfoValid = false;
  std::optional<std::string> _deviceModel;
  std::optional<std::string> _deviceProtocol;
  std::optional<std::string> _deviceGUID;
  FileManagerRef _fileManager;
  bool _mountedByMe = false;
  std::optional<TimeInterval> _lastMountCheck;
  std::int32_t _fileFormatToSave = 0;
  std::optional<TimeInterval> _lastVolumeStatsRequest;
  std::optional<std::string> _volumeStatsStr;
  std::optional<TimeInterval> _lastVolumePercentRequest;
  float _volumePercentFull = -1.0f;
  std::shared_ptr<void> _insertVolumeWindow;
  std::shared_ptr<void> _insertPromptField;
};

// Whether a debugging switch is on (VolumeSpecifier::setPrivatePropertySource).
bool volumeSpecSwitch(std::string_view key);

// The record's archive form of the file manager ("vs17"): an object with no
// contents, written only from format 1024 up.
class ArchivedFileManager final : public Object {
 public:
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver&) const override {}
  void writeJson(JsonWriter&) const override {}
};

// Adds the decoders of VolumeSpecifier and of the file manager's archive
// form. Decoded records get a file manager from `makeFileManager` (a new
// local manager unless a test says otherwise).
void registerVolumeClasses(ClassRegistry& registry, VolumeSpecifier::FileManagerFactory makeFileManager = nullptr);

}  // namespace halyard
