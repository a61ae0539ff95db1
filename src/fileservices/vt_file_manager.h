#pragma once
// VTFileManager: the process's one gateway to the file system. It runs file
// operations on the caller's thread, or spools them on the shared command
// pool's worker and waits for them (`waitForCommandCompletion`). Every
// public operation records its outcome with `setLastError` (0 = success, an
// errno value, or a negative platform code such as -128 for a cancelled
// copy) and, when auditing is on for the calling thread, logs one entry line
// and one result line for the outermost call.
//
//   auto& fm = VTFileManager::sharedFileManager();
//   CommandID id = fm.asyncCopyPath("/a", "/b", true);
//   while (id > 0 && fm.statusForCommand(id) == kCommandNotFinished)
//     id = fm.waitForCommandCompletion(id, 10.0);
//   if (id > 0) puts(fm.errorMessageForCode(fm.statusForCommand(id)).c_str());

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fileservices/error_codes.h"
#include "fileservices/host_identity.h"
#include "fileservices/vt_threaded_command_pool.h"

namespace halyard {
class VolumeQueries;
}

namespace halyard {
class Data;
}

namespace halyard::fileservices {

struct CopyEngineSetup;
struct EngineReport;
class VTUserGroupMapper;
inline constexpr ErrorCode kCommandNotFinished = 10101;

// What a copy of a manager carries over (VTFileManager::copy): its settings,
// its lock (shared), its audit state, its fork list and its buffer sizes. A
// field added here goes with every copy; one added to the manager stays.
struct VTFileManagerSettings {
  std::vector<std::string> _eaExcludeList{"com.apple.FinderInfo", "com.apple.ResourceFork"};
  std::shared_ptr<std::recursive_mutex> _threadLock = std::make_shared<std::recursive_mutex>();
  ErrorCode _lastError = 0;
  std::vector<int> _openForkRefArray;
  std::uint32_t _defaultUserID = 0;
  std::uint32_t _defaultGroupID = 0;
  std::uint32_t _copyBufferSize = 0;
  std::uint32_t _altCopyBufferSize = 0;
  bool _auditEnabled = false;
  std::int32_t _callDepth = 0;
  std::thread::id _auditThread;
  std::shared_ptr<const VolumeQueries> volumeQueries_;
};

class VTFileManager : public std::enable_shared_from_this<VTFileManager>, private VTFileManagerSettings {
 public:
  static constexpr std::uint32_t maximumCopyBufferSize = 16'777'216;
  static constexpr const char* kClassName = "VTFileManager";

  // The one instance, made on first use; it lives until exit.
  static VTFileManager& sharedFileManager();
  // Process-wide sections: thread-sensitive platform calls, and alias
  // resolution.
  static std::recursive_mutex& globalThreadLock();
  static std::recursive_mutex& globalAliasResolutionLock();

  // Managers live in shared pointers (their asynchronous commands keep them
  // alive); `make` is the way to build one.
  static std::shared_ptr<VTFileManager> make(
      std::shared_ptr<const HostIdentitySource> identity = makeLinuxHostIdentitySource(),
      VTThreadedCommandPool& pool = VTThreadedCommandPool::sharedCommandPool());
  ~VTFileManager();
  VTFileManager(const VTFileManager&) = delete;
  VTFileManager& operator=(const VTFileManager&) = delete;

  // A shallow copy: the same lock, pool and settings (VTFileManagerSettings),
  // its own copy of the fork list (closed when the copy goes, as by the
  // original), no buffers. The buffer sizes are kept, so asking the copy for
  // the size the original held answers no memory until another size is asked
  // for once.
  std::shared_ptr<VTFileManager> copy() const;

  // The instance lock.
  void lockFileManagerThread() { _threadLock->lock(); }
  void unlockFileManagerThread() { _threadLock->unlock(); }

  // Audit: only the thread that switched it on logs.
  void setAuditEnabled(bool enabled);
  bool auditEnabled() const;
  // The raw switch, which the command bodies on the worker test (under the
  // instance lock, as another thread may be switching it).
  bool auditSwitch() const {
    std::lock_guard guard(*_threadLock);
    return _auditEnabled;
  }

