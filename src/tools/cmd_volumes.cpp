// `halyardctl volumes [--json]`: every mount of the mount table, marked
// whether mounting it can start a volume-mount item and, if not, why; the
// volumes that can, with their identity fields as the agent's mount check
// sees them.

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "tools/cmd_volumes.h"
#include "volumes/mount_table.h"
#include "volumes/volume_mounts.h"

namespace halyard::tools {
namespace volumes {
namespace {

constexpr const char* kUsage =
    "usage: halyardctl volumes [--json]\n"
    "       halyardctl volumes check N [--file PATH]\n";

std::string hex(std::uint32_t value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*X", digits, value);
  return text;
}

std::string creationText(const UTCDateTime& date) {
  if (date == UTCDateTime{}) return "unknown";
  return formatInstant(instantOfUTCDateTime(date), cctz::utc_time_zone());
}

// The record's flags as words, in a fixed order.
std::vector<std::string> flagsOf(VolumeSpecifier& record) {
  std::vector<std::string> flags;
  const std::pair<bool, const char*> all[] = {
      {record.isCaseSensitive(), "case-sensitive"},
      {record.isReadOnly(), "read-only"},
      {record.isRemovableMedia(), "removable"},
      {record.isFileServer(), "file-server"},
      {record.arePermissionsIgnored(), "ignores-ownership"},
      {record.supportsACLs(), "acls"},
      {record.strictVolumeIdentification(), "strict-identification"},
  };
  for (const auto& [on, word] : all) {
    if (on) flags.emplace_back(word);
  }
  return flags;
}

}  // namespace

void printIdentity(std::ostream& out, VolumeSpecifier& record, const char* indent) {
  out << indent << "name: " << record.volumeName().value_or("(none)") << "\n";
  out << indent << "type: " << record.volumeFormat() << ", signature " << hex(record.signature(), 4)
      << ", file-system id " << hex(record.fileSystemID(), 4) << ", block size " << record.blockSize() << "\n";
  if (record.deviceInfoValid()) {
    out << indent << "UUID: " << record.deviceGUID() << ", model: " << record.deviceModel()
        << ", protocol: " << record.deviceProtocol() << "\n";
  }
  if (record.url()) out << indent << "URL: " << record.url()->relative << "\n";
  out << indent << "flags:";
  for (const std::string& flag : flagsOf(record)) out << " " << flag;
  out << "\n" << indent << "created: " << creationText(record.creationDate()) << "\n";
}

void writeIdentity(JsonWriter& json, VolumeSpecifier& record) {
  json.beginObject();
  json.key("path").string(record.volumePath().value_or(""));
  json.key("name").string(record.volumeName().value_or(""));
  json.key("type").string(record.volumeFormat());
  json.key("signature").unsignedInteger(record.signature());
  json.key("fileSystemID").unsignedInteger(record.fileSystemID());
  json.key("blockSize").unsignedInteger(record.blockSize());
  json.key("deviceInfoValid").boolean(record.deviceInfoValid());
  json.key("uuid").string(record.deviceGUID());
  json.key("model").string(record.deviceModel());
  json.key("protocol").string(record.deviceProtocol());
  json.key("url").string(record.url() ? record.url()->relative : "");
  json.key("flags").beginArray();
  for (const std::string& flag : flagsOf(record)) json.string(flag);
  json.endArray();
  json.key("created").string(creationText(record.creationDate()));
  json.endObject();
}

}  // namespace volumes

namespace volumes {
namespace {

// Whether a mount can start an item, and the record that lets it.
struct Verdict {
  std::shared_ptr<VolumeSpecifier> record;
  std::string whyNot;  // empty when the mount can start an item
};

// A mount event comes only for a volume's first mount in reach, and a
// volume is recognised again only by a record with a name. `reachable` is
// the table's mounts in reach.
Verdict verdictOf(const std::vector<MountEntry>& reachable, const MountEntry& mount,
                  const std::shared_ptr<fileservices::VTFileManager>& fileManager) {
  switch (kindOfMount(mount)) {
    case MountKind::PseudoFileSystem:
      return {nullptr, "pseudo file system"};
    case MountKind::DiskImage:
      return {nullptr, "read-only image"};
    case MountKind::Volume:
      break;
  }
  const bool inReach = std::any_of(reachable.begin(), reachable.end(),
                                   [&](const MountEntry& entry) { return entry.mountID == mount.mountID; });
  if (!inReach) return {nullptr, "out of reach: a later mount covers it"};
  if (const MountEntry& standing = canonicalMount(reachable, mount); standing.mountID != mount.mountID) {
    return {nullptr, "another mount of the volume at " + standing.mountPoint};
  }
  auto record = VolumeSpecifier::volumeSpecifierWithPath(mount.mountPoint, fileManager);
  if (!record || !record->volumeName()) return {nullptr, "no identity: the volume cannot be read"};
  return {record, ""};
}

void printVerdict(const MountEntry& mount, const Verdict& verdict) {
  if (!verdict.record) {
    std::cout << mount.mountPoint << " (" << mount.fsType << "): cannot start an item: " << verdict.whyNot << "\n";
    return;
  }
  std::cout << mount.mountPoint << ": can start an item\n";
  printIdentity(std::cout, *verdict.record, "  ");
}

void writeVerdict(JsonWriter& json, const MountEntry& mount, const Verdict& verdict) {
  json.beginObject();
  json.key("path").string(mount.mountPoint);
  json.key("type").string(mount.fsType);
  json.key("canStartItem").boolean(verdict.record != nullptr);
  json.key("whyNot").string(verdict.whyNot);
  if (verdict.record) {
    json.key("identity");
    writeIdentity(json, *verdict.record);
  }
  json.endObject();
}

}  // namespace
}  // namespace volumes

int runVolumes(const Arguments& args) {
  if (!args.empty() && args[0] == "check") return volumes::runCheck(Arguments(args.begin() + 1, args.end()));
  const bool json = args.size() == 1 && args[0] == "--json";
  if (!args.empty() && !json) {
    std::cerr << volumes::kUsage;
    return args[0] == "--help" ? 0 : 2;
  }
  auto fileManager = fileservices::VTFileManager::sharedFileManager().shared_from_this();
  JsonWriter writer;
  if (json) writer.beginArray();
  const auto table = linuxVolumeQueries()->mountTable();
  const auto reachable = mountsInReach(table);
  for (const MountEntry& mount : table) {
    const auto verdict = volumes::verdictOf(reachable, mount, fileManager);
    if (json) {
      volumes::writeVerdict(writer, mount, verdict);
    } else {
      volumes::printVerdict(mount, verdict);
    }
  }
  if (json) {
    writer.endArray();
    std::cout << writer.take() << "\n";
  }
  return 0;
}

}  // namespace halyard::tools
