// VTFileManager's core: the instance, its locks, errors, buffers, open file
// references and the machine's identity.

#include "fileservices/vt_file_manager.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "fileservices/copy_engine.h"
#include "fileservices/fm_audit.h"
#include "foundation/strings_table.h"

namespace halyard::fileservices {

namespace {

// The highest errno value of this platform; codes above it, and negative
// ones, are the platform's own status codes.
constexpr ErrorCode kLastErrnoValue = 133;

// Sets the buffer to `size` bytes, reusing it when the size is unchanged.
// The memory is left uninitialised: it is always written before it is read.
std::byte* resizeBuffer(std::unique_ptr<std::byte[]>& buffer, std::uint32_t& current, std::uint32_t size) {
  if (size == current) return buffer.get();
  buffer.reset();
  current = 0;
  if (size == 0 || size > VTFileManager::maximumCopyBufferSize) return nullptr;
  buffer.reset(new std::byte[size]);
  current = size;
  return buffer.get();
}

}  // namespace

VTFileManager& VTFileManager::sharedFileManager() {
  // Never destroyed: commands on the worker may still use it while the
  // process exits.
  static auto* instance = new std::shared_ptr<VTFileManager>(make());
  return **instance;
}

std::recursive_mutex& VTFileManager::globalThreadLock() {
  static auto* lock = new std::recursive_mutex;
  return *lock;
}

std::recursive_mutex& VTFileManager::globalAliasResolutionLock() {
  static auto* lock = new std::recursive_mutex;
  return *lock;
}

std::shared_ptr<VTFileManager> VTFileManager::make(std::shared_ptr<const HostIdentitySource> identity,
                                                   VTThreadedCommandPool& pool) {
  return std::shared_ptr<VTFileManager>(new VTFileManager(std::move(identity), pool));
}

VTFileManager::VTFileManager(std::shared_ptr<const HostIdentitySource> identity, VTThreadedCommandPool& pool)
    : identity_(std::move(identity)), pool_(pool) {}

VTFileManager::~VTFileManager() { closeAllOpenForks(); }

std::shared_ptr<VTFileManager> VTFileManager::copy() const {
  auto other = make(identity_, pool_);
  std::lock_guard guard(*_threadLock);
  static_cast<VTFileManagerSettings&>(*other) = *this;
  // A copy maps ids as its original does: a copy made for a transfer must
  // not silently write the owners unmapped.
  other->_idMappingDelegate = _idMappingDelegate;
  return other;
}

void VTFileManager::setAuditEnabled(bool enabled) {
  std::lock_guard guard(*_threadLock);
  _auditThread = enabled ? std::this_thread::get_id() : std::thread::id();
  _auditEnabled = enabled;
  _callDepth = 0;
}

bool VTFileManager::auditEnabled() const {
  std::lock_guard guard(*_threadLock);
  return _auditEnabled && _auditThread == std::this_thread::get_id();
}

void VTFileManager::setLastError(ErrorCode code) {
  std::lock_guard guard(*_threadLock);
  _lastError = code;
  if (code == 0) errno = 0;
}

ErrorCode VTFileManager::lastError() const {
  std::lock_guard guard(*_threadLock);
  return _lastError;
}

std::string VTFileManager::errorMessageForCode(ErrorCode code) const {
  if (code == 0) return "";
  if (code == kDestinationInsideSourceErr) return "The destination is inside the item being copied or moved";
  // The C library's own text for every value of the range, the few unused
  // ones included ("Unknown error 41").
  if (code >= 1 && code <= kLastErrnoValue) {
    char text[64];
    return strerror_r(code, text, sizeof text);
  }
  return localizedString(localizedString("ERROR_CODE_MSG") + ": " + std::to_string(code));
}

std::string VTFileManager::lastErrorDetail() const {
  std::lock_guard guard(*_threadLock);
  return lastErrorDetail_;
}

std::vector<std::string> VTFileManager::takeMetadataWarnings() {
  std::lock_guard guard(*_threadLock);
  return std::exchange(metadataWarnings_, {});
}

bool VTFileManager::isRunningWithRootPrivileges() const { return geteuid() == 0; }

std::optional<std::string> VTFileManager::computerName() const {
  auto name = identity_->computerName();
  if (name && name->empty()) return std::nullopt;
  return name;
}

std::string VTFileManager::hostName() const { return hostNameFrom(*identity_); }

void VTFileManager::setVolumeQueries(std::shared_ptr<const VolumeQueries> queries) {
  std::lock_guard guard(*_threadLock);
  volumeQueries_ = std::move(queries);
}

std::shared_ptr<const VolumeQueries> VTFileManager::volumeQueries() const {
  std::lock_guard guard(*_threadLock);
  return volumeQueries_;
}

std::byte* VTFileManager::copyBufferOfSize(std::uint32_t size) {
  return resizeBuffer(_copyBuffer, _copyBufferSize, size);
}

std::byte* VTFileManager::altCopyBufferOfSize(std::uint32_t size) {
  return resizeBuffer(_altCopyBuffer, _altCopyBufferSize, size);
}

void VTFileManager::addOpenForkReference(int fd) {
  std::lock_guard guard(*_threadLock);
  if (std::find(_openForkRefArray.begin(), _openForkRefArray.end(), fd) == _openForkRefArray.end()) {
    _openForkRefArray.push_back(fd);
  }
}

void VTFileManager::removeOpenForkReference(int fd) {
  std::lock_guard guard(*_threadLock);
  std::erase(_openForkRefArray, fd);
}

void VTFileManager::closeAllOpenForks() {
  std::lock_guard guard(*_threadLock);
  const std::vector<int> snapshot = _openForkRefArray;
  for (int fd : snapshot) {
    close(fd);
    removeOpenForkReference(fd);
  }
}

std::vector<int> VTFileManager::openForkReferences() const {
  std::lock_guard guard(*_threadLock);
  return _openForkRefArray;
}

}  // namespace halyard::fileservices
