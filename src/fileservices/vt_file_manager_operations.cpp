// VTFileManager's copy, move and remove families: the asynchronous method,
// the body the worker runs, the synchronous operation, and the inherited
// operations on the block-copy engine.

#include <filesystem>
#include <utility>

#include "fileservices/copy_engine.h"
#include "fileservices/file_metadata.h"
#include "fileservices/fm_audit.h"
#include "fileservices/vt_file_manager.h"
#include "foundation/scope_guard.h"
#include "foundation/values.h"

namespace halyard::fileservices {

namespace {

// Set while copyPath or movePath runs its handler without keeping comments:
// the engine then leaves the comment out, so that a destination unable to
// hold one neither fails the move nor reports a loss for it.
thread_local bool tCommentsUnwanted = false;

class CommentsUnwanted {
 public:
  explicit CommentsUnwanted(bool unwanted) : old_(std::exchange(tCommentsUnwanted, unwanted)) {}
  ~CommentsUnwanted() { tCommentsUnwanted = old_; }
  CommentsUnwanted(const CommentsUnwanted&) = delete;
  CommentsUnwanted& operator=(const CommentsUnwanted&) = delete;

 private:
  bool old_;
};

constexpr std::string_view kSrcPathKey = "VTFM_src_path";
constexpr std::string_view kDestPathKey = "VTFM_dest_path";
constexpr std::string_view kCommentsKey = "VTFM_pcomments";

// One block of the engine: the buffer size of a volume of grade 0.
constexpr std::uint32_t kCopyBlockSize = 4 * 1024 * 1024;

// The pool's progress protocol, spoken by the engine after each block.
class CommandProgress final : public CopyProgress {
 public:
  CommandProgress(VTThreadedCommandPool& pool, CommandID id) : pool_(pool), id_(id) {}
  bool blockCopied(std::int64_t bytes) override {
    {
      std::lock_guard guard(pool_.threadLock());
      const std::int64_t copied = pool_.getPropertyAs<std::int64_t>(kDCpyKey, id_).value_or(0);
      pool_.setProperty(kDCpyKey, id_, copied + bytes);
    }
    return !pool_.waitWhilePausedOrAborted(id_);
  }

