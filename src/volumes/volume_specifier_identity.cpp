// VolumeSpecifier: the identity test and the mount checks built on it.
//
// The checks run in a fixed order and the first that fails decides; the
// receiver's strictness, distant-remoteness and server state choose which
// checks run, so the test is not symmetric.

#include "foundation/log_sink.h"
#include "foundation/text_case.h"
#include "volumes/mount_table.h"
#include "volumes/volume_mounts.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

std::string orNull(const std::optional<std::string>& text) { return text ? *text : "(null)"; }

bool equalIgnoringCase(const std::optional<std::string>& a, const std::optional<std::string>& b) {
  return a && b && halyard::equalIgnoringCase(*a, *b);
}

// The identity audit lines are the selector and the finding, with no prefix
// of the file manager's audit.
void audit(bool on, const std::string& line) {
  if (on) logLine("isEqual:" + line);
}

std::string pair(const std::string& mine, const std::string& theirs) { return mine + " to " + theirs; }
std::string pair(long mine, long theirs) { return std::to_string(mine) + " to " + std::to_string(theirs); }

}  // namespace

bool VolumeSpecifier::isEqual(Object* object) {
  const bool auditing = volumeSpecSwitch("VolumeSpecAudit");
  auto* other = dynamic_cast<VolumeSpecifier*>(object);
  if (!other) return false;
  if (auditing) {
    audit(true, "Comparing " + pair(orNull(_volumeName), orNull(other->volumeName())));
    audit(true, "Hostname: " + pair(_fileManager->hostName(), other->fileManager()->hostName()));
    audit(true, "isRemote: " + pair(_fileManager->isRemote(), other->fileManager()->isRemote()));
    audit(true, "isDistantRemote: " + pair(_fileManager->isDistantRemote(), other->fileManager()->isDistantRemote()));
    audit(true,
          "blockSize: " + pair(static_cast<std::int32_t>(_blockSize), static_cast<std::int32_t>(other->blockSize())));
    audit(true, "fileSystemID: " + pair(_fileSystemID, other->fileSystemID()));
    audit(true, "isCaseSensitive: " + pair(isCaseSensitive(), other->isCaseSensitive()));
    audit(true, "isReadOnly: " + pair(_readOnly, other->isReadOnly()));
    audit(true, "isFileServer: " + pair(_fsOnServer, other->isFileServer()));
    audit(true, "isRemovableMedia: " + pair(_fsOnRemovableMedia, other->isRemovableMedia()));
  }
  const bool equal = firstMismatch(*other, auditing) == IdentityMismatch::None;
  audit(auditing, "Result: " + std::to_string(equal ? 1 : 0));
  return equal;
}

IdentityMismatch VolumeSpecifier::identityMismatch(VolumeSpecifier& other) { return firstMismatch(other, false); }

IdentityMismatch VolumeSpecifier::firstMismatch(VolumeSpecifier& other, bool auditing) {
  using enum IdentityMismatch;
  const auto& mine = *_fileManager;
  const auto& theirs = *other.fileManager();
  // One manager is one host: its name is read from the machine only when
  // two managers are compared.
  if (&mine != &theirs && mine.hostName() != theirs.hostName()) return HostName;
  if (mine.isRemote() != theirs.isRemote() || mine.isDistantRemote() != theirs.isDistantRemote()) return RemoteKind;
  if (!equalIgnoringCase(_volumeName, other.volumeName())) return Name;
  if (_blockSize != other.blockSize()) return BlockSize;
  if (_fileSystemID != other.fileSystemID()) return FileSystemID;
  if (_signature != other.signature()) return Signature;
  if (isCaseSensitive() != other.isCaseSensitive()) return CaseSensitivity;
  if (_readOnly != other.isReadOnly()) return ReadOnly;
  if (_strictVolumeIdentification && !(_creationDate == other.creationDate())) {
    audit(auditing, "Creation dates did NOT match!!!");
    return CreationDate;
  }
  audit(auditing, "Creation dates match (or are ignored).");
  if (_fsOnServer != other.isFileServer() || _fsOnRemovableMedia != other.isRemovableMedia()) return MediaKind;
  // A connection profile is the remote host a distant manager talks to.
  if (isDistantRemoteFileSystem() && mine.remoteHostName() != theirs.remoteHostName()) return ConnectionProfile;
  audit(auditing, "Connection profiles match.");
  if (_strictVolumeIdentification && deviceInfoValid() && other.deviceInfoValid() &&
      !deviceInfoMatches(other, auditing)) {
    return DeviceInfo;
  }
  if (_strictVolumeIdentification && volumeSpecSwitch("VolumeSpecTestURL") && _fsOnServer && _serverURL &&
      other.url() && _serverURL->relative != other.url()->relative) {
    return ServerURL;
  }
  return None;
}

