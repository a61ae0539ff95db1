#pragma once
// File operations of the file manager's library for files that grow by
// appending (a log's mirror file): making an empty file, an output stream in
// append mode, and cutting a file to its last bytes in place.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/unique_handle.h"

namespace halyard::fileservices {

// An output stream that appends to one file; closed when it goes.
class AppendStream {
 public:
  // Nothing when the file cannot be opened for appending.
  static std::unique_ptr<AppendStream> open(const std::string& path);
  ~AppendStream();
  AppendStream(const AppendStream&) = delete;
  AppendStream& operator=(const AppendStream&) = delete;

  // Writes all of `bytes` at the end of the file; false when it could not.
  bool write(std::string_view bytes);

 private:
  explicit AppendStream(UniqueFd fd) : fd_(std::move(fd)) {}
  UniqueFd fd_;
};

// Makes an empty file at `path`, replacing a file's contents (not a folder).
// 0 or the errno value.
int createEmptyFile(const std::string& path);

// When the file holds more than `limit` bytes, moves its last `limit` bytes
// to its start in blocks of 262,144 bytes and cuts it to `limit` bytes. A
// shorter file is left alone. 0 or the errno value.
int cutFileToTail(const std::string& path, std::uint64_t limit);

}  // namespace halyard::fileservices
