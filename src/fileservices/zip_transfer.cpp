// ZipTransfer: the steps of moving an item into a ZIP archive and of
// extracting it again, on /usr/bin/zip and /usr/bin/unzip.

#include "fileservices/zip_transfer.h"

#include <filesystem>
#include <map>

#include "fileservices/copy_engine.h"
#include "fileservices/copy_engine_walk.h"
#include "fileservices/file_metadata.h"
#include "fileservices/item_metadata_io.h"
#include "fileservices/tool_process.h"
#include "fileservices/transfer_files.h"
#include "fileservices/zip_directory.h"
#include "foundation/log_sink.h"

namespace halyard::fileservices {

namespace {

namespace fs = std::filesystem;

constexpr ErrorCode kUnknownToolStatus = -9070;
// A metadata member larger than this is not one this program wrote.
constexpr std::uint64_t kMaxMetadataBytes = 16 * 1024 * 1024;

// An absolute, normalised path without a trailing separator.
fs::path absolutePath(const std::string& path) {
  std::error_code ec;
  fs::path absolute = fs::absolute(path, ec).lexically_normal();
  if (!absolute.has_filename() && absolute.has_parent_path() && absolute != absolute.root_path()) {
    absolute = absolute.parent_path();
  }
  return absolute;
}

// One path component that names an item in its folder.
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

ErrorCode toolError(const ToolExit& exit, ErrorCode (*mapStatus)(int)) {
  return exit.spawnError != 0 ? exit.spawnError : mapStatus(exit.status);
}

ErrorCode fromTable(const std::map<int, ErrorCode>& table, int status) {
  if (status == 0) return 0;
  const auto found = table.find(status);
  return found == table.end() ? kUnknownToolStatus : found->second;
}

// Removes whatever stands at the path, locked items too; 0 or errno.
int removeAnything(const std::string& path) {
  if (!itemExists(path)) return 0;
  clearLockFlagsInTree(path);
  return removeItem(path, CopyEngineSetup{});
}

// Refuses an archive whose members, as its directory declares them, would
// not fit where they go. An unreadable directory is left to unzip to judge.
ErrorCode roomFor(const std::string& archive, const std::string& folder) {
  const auto survey = surveyZipArchive(archive);
  const auto free = freeBytesAt(folder);
  return survey && free && survey->declaredBytes > *free ? kDiskFullErr : 0;
}

// The item as it was before zip read it, so that what changes or appears
// meanwhile is not removed with it.
ErrorCode recordItem(const fs::path& item, CopiedItems& record) {
  UniqueFd folder;
  if (int rc = openFolder(item.parent_path().string(), folder)) return rc;
  return recordTree(folder.get(), item.filename().string(), record);
}

// Removes what was recorded of the item, as it was recorded; what changed
// or appeared while zip ran stays, and is named in the log.
ErrorCode removeArchived(const fs::path& item, CopiedItems& archived) {
  UniqueFd folder;
  if (int rc = openFolder(item.parent_path().string(), folder)) return rc;
  const std::string path = item.string();
  if (int rc = removeEntry(folder.get(), item.filename().string(), path, CopyEngineSetup{},
                           {.clearLocks = true, .only = &archived})) {
    return rc;
  }
  if (archived.left().empty()) return 0;
  logLine("<Error:> " + path + " is in the archive as it was, but what changed or appeared in it while it was " +
          "archived stays, such as " + archived.left().front());
  return EAGAIN;
}

// An archive written inside the item would be removed with it.
bool isInside(const fs::path& archive, const fs::path& item) {
  std::error_code ec;
  const fs::path folder = fs::weakly_canonical(archive.parent_path(), ec);
  const fs::path top = fs::weakly_canonical(item, ec);
  if (ec) return false;
  const fs::path relative = folder.lexically_relative(top);
  return !relative.empty() && *relative.begin() != "..";
}

bool metadataMemberTooLarge(const std::string& archive) {
  const auto survey = surveyZipArchive(archive);
  return survey && survey->metadataBytes && *survey->metadataBytes > kMaxMetadataBytes;
}

}  // namespace

ErrorCode zipStatusToError(int status) {
  static const std::map<int, ErrorCode> table{{2, -39},   {3, -206},   {5, -206},  {4, -41},  {8, -41},
                                              {6, -2708}, {7, -4213},  {10, -151}, {11, -19}, {18, -19},
                                              {14, -20},  {15, -2540}, {16, -909}};
  return fromTable(table, status);
}

ErrorCode unzipStatusToError(int status) {
  static const std::map<int, ErrorCode> table{{2, -206}, {3, -206}, {4, -41},   {5, -41},  {6, -41}, {7, -41},
                                              {9, -43},  {11, -43}, {10, -909}, {50, -34}, {51, -39}};
  return fromTable(table, status);
}

// ---- moving into an archive ----

ErrorCode ZipTransfer::moveToArchive(const std::string& item, const std::string& archive, bool comments, bool acls) {
  const fs::path itemPath = absolutePath(item);
  const fs::path archivePath = absolutePath(archive);
  if (!isPlainName(itemPath.filename().string()) || !archivePath.has_filename()) return kParamErr;
  if (!itemExists(itemPath)) return ENOENT;
  if (isInside(archivePath, itemPath)) return kParamErr;
  const std::string archiveFolder = archivePath.parent_path().string();
  const RaisedPermissions writableFolder(archiveFolder);
  const bool archiveExisted = itemExists(archivePath);
  CopiedItems archived;
  if (int rc = recordItem(itemPath, archived)) return rc;
  ErrorCode code = zipItem(itemPath, archivePath);
  if (code == 0) code = addMetadataMember(itemPath, archivePath, comments, acls);
  if (code == 0) code = syncFile(archivePath);
  if (code != 0 && !archiveExisted) removeItem(archivePath, CopyEngineSetup{});
  // From here on the archive is the item's only complete copy: it stays,
  // whatever removing the item leaves behind.
  if (code == 0) code = removeArchived(itemPath, archived);
  return code;
}

ErrorCode ZipTransfer::zipItem(const std::string& item, const std::string& archive) {
  const fs::path path(item);
  std::string leaf = path.filename().string();
  // A name that starts with "-" would read as an option; zip stores
  // "./-name" as "-name".
  if (leaf[0] == '-') leaf = "./" + leaf;
  return toolError(runTool(tools_.zip, {"-q", "-y", "-r", archive, leaf}, path.parent_path().string()),
                   zipStatusToError);
}

// The move goes on without metadata when the item's attributes cannot be
// read or the plist cannot be written; failing to read the raw records or
// to add the member fails it.
ErrorCode ZipTransfer::addMetadataMember(const std::string& item, const std::string& archive, bool comments,
                                         bool acls) {
  const auto attributes = readFileAttributes(item);
  if (!attributes) return 0;
  ItemMetadata metadata;
  metadata.attributes = *attributes;
  if (int rc = readRawRecords(item, metadata)) return rc;
  readExtras(item, comments, acls, manager_.eaExcludeList(), metadata);
  const auto folder = makeTemporaryFolder();
  if (!folder) return 0;
  const std::string plist = *folder + "/" + kMetadataMemberName;
  ErrorCode code = 0;
  if (writeNewFile(plist, metadataPlistXML(metadata)) == 0) {
    code = toolError(runTool(tools_.zip, {"-g", "-q", "-y", archive, kMetadataMemberName}, *folder), zipStatusToError);
  }
  std::error_code ec;
  fs::remove_all(*folder, ec);
  return code;
}

// ---- extracting ----

ErrorCode ZipTransfer::extract(const std::string& name, const std::string& archive,
                               const std::optional<std::string>& destination, bool applyMetadata) {
  if (!isPlainName(name)) return kParamErr;
  const std::string archivePath = absolutePath(archive).string();
  const std::string folder =
      destination ? absolutePath(*destination).string() : fs::path(archivePath).parent_path().string();
  const std::string item = folder + "/" + name;
  if (int rc = removeAnything(item)) return rc;
  if (ErrorCode code = roomFor(archivePath, folder)) return code;
  std::vector<std::string> arguments{"-qq", "-o", archivePath, "-x", kMetadataMemberName};
  if (destination) arguments.insert(arguments.end(), {"-d", folder});
  if (ErrorCode code = toolError(runTool(tools_.unzip, arguments, folder), unzipStatusToError)) {
    return failExtraction(item, code);
  }
  return applyMetadata ? applyArchivedMetadata(archivePath, item) : 0;
}

ErrorCode ZipTransfer::applyArchivedMetadata(const std::string& archive, const std::string& item) {
  if (metadataMemberTooLarge(archive)) return 0;
  const auto folder = makeTemporaryFolder();
  if (!folder) return failExtraction(item, errno);
  ErrorCode code = toolError(runTool(tools_.unzip, {"-qq", "-o", archive, kMetadataMemberName, "-d", *folder}, *folder),
                             unzipStatusToError);
  if (code == 0) {
    // An unreadable plist is no error: the metadata is then skipped.
    auto xml = readRegularFile(*folder + "/" + kMetadataMemberName, kMaxMetadataBytes);
    auto metadata = xml ? parseMetadataPlist(*xml) : Expected<ItemMetadata>(xml.error());
    if (metadata) code = applyMetadata(item, *metadata);
  }
  std::error_code ec;
  fs::remove_all(*folder, ec);
  return code == 0 ? 0 : failExtraction(item, code);
}

ErrorCode ZipTransfer::applyMetadata(const std::string& item, const ItemMetadata& metadata) {
  if (!itemExists(item)) return kFileNotFoundErr;
  applyFileAttributes(item, metadata.attributes);
  applyExtendedAttributes(item, metadata.extendedAttributes, manager_.eaExcludeList());
  applyComment(item, metadata.finderComment);
  applyACL(item, metadata.acl);
  if (int rc = applyCatalogInfo(item, metadata.catalogInfo)) return rc;
  applyInodeFlags(item, metadata.bsdStatus, manager_.isRunningWithRootPrivileges());
  return 0;
}

ErrorCode ZipTransfer::failExtraction(const std::string& item, ErrorCode code) {
  removeAnything(item);
  return code;
}

}  // namespace halyard::fileservices
