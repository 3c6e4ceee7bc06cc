#include "isi/backup.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <span>

#include "common/file_blocks.h"
#include "common/interrupt_hold.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

enum class CopyResult : std::uint8_t { copied, notRead, notWritten };

// False when the file ends before, or cannot be read.
bool readPieces(int fd, std::span<std::uint8_t> bytes, std::uint64_t offset) {
  constexpr std::size_t pieceSize = 61440;
  for (std::size_t done = 0; done < bytes.size();) {
    const std::size_t wanted = std::min(pieceSize, bytes.size() - done);
    if (readAt(fd, &bytes[done], wanted, offset + done) != static_cast<ssize_t>(wanted)) return false;
    done += wanted;
  }
  return true;
}

// Copies a whole file over another one, from offset 0 on. A read that ends before the file's length is a failed one,
// and so is a copy that turns out shorter: a failing disk or a network file system may say so. Read in small pieces,
// written in large ones: for each of these the system looks for memory.
CopyResult copyFile(int from, int to) {
  std::array<std::uint8_t, 262144> buffer;
  const auto length = fileSize(from);
  if (!length) return CopyResult::notRead;
  if (!seekTo(to, 0)) return CopyResult::notWritten;
  FileBlocks blocks;
  for (std::uint64_t offset = 0; offset < *length;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), *length - offset));
    if (!readPieces(from, std::span(buffer).first(wanted), offset)) return CopyResult::notRead;
    blocks.take(to, wanted);
    if (!writeAll(to, buffer.data(), wanted)) return CopyResult::notWritten;
    offset += wanted;
  }
  if (fileSize(from) != length) return CopyResult::notRead;
  const bool whole = ::fsync(to) == 0 && fileSize(to).value_or(0) >= *length;
  return whole ? CopyResult::copied : CopyResult::notWritten;
}

bool failBackup(TrackedFiles& files, Messages& messages, const char* text, std::string_view name) {
  removeBackup(files);
  putComposed(messages, {text, fileName(name), "\n"});
  return false;
}

// The only whole copy of the index is the backup: it is kept, under its name.
bool failRestore(TrackedFiles& files, Messages& messages, const char* text, std::string_view name) {
  TrackedFile& backup = files[FileRole::backup];
  putComposed(messages, {text, fileName(name)});
  putComposed(messages, {"\nThe index as it was is kept in the backup file: ", fileName(backup.name), "\n"});
  closeFile(backup.fd);
  return false;
}

}  // namespace

bool backupNameOf(std::string_view indexName, FileName& backupName) { return backupName.join(indexName, ".bak"); }

bool makeBackup(TrackedFiles& files, int keepFd, Messages& messages) {
  const TrackedFile& index = files[FileRole::input];
  TrackedFile& backup = files[FileRole::backup];
  if (backupNameOf(index.name, backup.name)) {
    const InterruptHold hold;
    backup.fd = createFile(backup.name.c_str(), {index.fd, keepFd});
  }
  if (!backup.isOpen()) return failBackup(files, messages, "Unable to create backup file: ", backup.name);
  const CopyResult result = copyFile(index.fd, backup.fd);
  if (result == CopyResult::notRead) return failBackup(files, messages, "Error reading the ISI file: ", index.name);
  if (result == CopyResult::notWritten || !syncDirectoryOf(backup.name)) {
    return failBackup(files, messages, "Error writing the ISI backup file: ", backup.name);
  }
  return true;
}

bool restoreBackup(TrackedFiles& files, Messages& messages) {
  const TrackedFile& index = files[FileRole::input];
  const TrackedFile& backup = files[FileRole::backup];
  if (backup.isOpen()) {
    const CopyResult result = copyFile(backup.fd, index.fd);
    if (result == CopyResult::notRead) {
      return failRestore(files, messages, "Error reading the ISI backup file: ", backup.name);
    }
    if (result == CopyResult::notWritten) {
      return failRestore(files, messages, "Error restoring/writing the ISI file: ", index.name);
    }
  }
  removeBackup(files);
  return true;
}

void removeBackup(TrackedFiles& files) {
  TrackedFile& backup = files[FileRole::backup];
  if (!backup.isOpen()) return;
  const InterruptHold hold;
  closeFile(backup.fd);
  ::unlink(backup.name.c_str());
}

}  // namespace tarnvale
