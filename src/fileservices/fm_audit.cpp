#include "fileservices/fm_audit.h"

#include <cstdio>

#include "foundation/log_sink.h"

namespace halyard::fileservices {

AuditCall::AuditCall(VTFileManager& manager, const Text& entry)
    : _manager(manager), _audited(manager.auditEnabled()) {
  // _callDepth is changed only on the audit thread, so it needs no lock.
  if (_audited && ++_manager._callDepth == 1) logLine(auditPrefix() + entry());
  _manager.setLastError(0);
}

AuditCall::~AuditCall() {
  if (!_finished) leave(nullptr);
}

void AuditCall::finish(ErrorCode code, const Text& result, bool recordError) {
  if (recordError) _manager.setLastError(code);
  leave(&result);
}

void AuditCall::leave(const Text* result) {
  _finished = true;
  if (!_audited) return;
  if (--_manager._callDepth == 0 && result) logLine(auditPrefix() + (*result)());
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
    : _audited(manager.auditSwitch()), _body(body) {
  if (_audited) logLine("<FMAudit> Spawned: " + _body);
}

AuditedBody::~AuditedBody() {
  if (_audited) logLine("<FMAudit> Terminating: " + _body);
}

}  // namespace halyard::fileservices
