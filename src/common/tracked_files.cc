#include "common/tracked_files.h"

#include <fcntl.h>
#include <unistd.h>

#include "common/interrupt_hold.h"
#include "common/posix_file.h"

namespace tarnvale {

bool openRegular(TrackedFile& file, int access) {
  const InterruptHold hold;
  file.fd = ::open(file.name.c_str(), access | O_NONBLOCK | O_CLOEXEC);
  if (!file.isOpen() || isRegularFile(file.fd)) return file.isOpen();
  closeFile(file.fd);
  return false;
}

bool writeLines(TrackedFile& file) {
  const bool written = writeAll(file.fd, file.collected.bytes, file.collected.size);
  file.collected.size = 0;
  return written;
}

bool closeTracked(TrackedFile& file) {
  if (!file.isOpen()) return true;
  const bool written = writeLines(file);
  return closeFile(file.fd) && written;
}

void releaseFile(TrackedFile& file, RunEnd end) {
  if (!file.isOpen()) return;
  const bool failed = end == RunEnd::failure;
  const bool discarded = failed && file.atEnd == AtEnd::discardAfterFailure;
  const bool removed =
      discarded || file.atEnd == AtEnd::removeAlways || (failed && file.atEnd == AtEnd::removeAfterFailure);
  if (discarded) static_cast<void>(::ftruncate(file.fd, 0));
  closeTracked(file);
  if (removed) ::unlink(file.name.c_str());
}

void releaseAllFiles(TrackedFiles& files, RunEnd end) {
  for (const FileRole role :
       {FileRole::errorFile, FileRole::input, FileRole::index, FileRole::workFile1, FileRole::workFile2}) {
    releaseFile(files[role], end);
  }
}

void discardFile(TrackedFile& file) {
  if (!file.isOpen()) return;
  const InterruptHold hold;
  static_cast<void>(::ftruncate(file.fd, 0));
  closeFile(file.fd);
  ::unlink(file.name.c_str());
}

}  // namespace tarnvale
