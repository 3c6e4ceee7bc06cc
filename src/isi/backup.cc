#include "isi/backup.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "cmdline/file_names.h"
#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::size_t copyBufferSize = 65535;

enum class CopyResult { copied, notRead, notWritten };

// Copies a whole file over another one, from offset 0 on.
CopyResult copyFile(RunContext& run, int from, int to) {
  const auto length = fileSize(from);
  if (!length) return CopyResult::notRead;
  for (std::uint64_t offset = 0; offset < *length;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(copyBufferSize, *length - offset));
    const ssize_t count = readAt(from, run.backupBuffer, wanted, offset);
    if (count < 0) return CopyResult::notRead;
    if (count == 0) break;
    const auto bytes = static_cast<std::size_t>(count);
    if (!writeAllAt(to, run.backupBuffer, bytes, offset)) return CopyResult::notWritten;
    offset += bytes;
  }
  return ::fsync(to) == 0 ? CopyResult::copied : CopyResult::notWritten;
}

StatusCode failBackup(RunContext& run, std::initializer_list<MessagePiece> message) {
  removeBackup(run);
  putComposed(run, message);
  return status::backupFailed;
}

// The only whole copy of the index is the backup: it is kept, under its name.
StatusCode failRestore(RunContext& run, const char* text, std::string_view name) {
  putComposed(run, {text, fileName(name)});
  putComposed(run, {"\nThe index as it was is kept in the backup file: ", fileName(run.backupName), "\n"});
  closeFile(run.backupFd);
  removeBackup(run);
  return status::restoreFailed;
}

void freeCopyBuffer(RunContext& run) {
  std::free(run.backupBuffer);
  run.backupBuffer = nullptr;
}

}  // namespace

StatusCode makeBackup(RunContext& run) {
  const bool named = run.backupName.join(run.inputName.view(), ".bak");
  if (named) {
    const InterruptHold hold;
    run.backupFd = createFile(run.backupName.c_str(), run.inputFd, run.compactLockFd);
  }
  if (run.backupFd < 0) return failBackup(run, {"Unable to create backup file: ", fileName(run.backupName), "\n"});
  run.backupBuffer = static_cast<std::uint8_t*>(std::malloc(copyBufferSize));
  if (run.backupBuffer == nullptr) {
    return failBackup(run, {"Insufficient memory to backup ISI for in place compact option!\n"});
  }
  const CopyResult result = copyFile(run, run.inputFd, run.backupFd);
  if (result == CopyResult::notRead) {
    return failBackup(run, {"Error reading the ISI file: ", fileName(run.inputName), "\n"});
  }
  if (result == CopyResult::notWritten || !syncDirectoryOf(run.backupName)) {
    return failBackup(run, {"Error writing the ISI backup file: ", fileName(run.backupName), "\n"});
  }
  run.compactOptions |= compact_option::backupMade;
  return status::success;
}

StatusCode restoreBackup(RunContext& run) {
  if (run.backupFd >= 0) {
    const CopyResult result = copyFile(run, run.backupFd, run.inputFd);
    if (result == CopyResult::notRead) return failRestore(run, "Error reading the ISI backup file: ", run.backupName);
    if (result == CopyResult::notWritten) {
      return failRestore(run, "Error restoring/writing the ISI file: ", run.inputName);
    }
  }
  removeBackup(run);
  return status::success;
}

void removeBackup(RunContext& run) {
  if (run.backupFd >= 0) {
    const InterruptHold hold;
    closeFile(run.backupFd);
    ::unlink(run.backupName.c_str());
  }
  freeCopyBuffer(run);
}

}  // namespace tarnvale