  // Errors.
  void setLastError(ErrorCode code);
  ErrorCode lastError() const;
  std::string errorMessageForCode(ErrorCode code) const;
  std::string errorMessageForLastError() const { return errorMessageForCode(lastError()); }
  // What the last copy, move or remove had to tell beyond its code: the
  // failure, naming the item it concerns ("" after a success), and each
  // piece of metadata it could not keep (answered once).
  std::string lastErrorDetail() const;
  std::vector<std::string> takeMetadataWarnings();

  // Small queries.
  bool isRunningWithRootPrivileges() const;
  std::string remoteHostName() const { return ""; }
  // The connection: a local manager is always connected and never remote.
  bool connect() { return true; }
  bool isConnected() const { return true; }
  bool isRemote() const { return false; }
  bool isDistantRemote() const { return false; }

  // The volume queries (mount table, file-system statistics, device
  // identity) that the volume records reach the machine through. Null means
  // the machine's own, which the volumes library supplies; tests install a
  // machine described in data.
  void setVolumeQueries(std::shared_ptr<const VolumeQueries> queries);
  std::shared_ptr<const VolumeQueries> volumeQueries() const;
  std::optional<std::string> computerName() const;
  std::string hostName() const;
  void setDefaultUserID(std::uint32_t uid) { _defaultUserID = uid; }
  std::uint32_t defaultUserID() const { return _defaultUserID; }
  void setDefaultGroupID(std::uint32_t gid) { _defaultGroupID = gid; }
  std::uint32_t defaultGroupID() const { return _defaultGroupID; }
  const std::vector<std::string>& eaExcludeList() const { return _eaExcludeList; }
  // The user and group id mapper for transfers with another machine (none
  // unless one is set).
  void setIDMappingDelegate(std::shared_ptr<VTUserGroupMapper> delegate) {
    std::lock_guard guard(*_threadLock);
    _idMappingDelegate = std::move(delegate);
  }
  std::shared_ptr<VTUserGroupMapper> idMappingDelegate() const {
    std::lock_guard guard(*_threadLock);
    return _idMappingDelegate;
  }

  // Copy buffers: uninitialised memory owned by the manager, reused while the
  // size asked for stays the same. Size 0 frees the buffer and answers null;
  // so does a size above maximumCopyBufferSize.
  std::byte* copyBufferOfSize(std::uint32_t size);
  std::byte* altCopyBufferOfSize(std::uint32_t size);

  // Open file references (descriptors the manager opened), closed by
  // `closeAllOpenForks` and by the destructor.
  void addOpenForkReference(int fd);
  void removeOpenForkReference(int fd);
  void closeAllOpenForks();
  std::vector<int> openForkReferences() const;

  // Commands on the pool.
  VTThreadedCommandPool& commandPool() const { return pool_; }
  std::optional<PropertyValue> getProperty(std::string_view key, CommandID id) const;
  void setProperty(std::string_view key, CommandID id, std::optional<PropertyValue> value);
  void disposeCommand(CommandID id);
  // "ECODE" (0 when absent) once "STATE" is 3, else kCommandNotFinished.
  ErrorCode statusForCommand(CommandID id);
  // "RESULT" once "STATE" is 3, else null.
  ObjectRef resultsForCommand(CommandID id);
  std::int64_t getAndClearDataCopiedCountForCommand(CommandID id);
  // Waits up to `timeLimit` seconds. Negative: finished without error.
  // Positive: failed (see statusForCommand) or still running at the limit.
  CommandID waitForCommandCompletion(CommandID id, double timeLimit);

  // The copy family. The delegate, when given, is stored as "UIDEL" and
  // told the id at once (see ProgressDelegate::willWaitForCommand).
  CommandID asyncCopyPath(const std::string& src, const std::string& dest, bool preserveComments,
                          std::shared_ptr<ProgressDelegate> delegate = nullptr);
  void copyPathThreadedCommand(CommandID id);
  ErrorCode copyPath(const std::string& src, const std::string& dest, bool preserveComments);

  // The move family: a rename within one file system, else copy and remove.
  CommandID asyncMovePath(const std::string& src, const std::string& dest, bool preserveComments,
                          std::shared_ptr<ProgressDelegate> delegate = nullptr);
  void movePathThreadedCommand(CommandID id);
  ErrorCode movePath(const std::string& src, const std::string& dest, bool preserveComments);

