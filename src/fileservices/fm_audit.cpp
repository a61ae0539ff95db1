#include "fileservices/fm_audit.h"

#include <cstdio>

#include "foundation/log_sink.h"

namespace halyard::fileservices {

AuditCall::AuditCall(VTFileManager& manager, const Text& entry) : manager_(manager), audited_(manager.auditEnabled()) {
  // _callDepth is changed only on the audit thread, so it needs no lock.
  if (audited_ && ++manager_._callDepth == 1) logLine(auditPrefix() + entry());
  manager_.setLastError(0);
}

AuditCall::~AuditCall() {
  if (!finished_) leave(nullptr);
}

void AuditCall::finish(ErrorCode code, const Text& result, bool recordError) {
  if (recordError) manager_.setLastError(code);
  leave(&result);
}

void AuditCall::leave(const Text* result) {
  finished_ = true;
  if (!audited_) return;
  if (--manager_._callDepth == 0 && result) logLine(auditPrefix() + (*result)());
}

std::string auditQuoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string auditBool(bool value) { return value ? "YES" : "NO"; }

std::string auditSeed(std::uint32_t seed) {
  char text[16];
  std::snprintf(text, sizeof text, "%08X", seed);
  return text;
}

std::string auditPrefix() { return std::string("<FMAudit> ") + VTFileManager::kClassName + ": "; }

void auditLine(std::string_view line) { logLine("<FMAudit> " + std::string(line)); }

AuditedBody::AuditedBody(const VTFileManager& manager, std::string_view body)
    : audited_(manager.auditSwitch()), body_(body) {
  if (audited_) logLine("<FMAudit> Spawned: " + body_);
}

AuditedBody::~AuditedBody() {
  if (audited_) logLine("<FMAudit> Terminating: " + body_);
}

}  // namespace halyard::fileservices
