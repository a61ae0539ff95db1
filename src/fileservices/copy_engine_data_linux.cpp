// File data through copy_file_range (a reflink where the file system can),
// one buffer-sized block at a time, skipping holes; read/write through the
// caller's buffer where the kernel cannot copy between the two files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fileservices/copy_engine_tree.h"

namespace halyard::fileservices {

namespace {

bool kernelCannotCopy(int rc) { return rc == EXDEV || rc == EINVAL || rc == ENOSYS || rc == EOPNOTSUPP; }

// Copies up to `length` bytes at `offset`; answers the bytes copied (0 at
// the source's end) or -errno.
ssize_t copyBlock(int in, int out, off_t offset, std::size_t length, const CopyEngineSetup& setup, bool& useKernel) {
  if (useKernel) {
    off_t from = offset, to = offset;
    const ssize_t done = copy_file_range(in, &from, out, &to, length, 0);
    if (done >= 0) return done;
    if (errno == EINTR) return 0;
    if (!kernelCannotCopy(errno)) return -errno;
    useKernel = false;
  }
  const ssize_t got = pread(in, setup.buffer, std::min(length, setup.bufferSize), offset);
  if (got <= 0) return got < 0 ? -errno : 0;
  for (ssize_t written = 0; written < got;) {
    const ssize_t done = pwrite(out, setup.buffer + written, static_cast<std::size_t>(got - written), offset + written);
    if (done < 0 && errno != EINTR) return -errno;
    if (done > 0) written += done;
  }
  return got;
}

// One extent of data, in blocks of the buffer's size with the progress told
// after each. Answers the first offset not copied through `end`.
int copyExtent(int in, int out, off_t start, off_t& end, const CopyEngineSetup& setup, bool& useKernel) {
  const auto block = static_cast<off_t>(setup.bufferSize);
  for (off_t at = start; at < end;) {
    const off_t blockEnd = std::min(end, at + block);
    const off_t blockStart = at;
    while (at < blockEnd) {
      const ssize_t done = copyBlock(in, out, at, static_cast<std::size_t>(blockEnd - at), setup, useKernel);
      if (done < 0) return static_cast<int>(-done);
      if (done == 0) {  // the source got shorter meanwhile
        end = at;
        break;
      }
      at += done;
    }
    // A full block starts its write-back now, so that the flush before the
    // rename finds most of a large file on the disk already.
    if (at - blockStart == block) (void)sync_file_range(out, blockStart, block, SYNC_FILE_RANGE_WRITE);
    if (setup.progress && !setup.progress->blockCopied(at - blockStart)) return kUserCanceledErr;
  }
  return 0;
}

}  // namespace

int copyFileData(int in, int out, const struct stat& st, const CopyEngineSetup& setup) {
  const off_t size = st.st_size;
  bool useKernel = true;
  // A file with as many blocks as bytes has no holes to look for.
  if (st.st_blocks * 512 >= size) {
    off_t end = size;
    if (int rc = copyExtent(in, out, 0, end, setup, useKernel)) return rc;
    return end == size || ftruncate(out, size) == 0 ? 0 : errno;
  }
  off_t at = 0;
  while (at < size) {
    off_t data = lseek(in, at, SEEK_DATA);
    if (data < 0 && errno == ENXIO) break;  // a hole to the end
    if (data < 0) data = at;                // no hole support: all data
    off_t end = lseek(in, data, SEEK_HOLE);
    if (end < 0 || end > size) end = size;
    if (int rc = copyExtent(in, out, data, end, setup, useKernel)) return rc;
    if (end <= data) break;
    at = end;
  }
  return ftruncate(out, size) == 0 ? 0 : errno;
}

}  // namespace halyard::fileservices