  // The remove family (a whole tree).
  CommandID asyncRemoveFileAtPath(const std::string& path, std::shared_ptr<ProgressDelegate> delegate = nullptr);
  void removeFileAtPathThreadedCommand(CommandID id);
  ErrorCode removeFileAtPath(const std::string& path);

  // The ZIP family (zip_transfer.h): an item moved into a ZIP archive with
  // its metadata as the member "metadata.plist", and extracted again (into
  // the archive's folder when `dest` is absent).
  CommandID asyncMovePathToZIPArchiveAtPath(const std::string& src, const std::string& archive, bool preserveComments,
                                            bool preserveACLs);
  void movePathToZIPArchiveThreadedCommand(CommandID id);
  ErrorCode movePathToZIPArchiveAtPath(const std::string& src, const std::string& archive, bool preserveComments,
                                       bool preserveACLs);
  CommandID asyncExtractFile(const std::string& name, const std::string& archive,
                             const std::optional<std::string>& dest, bool applyMetadata);
  void extractFileFromZIPArchiveThreadedCommand(CommandID id);
  ErrorCode extractFile(const std::string& name, const std::string& archive, const std::optional<std::string>& dest,
                        bool applyMetadata);

  // The inherited operations, on this library's block-copy engine. Inside a
  // command they honour its "DCPY", "PAUSE" and "ABORT".
  ErrorCode copyPathHandler(const std::string& src, const std::string& dest);
  ErrorCode movePathHandler(const std::string& src, const std::string& dest);

  // The document alias (document_alias.h): a bookmark of an existing item,
  // and the path it leads to now (nothing is ever mounted to find it).
  std::shared_ptr<Data> createAliasObjectFromNSPath(const std::string& path);
  std::optional<std::string> getNSPathFromAliasObject(const std::shared_ptr<Data>& alias, bool passively);

  // A name not yet used in `folder`: the name itself, or the name with the
  // "UNIQUE_NAME_FORMAT" suffix of a rising seed, cut to `maxLength`
  // characters (0 means 255). `suffixSeed` (may be null) gives the first seed
  // and receives the last one used (0 when the name itself was free).
  std::string uniqueFileName(const std::string& name, const std::string& folder, std::uint32_t maxLength,
                             bool insertExtension, std::uint32_t* suffixSeed);
  // A name under which a folder may be used in `folder`: an existing folder
  // is accepted, only a non-folder item blocks the name. 0 means 9999.
  std::string locateFolderName(const std::string& name, const std::string& folder, std::uint32_t maxLength,
                               std::uint32_t* suffixSeed);

 private:
  friend class AuditCall;
  VTFileManager(std::shared_ptr<const HostIdentitySource> identity, VTThreadedCommandPool& pool);

  // The asynchronous face of every operation: the audit's entry line, the
  // body spooled on the pool with its arguments, a wait of up to ten
  // seconds, and the result line "<selector> errcode: <lastError> commandID: <id>".
  CommandID spoolAndWait(const std::function<std::string()>& entry, std::string_view selector,
                         void (VTFileManager::*body)(CommandID), ObjectRef arguments,
                         std::shared_ptr<ProgressDelegate> delegate);
  ErrorCode runEngine(const std::function<ErrorCode(const CopyEngineSetup&)>& operation);
  void recordReport(ErrorCode code, EngineReport& report);
  void reportProgress(CommandID id, ProgressDelegate& delegate, PropertyTime now);
  std::string uniqueCandidate(std::string& stem, const std::optional<std::string>& extension, std::uint32_t seed,
                              std::uint32_t maxLength) const;

  std::string lastErrorDetail_;
  std::vector<std::string> metadataWarnings_;
  std::unique_ptr<std::byte[]> _copyBuffer;
  std::unique_ptr<std::byte[]> _altCopyBuffer;
  std::mutex copyBufferInUse_;
  std::shared_ptr<const HostIdentitySource> identity_;
  std::shared_ptr<VTUserGroupMapper> _idMappingDelegate;
  VTThreadedCommandPool& pool_;
};

}  // namespace halyard::fileservices