 private:
  VTThreadedCommandPool& pool_;
  CommandID id_;
};

ObjectRef pathArguments(const std::string& src, const std::string* dest, std::optional<bool> comments) {
  auto args = Dictionary::make(true);
  args->set(kSrcPathKey, String::make(src));
  if (dest) args->set(kDestPathKey, String::make(*dest));
  if (comments) args->set(kCommentsKey, Number::fromBool(*comments));
  return args;
}

struct PathArguments {
  std::string src;
  std::string dest;
  bool comments = false;
};

std::optional<PathArguments> readPathArguments(VTThreadedCommandPool& pool, CommandID id) {
  auto args = objectAs<Dictionary>(pool.getPropertyAs<ObjectRef>(kArgsKey, id).value_or(nullptr));
  if (!args) return std::nullopt;
  PathArguments out;
  if (auto src = objectAs<String>(args->get(kSrcPathKey))) out.src = src->text;
  if (auto dest = objectAs<String>(args->get(kDestPathKey))) out.dest = dest->text;
  if (auto comments = objectAs<Number>(args->get(kCommentsKey))) out.comments = comments->boolValue();
  return out;
}

// The body the worker runs for a copy, move or remove: the operation on the
// command's arguments, its code stored as "ECODE".
template <class Operation>
void runPathCommand(const VTFileManager& manager, VTThreadedCommandPool& pool, CommandID id, std::string_view name,
                    Operation operation) {
  AuditedBody body(manager, name);
  if (auto args = readPathArguments(pool, id)) pool.setProperty(kECodeKey, id, std::int64_t{operation(*args)});
}

std::string parentFolder(const std::string& path) {
  auto parent = std::filesystem::path(path).parent_path().string();
  return parent.empty() ? "." : parent;
}

std::string errcodeLine(std::string_view selector, ErrorCode code) {
  return std::string(selector) + " errcode: " + std::to_string(code);
}

}  // namespace

// ---- copy ----

CommandID VTFileManager::asyncCopyPath(const std::string& src, const std::string& dest, bool preserveComments,
                                       std::shared_ptr<ProgressDelegate> delegate) {
  const auto entry = [&] {
    return "asyncCopyPath:" + auditQuoted(src) + " toPath:" + auditQuoted(dest) +
           " preserveComments:" + auditBool(preserveComments);
  };
  return spoolAndWait(entry, "asyncCopyPath:toPath:preserveComments:", &VTFileManager::copyPathThreadedCommand,
                      pathArguments(src, &dest, preserveComments), std::move(delegate));
}

void VTFileManager::copyPathThreadedCommand(CommandID id) {
  runPathCommand(*this, pool_, id, "copyPathThreadedCommand",
                 [this](const PathArguments& args) { return copyPath(args.src, args.dest, args.comments); });
}

ErrorCode VTFileManager::copyPath(const std::string& src, const std::string& dest, bool preserveComments) {
  AuditCall audit(*this, [&] {
    return "copyPath:" + auditQuoted(src) + " toPath:" + auditQuoted(dest) +
           " preserveComments:" + auditBool(preserveComments);
  });
  const auto comment = preserveComments ? readComment(src) : std::nullopt;
  // Reading needs no write permission, so only the destination's folder is
  // raised, and only when this process could not write to it otherwise.
  const RaisedPermissions parent(parentFolder(dest));
  // A locked item can be read as it is: the source is never unlocked, so a
  // copy that is killed cannot leave it unlocked.
  const bool locked = isLocked(src);
  const ErrorCode code = [&] {
    const CommentsUnwanted scope(!preserveComments);
    return copyPathHandler(src, dest);
  }();
  if (code == 0 && comment && !comment->empty()) writeComment(dest, *comment);
  if (locked && code == 0) setLocked(dest, true);
  audit.finish(code, [&] { return errcodeLine("copyPath:toPath:preserveComments:", code); });
  return code;
}

ErrorCode VTFileManager::copyPathHandler(const std::string& src, const std::string& dest) {
  AuditCall audit(*this,
                  [&] { return "copyPath:" + auditQuoted(src) + " toPath:" + auditQuoted(dest) + " handler:nil"; });
  const ErrorCode code = runEngine([&](const CopyEngineSetup& setup) { return copyItem(src, dest, setup); });
  audit.finish(code, [&] { return errcodeLine("copyPath:toPath:handler:", code); });
  return code;
}

// ---- move ----

CommandID VTFileManager::asyncMovePath(const std::string& src, const std::string& dest, bool preserveComments,
                                       std::shared_ptr<ProgressDelegate> delegate) {
  const auto entry = [&] {
    return "asyncMovePath:" + auditQuoted(src) + " toPath:" + auditQuoted(dest) +
           " preserveComments:" + auditBool(preserveComments);
  };
  return spoolAndWait(entry, "asyncMovePath:toPath:preserveComments:", &VTFileManager::movePathThreadedCommand,
                      pathArguments(src, &dest, preserveComments), std::move(delegate));
}

void VTFileManager::movePathThreadedCommand(CommandID id) {
  runPathCommand(*this, pool_, id, "movePathThreadedCommand",
                 [this](const PathArguments& args) { return movePath(args.src, args.dest, args.comments); });
}

ErrorCode VTFileManager::movePath(const std::string& src, const std::string& dest, bool preserveComments) {
  AuditCall audit(*this, [&] {
    return "movePath:" + auditQuoted(src) + " toPath:" + auditQuoted(dest) +
           " preserveComments:" + auditBool(preserveComments);
  });
  // A move keeps the item's attributes, comment included, by itself; a
  // comment that is not to be kept is taken off the moved item.
  const RaisedPermissions parent(parentFolder(dest));
  const bool locked = isLocked(src);
  if (locked) setLocked(src, false);
  bool moved = false;
  // The item gets its lock back where it is, on every path out.
  const ScopeGuard relock([&] {
    if (locked) setLocked(moved ? dest : src, true);
  });
  const ErrorCode code = [&] {
    const CommentsUnwanted scope(!preserveComments);
    return movePathHandler(src, dest);
  }();
  moved = code == 0;
  // A rename keeps the comment, which is then taken off.
  if (moved && !preserveComments && readComment(dest)) removeComment(dest);
  audit.finish(code, [&] { return errcodeLine("movePath:toPath:preserveComments:", code); });
  return code;
}

ErrorCode VTFileManager::movePathHandler(const std::string& src, const std::string& dest) {
  AuditCall audit(*this,
                  [&] { return "movePath:" + auditQuoted(src) + " toPath:" + auditQuoted(dest) + " handler:nil"; });
  const ErrorCode code = runEngine([&](const CopyEngineSetup& setup) { return moveItem(src, dest, setup); });
  audit.finish(code, [&] { return errcodeLine("movePath:toPath:handler:", code); });
  return code;
}

// ---- remove ----

CommandID VTFileManager::asyncRemoveFileAtPath(const std::string& path, std::shared_ptr<ProgressDelegate> delegate) {
  return spoolAndWait([&] { return "asyncRemoveFileAtPath:" + auditQuoted(path) + " handler:nil"; },
                      "asyncRemoveFileAtPath:handler:", &VTFileManager::removeFileAtPathThreadedCommand,
                      pathArguments(path, nullptr, std::nullopt), std::move(delegate));
}

void VTFileManager::removeFileAtPathThreadedCommand(CommandID id) {
  runPathCommand(*this, pool_, id, "removeFileAtPathThreadedCommand",
                 [this](const PathArguments& args) { return removeFileAtPath(args.src); });
}

ErrorCode VTFileManager::removeFileAtPath(const std::string& path) {
  AuditCall audit(*this, [&] { return "removeFileAtPath:" + auditQuoted(path) + " handler:nil"; });
  const ErrorCode code = runEngine([&](const CopyEngineSetup& setup) { return removeItem(path, setup); });
  audit.finish(code, [&] { return errcodeLine("removeFileAtPath:handler:", code); });
  return code;
}

// ---- the engine ----

ErrorCode VTFileManager::runEngine(const std::function<ErrorCode(const CopyEngineSetup&)>& operation) {
  // The manager's buffer serves one copy at a time; a copy that finds it in
  // use (the worker and a caller's thread at once) gets a buffer of its own.
  // So does a copied manager, whose recorded size answers no memory.
  std::unique_lock inUse(copyBufferInUse_, std::try_to_lock);
  std::unique_ptr<std::byte[]> own;
  CopyEngineSetup setup;
  setup.bufferSize = kCopyBlockSize;
  setup.buffer = inUse.owns_lock() ? copyBufferOfSize(kCopyBlockSize) : nullptr;
  if (!setup.buffer) {
    own.reset(new std::byte[kCopyBlockSize]);
    setup.buffer = own.get();
  }
  std::vector<std::string> excluded = _eaExcludeList;
  if (tCommentsUnwanted) excluded.emplace_back(kCommentAttribute);
  setup.excludedAttributes = &excluded;
  std::optional<CommandProgress> progress;
  if (auto id = VTThreadedCommandPool::runningCommand()) {
    progress.emplace(pool_, *id);
    setup.progress = &*progress;
  }
  EngineReport report;
  setup.report = &report;
  const ErrorCode code = operation(setup);
  recordReport(code, report);
  return code;
}

// One audit line for each piece of metadata a copy could not keep; the
// last operation's are kept for the caller too (halyardctl prints them as
// warnings), and only the last one's, so that they never pile up.
void VTFileManager::recordReport(ErrorCode code, EngineReport& report) {
  for (const std::string& loss : report.losses) auditLine(std::string(kClassName) + ": " + loss);
  std::lock_guard guard(*_threadLock);
  lastErrorDetail_ = code == 0 ? "" : std::move(report.failure);
  metadataWarnings_ = std::move(report.losses);
}

}  // namespace halyard::fileservices
