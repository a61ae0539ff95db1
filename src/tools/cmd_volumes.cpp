// `halyardctl volumes [--json]`: every mounted volume with its identity
// fields, as the agent's mount check sees them.

#include <cstdio>
#include <iostream>

#include "tools/cmd_volumes.h"
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
      {record.isCaseSensitive(), "case-sensitive"}, {record.isReadOnly(), "read-only"},
      {record.isRemovableMedia(), "removable"},      {record.isFileServer(), "file-server"},
      {record.arePermissionsIgnored(), "ignores-ownership"}, {record.supportsACLs(), "acls"},
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
  for (const std::string& path : mountedLocalVolumePaths(*linuxVolumeQueries())) {
    auto record = VolumeSpecifier::volumeSpecifierWithPath(path, fileManager);
    if (!record) continue;
    if (json) {
      volumes::writeIdentity(writer, *record);
    } else {
      std::cout << path << "\n";
      volumes::printIdentity(std::cout, *record, "  ");
    }
  }
  if (json) {
    writer.endArray();
    std::cout << writer.take() << "\n";
  }
  return 0;
}

}  // namespace halyard::tools
