#pragma once
// AuditCall: the audit pattern every public VTFileManager operation follows.
// Made on entry, it adds to the call depth and logs the entry line when the
// call is the outermost one on the audit thread, then clears `lastError`.
// `finish` records the outcome and, for the outermost call, logs the result
// line. Lines are built only when they are logged.
//
//   AuditCall audit(*this, [&] { return "copyPath:" + auditQuoted(src) + ...; });
//   ErrorCode code = ...;
//   audit.finish(code, [&] { return "copyPath:toPath:preserveComments: errcode: " + ...; });

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "fileservices/vt_file_manager.h"

namespace halyard::fileservices {

class AuditCall {
 public:
  using Text = std::function<std::string()>;

  // `entry` gives the selector with its arguments.
  AuditCall(VTFileManager& manager, const Text& entry);
  ~AuditCall();
  AuditCall(const AuditCall&) = delete;
  AuditCall& operator=(const AuditCall&) = delete;

  // Sets `lastError` to the code (unless `recordError` is false) and logs
  // the result line given by `result` for the outermost call.
  void finish(ErrorCode code, const Text& result, bool recordError = true);

 private:
  void leave(const Text* result);

  VTFileManager& manager_;
  bool audited_;
  bool finished_ = false;
};

// "\"text\"", "YES"/"NO", "%08X": the argument forms of audit lines.
std::string auditQuoted(std::string_view text);
std::string auditBool(bool value);
std::string auditSeed(std::uint32_t seed);
// The "<FMAudit> VTFileManager: " prefix.
std::string auditPrefix();
// Logs one audit line of another class of this library: "<FMAudit> " + line.
void auditLine(std::string_view line);

// Logs "<FMAudit> Spawned: body" now and "<FMAudit> Terminating: body" when
// it goes, when the manager's raw audit switch is on.
class AuditedBody {
 public:
  AuditedBody(const VTFileManager& manager, std::string_view body);
  ~AuditedBody();
  AuditedBody(const AuditedBody&) = delete;
  AuditedBody& operator=(const AuditedBody&) = delete;

 private:
  bool audited_;
  std::string body_;
};

}  // namespace halyard::fileservices
