// VTFileManager's ZIP family: the asynchronous methods, the bodies the
// worker runs, and the audited synchronous operations over ZipTransfer.

#include "fileservices/fm_audit.h"
#include "fileservices/vt_file_manager.h"
#include "fileservices/zip_transfer.h"
#include "foundation/values.h"

namespace halyard::fileservices {

namespace {

constexpr std::string_view kSrcPathKey = "VTFM_src_path";
constexpr std::string_view kDestPathKey = "VTFM_dest_path";
constexpr std::string_view kCommentsKey = "VTFM_pcomments";
constexpr std::string_view kACLsKey = "VTFM_pACLs";
constexpr std::string_view kNameKey = "VTFM_name";
constexpr std::string_view kMetadataKey = "VTFM_metadta";  // spelt so by every caller

std::shared_ptr<Dictionary> commandArguments(VTThreadedCommandPool& pool, CommandID id) {
  return objectAs<Dictionary>(pool.getPropertyAs<ObjectRef>(kArgsKey, id).value_or(nullptr));
}

std::optional<std::string> textArgument(const Dictionary& args, std::string_view key) {
  auto text = objectAs<String>(args.get(key));
  return text ? std::optional(text->text) : std::nullopt;
}

bool flagArgument(const Dictionary& args, std::string_view key) {
  auto flag = objectAs<Number>(args.get(key));
  return flag && flag->boolValue();
}

}  // namespace

// ---- move into an archive ----

CommandID VTFileManager::asyncMovePathToZIPArchiveAtPath(const std::string& src, const std::string& archive,
                                                         bool preserveComments, bool preserveACLs) {
  auto args = Dictionary::make(true);
  args->set(kSrcPathKey, String::make(src));
  args->set(kDestPathKey, String::make(archive));
  args->set(kCommentsKey, Number::fromBool(preserveComments));
  args->set(kACLsKey, Number::fromBool(preserveACLs));
  const auto entry = [&] {
    return "asyncMovePath:" + auditQuoted(src) + " toZIPArchiveAtPath:" + auditQuoted(archive) +
           " preserveComments:" + auditBool(preserveComments) + " preserveACLs:" + auditBool(preserveACLs);
  };
  return spoolAndWait(entry, "asyncMovePath:toZIPArchiveAtPath:preserveComments:preserveACLs:",
                      &VTFileManager::movePathToZIPArchiveThreadedCommand, args, nullptr);
}

void VTFileManager::movePathToZIPArchiveThreadedCommand(CommandID id) {
  AuditedBody body(*this, "movePathToZIPArchiveThreadedCommand");
  auto args = commandArguments(pool_, id);
  if (!args) return;
  const ErrorCode code = movePathToZIPArchiveAtPath(textArgument(*args, kSrcPathKey).value_or(""),
                                                    textArgument(*args, kDestPathKey).value_or(""),
                                                    flagArgument(*args, kCommentsKey), flagArgument(*args, kACLsKey));
  pool_.setProperty(kECodeKey, id, std::int64_t{code});
}

ErrorCode VTFileManager::movePathToZIPArchiveAtPath(const std::string& src, const std::string& archive,
                                                    bool preserveComments, bool preserveACLs) {
  AuditCall audit(*this, [&] {
    return "movePath:" + auditQuoted(src) + " toZIPArchiveAtPath:" + auditQuoted(archive) +
           " preserveComments:" + auditBool(preserveComments);
  });
  const ErrorCode code = ZipTransfer(*this).moveToArchive(src, archive, preserveComments, preserveACLs);
  audit.finish(code, [&] { return "movePath:toZIPArchiveAtPath:preserveComments: errcode: " + std::to_string(code); });
  return code;
}

// ---- extract ----

CommandID VTFileManager::asyncExtractFile(const std::string& name, const std::string& archive,
                                          const std::optional<std::string>& dest, bool applyMetadata) {
  auto args = Dictionary::make(true);
  args->set(kNameKey, String::make(name));
  args->set(kSrcPathKey, String::make(archive));
  if (dest) args->set(kDestPathKey, String::make(*dest));
  args->set(kMetadataKey, Number::fromBool(applyMetadata));
  const auto entry = [&] {
    return "asyncExtractFile:" + auditQuoted(name) + " fromZIPArchiveAtPath:" + auditQuoted(archive) +
           " toPath:" + auditQuoted(dest.value_or("(null)")) + " applyMetadata:" + auditBool(applyMetadata);
  };
  return spoolAndWait(entry, "asyncExtractFile:fromZIPArchiveAtPath:toPath:applyMetadata:",
                      &VTFileManager::extractFileFromZIPArchiveThreadedCommand, args, nullptr);
}

void VTFileManager::extractFileFromZIPArchiveThreadedCommand(CommandID id) {
  AuditedBody body(*this, "extractFileFromZIPArchiveThreadedCommand");
  auto args = commandArguments(pool_, id);
  if (!args) return;
  const ErrorCode code =
      extractFile(textArgument(*args, kNameKey).value_or(""), textArgument(*args, kSrcPathKey).value_or(""),
                  textArgument(*args, kDestPathKey), flagArgument(*args, kMetadataKey));
  pool_.setProperty(kECodeKey, id, std::int64_t{code});
}

ErrorCode VTFileManager::extractFile(const std::string& name, const std::string& archive,
                                     const std::optional<std::string>& dest, bool applyMetadata) {
  AuditCall audit(*this, [&] {
    return "extractFile:" + auditQuoted(name) + " fromZIPArchiveAtPath:" + auditQuoted(archive) +
           " toPath:" + auditQuoted(dest.value_or("(null)")) + " applyMetadata:" + auditBool(applyMetadata);
  });
  const ErrorCode code = ZipTransfer(*this).extract(name, archive, dest, applyMetadata);
  audit.finish(
      code, [&] { return "extractFile:fromZIPArchiveAtPath:toPath:applyMetadata: errcode: " + std::to_string(code); });
  return code;
}

}  // namespace halyard::fileservices
