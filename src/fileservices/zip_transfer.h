#pragma once
// ZipTransfer: the work behind the file manager's ZIP family. An item is
// moved into a ZIP archive by /usr/bin/zip, with its metadata added as the
// member "metadata.plist", and brought back out by /usr/bin/unzip, with that
// metadata applied on request. Failures are the platform's status codes
// mapped from the tools' exit statuses, or errno values.
//
// Data first: the item is removed only after the archive (metadata
// included) is complete and flushed, and an archive that was there before
// the move is never removed.

#include <optional>
#include <string>

#include "fileservices/item_metadata.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::fileservices {

inline constexpr ErrorCode kParamErr = -50;
inline constexpr ErrorCode kDiskFullErr = -34;
inline constexpr ErrorCode kFileNotFoundErr = -43;

struct ZipTools {
  std::string zip = "/usr/bin/zip";
  std::string unzip = "/usr/bin/unzip";
};

// The tools' exit statuses as status codes (0 stays 0).
ErrorCode zipStatusToError(int status);
ErrorCode unzipStatusToError(int status);

class ZipTransfer {
 public:
  explicit ZipTransfer(VTFileManager& manager, ZipTools tools = {}) : manager_(manager), tools_(std::move(tools)) {}

  // Moves the item into the archive (added to it when it exists).
  ErrorCode moveToArchive(const std::string& item, const std::string& archive, bool comments, bool acls);
  // Extracts the whole archive but its metadata into `destination` (the
  // archive's folder when absent), first removing whatever stands at
  // `name` there; with `applyMetadata`, applies the metadata to `name`.
  ErrorCode extract(const std::string& name, const std::string& archive, const std::optional<std::string>& destination,
                    bool applyMetadata);

 private:
  ErrorCode zipItem(const std::string& item, const std::string& archive);
  ErrorCode addMetadataMember(const std::string& item, const std::string& archive, bool comments, bool acls);
  ErrorCode applyArchivedMetadata(const std::string& archive, const std::string& item);
  ErrorCode applyMetadata(const std::string& item, const ItemMetadata& metadata);
  ErrorCode failExtraction(const std::string& item, ErrorCode code);

  VTFileManager& manager_;
  ZipTools tools_;
};

}  // namespace halyard::fileservices
