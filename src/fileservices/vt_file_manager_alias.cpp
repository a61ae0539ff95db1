// VTFileManager's document-alias operations, on the bookmark of
// document_alias.h. Resolution runs under the process-wide alias lock.

#include <cerrno>

#include "fileservices/document_alias.h"
#include "fileservices/fm_audit.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::fileservices {

std::shared_ptr<Data> VTFileManager::createAliasObjectFromNSPath(const std::string& path) {
  AuditCall audit(*this, [&] { return "createAliasObjectFromNSPath:" + auditQuoted(path); });
  auto alias = fileservices::createAliasObjectFromNSPath(path);
  const ErrorCode code = alias ? 0 : ENOENT;
  audit.finish(code, [&] { return "createAliasObjectFromNSPath: errcode: " + std::to_string(code); });
  return alias;
}

std::optional<std::string> VTFileManager::getNSPathFromAliasObject(const std::shared_ptr<Data>& alias, bool passively) {
  AuditCall audit(*this, [&] { return "getNSPathFromAliasObject:<alias> passively:" + auditBool(passively); });
  std::optional<std::string> path;
  {
    std::lock_guard guard(globalAliasResolutionLock());
    path = fileservices::getNSPathFromAliasObject(alias, passively);
  }
  const ErrorCode code = path ? 0 : ENOENT;
  audit.finish(code, [&] {
    return "getNSPathFromAliasObject:passively: errcode: " + std::to_string(code) +
           " result: " + auditQuoted(path.value_or("(null)"));
  });
  return path;
}

}  // namespace halyard::fileservices
