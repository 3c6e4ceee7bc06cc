// The old tree is walked first, all of it, into sort trains; until then the index is only read. Then the header, the
// deleted-record list and a new tree are written over it, or into the new file. The header with the flipped change
// counter is the last thing written: whoever keeps the old header in memory sees there that it has to be read again.
#include "isi/compact.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "common/output.h"
#include "common/posix_file.h"
#include "isi/backup.h"
#include "isi/command_text.h"
#include "isi/data_file_lock.h"
#include "isi/deleted_list_copy.h"
#include "isi/node_writer.h"
#include "isi/tree_builder.h"
#include "isi/tree_cursor.h"
#include "sort/merge.h"
#include "sort/sort_phase.h"

namespace tarnvale {

namespace {

StatusCode failWrite(RunContext& run) {
  reportIndexWriteFailure(run);
  return status::indexNotWritten;
}

std::string_view textOf(std::span<const char> field) {
  const std::string_view text(field.data(), field.size() - 1);
  return text.substr(0, text.find('\0'));
}

// Settings of the builder and the sort, from the header of the index.
StatusCode takeSettings(RunContext& run, const IsiHandle& handle) {
  const IsiHeader& header = handle.area.header;
  run.recordNumberAddressing = (header.recordFlags & record_flag::byOffset) == 0;
  const int markLength = (header.recordFlags & record_flag::eorTwoBytes) != 0   ? 2
                         : (header.recordFlags & record_flag::eorLineFeed) != 0 ? 1
                                                                                : 0;
  run.foundRecordLength = header.recordLength + markLength;
  const StatusCode status = divideSortArea(run, handle.keyLength);
  return status == status::success ? startTree(run, handle.keyLength) : status;
}

// The entry as the sort wants it. False for an entry that no index has.
bool convertEntry(const IsiHandle& handle, std::uint8_t* sortEntry) {
  const IsiEntryHead& head = entryHead(handle.entry.data());
  if (head.recordLength == 0) return false;
  const std::uint64_t position = head.position;
  setEntryHead(sortEntry, handle.recordNumbers ? position * head.recordLength : position, head.recordLength);
  std::memcpy(sortEntry + sortEntryHeadSize, isiEntryKey(handle.entry.data()), handle.keyLength);
  return true;
}

// A walk that stopped before the end. A misplaced node is damage too; its own code would say that the input is
// exhausted.
StatusCode failWalk(RunContext& run, StatusCode status) {
  if (status != status::nodeMisplaced && status != status::treeInconsistent) return status;
  putComposed(run, {"The tree is damaged in ISI file: ", fileName(run.inputName), "\n"});
  return status::treeInconsistent;
}

// Fills the sort area with the next entries of the index. Result as of formTrains' `fillTrain`.
StatusCode fillTrainFromIndex(RunContext& run, IsiHandle& handle) {
  std::uint8_t* place = run.sortAreaBase;
  StatusCode result = status::trainFull;
  for (std::uint32_t left = run.sortEntryCapacity - 1; left > 0; --left) {
    const StatusCode status = nextEntryAndRemember(handle);
    if (status == status::endOfIndex) {
      result = status::inputExhausted;
      break;
    }
    if (status != status::success) return failWalk(run, status);
    if (!convertEntry(handle, place)) return failWalk(run, status::treeInconsistent);
    place += run.sortEntrySize;
    ++run.indexedRecordCount;
  }
  writeEndMarker(place, run.sortEntrySize);
  return result;
}

// The stored command names the new file where the index moves there.
StatusCode updateStoredCommand(const RunContext& run, IsiHeader& header) {
  const bool keep = (run.compactOptions & compact_option::keepStoredCommand) != 0;
  if (run.inPlace || keep) return status::success;
  return replaceIndexName(header.storedCommandLine, run.storedCommandLine);
}

// The header as it is, and the old root in the place of the new one.
StatusCode writeHeaderArea(RunContext& run, const IsiHandle& handle) {
  StatusCode status = writeHeader(handle, run.outputFd);
  if (status == status::success) status = writeTreeNode(handle, run.outputFd, rootOffset, handle.area.root);
  return status == status::success ? status : failWrite(run);
}

StatusCode mergeIntoTree(RunContext& run) {
  const StatusCode status = DoFancyMerge(run);
  if (status != status::success) return run.inPlace ? status::indexNotWritten : status;
  completeRecordCount(run);
  putRecordCount(run);
  return status::success;
}

StatusCode rebuild(RunContext& run, IsiHandle& handle) {
  handle.savedSpinCounter = handle.area.header.spinCounter;
  StatusCode status = takeSettings(run, handle);
  if (status == status::success) status = formTrains(run, [&] { return fillTrainFromIndex(run, handle); });
  if (status == status::success) status = updateStoredCommand(run, handle.area.header);
  if (status == status::success) status = checkDeletedList(handle);
  if (status == status::success && run.inPlace) status = makeBackup(run);
  // From here on the index is overwritten when the compaction works in place.
  if (status == status::success) status = writeHeaderArea(run, handle);
  if (status == status::success) status = carryDeletedList(run, handle);
  if (status == status::success) status = mergeIntoTree(run);
  return status;
}

StatusCode writeFinalHeader(RunContext& run, IsiHandle& handle) {
  IsiHeader& header = handle.area.header;
  header.spinCounter = header.spinCounter == 0 ? 1 : 0;
  header.reserved36 = 0;
  if (writeHeader(handle, run.outputFd) != status::success) return failWrite(run);
  // The backup goes away next: the index has to be on stable storage before.
  if (run.inPlace && ::fsync(run.outputFd) != 0) return failWrite(run);
  return status::success;
}

StatusCode checkChangeCounter(RunContext& run, IsiHandle& handle) {
  const StatusCode status = checkSpinCounter(handle);
  if (status != status::success) PutMessage(run, "Unable to access ISI spin counter!\n");
  return status;
}

}  // namespace

StatusCode compactIndex(RunContext& run) {
  const std::unique_ptr<IsiHandle> owned(new (std::nothrow) IsiHandle);
  if (!owned) return status::handleNotAllocated;
  IsiHandle& handle = *owned;
  StatusCode status = openIndex(handle, run.inputFd);
  if (status != status::success) return status;
  run.swapNodes = handle.bigEndian;
  run.isiDataFileName.assignCut(textOf(handle.area.header.dataFileName));

  status = lockDataFile(run, handle.area.header.recordCount);
  if (status == status::success) status = checkChangeCounter(run, handle);
  if (status == status::success) status = rebuild(run, handle);
  if (status == status::success) status = finishLevels(run);
  if (status == status::success) status = writeFinalHeader(run, handle);
  return status;
}

}  // namespace tarnvale