std::string_view describeIdentityMismatch(IdentityMismatch mismatch) {
  switch (mismatch) {
    case IdentityMismatch::None:
      return "same volume";
    case IdentityMismatch::HostName:
      return "the host names differ";
    case IdentityMismatch::RemoteKind:
      return "one is remote, the other is not";
    case IdentityMismatch::Name:
      return "the volume names differ";
    case IdentityMismatch::BlockSize:
      return "the block sizes differ";
    case IdentityMismatch::FileSystemID:
      return "the file-system ids differ";
    case IdentityMismatch::Signature:
      return "the signatures (file-system types) differ";
    case IdentityMismatch::CaseSensitivity:
      return "one is case-sensitive, the other is not";
    case IdentityMismatch::ReadOnly:
      return "one is read-only, the other is not";
    case IdentityMismatch::CreationDate:
      return "the creation dates differ (strict identification)";
    case IdentityMismatch::MediaKind:
      return "the file-server or removable flags differ";
    case IdentityMismatch::ConnectionProfile:
      return "the connection profiles differ";
    case IdentityMismatch::DeviceInfo:
      return "the device model, protocol or UUID differ (strict identification)";
    case IdentityMismatch::ServerURL:
      return "the server URLs differ";
  }
  return "";
}

bool VolumeSpecifier::deviceInfoMatches(const VolumeSpecifier& other, bool auditing) const {
  audit(auditing, "Testing device info:");
  audit(auditing, "deviceModel: " + pair(deviceModel(), other.deviceModel()));
  audit(auditing, "deviceProtocol: " + pair(deviceProtocol(), other.deviceProtocol()));
  audit(auditing, "deviceGUID: " + pair(deviceGUID(), other.deviceGUID()));
  return deviceModel() == other.deviceModel() && deviceProtocol() == other.deviceProtocol() &&
         deviceGUID() == other.deviceGUID();
}

// A volume whose statistics (type, block size) or name differ fails the
// identity test whatever the rest, so only the volumes that agree in them
// are made into full records (birth time, case test); those skipped write no
// audit lines. The name needs the device facts, read only for volumes whose
// statistics agree.
bool VolumeSpecifier::statisticsAgree(const VolumeLocation& volume) const {
  return _blockSize == volume.stats.blockSize && fsKind() == volume.stats.type;
}

bool VolumeSpecifier::nameAgrees(const VolumeLocation& volume) const {
  return _volumeName && halyard::equalIgnoringCase(*_volumeName, volumeNameOf(volume));
}

// One reading of the mount table, and of each volume's statistics; device
// facts and full records only as far as the cheaper fields agree. A mount
// that a later mount covers is no candidate: read through its mount point,
// it would be the covering volume under the covered one's name.
bool VolumeSpecifier::isMounted(TimeInterval now) {
  if (!_fileManager->isConnected()) return false;
  const auto machine = queries();
  const auto table = mountsInReach(machine->mountTable());
  for (const MountEntry& mount : localVolumeMounts(table)) {
    auto volume = locateMountStatistics(*machine, table, mount);
    if (!volume || !statisticsAgree(*volume)) continue;
    addDeviceFacts(*machine, *volume);
    if (!nameAgrees(*volume)) continue;
    auto candidate = std::make_shared<VolumeSpecifier>(_fileManager);
    candidate->initWithVolume(*machine, *volume);
    if (!isEqual(candidate.get())) continue;
    _volumeRootPath = candidate->volumePath();
    _lastMountCheck = now;
    return true;
  }
  _mountedByMe = false;
  _lastMountCheck.reset();
  return false;
}

bool VolumeSpecifier::isMountedCoalesced(TimeInterval now) {
  if (!_fileManager->isConnected()) return false;
  if (_lastMountCheck && *_lastMountCheck - now >= -1.0) return true;
  return isMounted(now);
}

}  // namespace halyard
