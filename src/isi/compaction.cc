// The old tree is walked first, all of it, into sort trains; until then the index is only read. Then the header, the
// deleted-record list and a new tree are written over it, or into the new file. The header with the flipped change
// counter is the last thing written: whoever keeps the old header in memory sees there that it has to be read again.
#include "isi/compaction.h"

#include <unistd.h>

#include <algorithm>

#include "common/copy_short.h"
#include "common/posix_file.h"
#include "isi/backup.h"
#include "isi/command_text.h"
#include "isi/deleted_list_copy.h"
#include "isi/index_build.h"
#include "sort/merge.h"

namespace tarnvale {

namespace {

// What the steps of one compaction work on.
struct CompactContext {
  const Settings& settings;
  Compaction& compaction;
  Sorter& sorter;
  IndexBuilder& builder;
  TrackedFiles& files;
  Messages& messages;

  [[nodiscard]] IsiHandle& handle() const { return compaction.handle; }
  [[nodiscard]] FileRole outputRole() const { return compaction.inPlace ? FileRole::input : FileRole::index; }
  [[nodiscard]] int outputFd() const { return files[outputRole()].fd; }
  [[nodiscard]] std::string_view indexName() const { return files[FileRole::input].name; }
};

Failure failWrite(const CompactContext& compact) {
  reportIndexWriteFailure(compact.messages);
  return {status::indexNotWritten, FileRole::index};
}

// --- damage of the index --------------------------------------------------------------------------------------------

struct WalkFailure {
  IndexResult result;
  StatusCode code;
};
constexpr WalkFailure walkFailures[] = {
    {IndexResult::notAnIndex, status::notAnIndex},       {IndexResult::versionUnknown, status::indexVersionUnknown},
    {IndexResult::nodeMissing, status::nodeNotRead},     {IndexResult::nodeNotRead, status::nodeNotRead},
    {IndexResult::nodeMisplaced, status::nodeMisplaced},
};

// What cannot be used of the old index, and where a whole one may lie.
void reportDamage(const CompactContext& compact, const char* text) {
  putComposed(compact.messages, {text, fileName(compact.indexName()), "\n"});
  FileName backup;
  const bool own = compact.compaction.backupMade;  // it is about to be copied back
  if (own || !backupNameOf(compact.indexName(), backup) || ::access(backup.c_str(), F_OK) != 0) return;
  putComposed(compact.messages, {"A backup of it from an earlier compaction is there: ", fileName(backup), "\n"});
}

Failure failureOf(const CompactContext& compact, IndexResult result) {
  if (result == IndexResult::done) return {};
  const auto* const row = std::ranges::find(walkFailures, result, &WalkFailure::result);
  return {row != std::end(walkFailures) ? row->code : status::treeDamaged, compact.sorter.written};
}

Failure failWalk(const CompactContext& compact, IndexResult result) {
  reportDamage(compact, result == IndexResult::nodeNotRead ? "The tree cannot be read in ISI file: "
                                                           : "The tree is damaged in ISI file: ");
  return failureOf(compact, result);
}

Failure failureOf(const CompactContext& compact, ListCopyResult result) {
  if (result == ListCopyResult::done) return {};
  if (result == ListCopyResult::notWritten) return {status::indexNotWritten, FileRole::index};
  reportDamage(compact, "The deleted-record list is damaged in ISI file: ");
  return {status::nodeNotRead, FileRole::input};
}

// --- locks ----------------------------------------------------------------------------------------------------------

struct LockText {
  LockResult result;
  const char* exclusive;  // form of the compaction
  const char* shared;
};
constexpr LockText lockTexts[] = {
    {LockResult::notOpened, "Unable to open ISI data file in exclusive mode: ", "Unable to open ISI data file: "},
    {LockResult::accessRefused,
     "Unable to exclusive lock for ISI data file: ", "Unable to set share lock for ISI data file: "},
    {LockResult::updateRefused, "Unable to lock ISI data file: ", "Unable to lock ISI data file: "},
    {LockResult::dataFileTruncated,
     "Unexpected file size truncated for ISI data file: ", "Unexpected file size truncated for ISI data file: "},
};

Failure lockDataFile(const CompactContext& compact) {
  const IsiHeader& header = compact.handle().area.header;
  DataFileLock& lock = compact.compaction.lock;
  lock.name.assignCut(textOf(header.dataFileName));
  const bool shared = compact.settings.compactLocking;
  const LockResult result =
      shared ? lockShared(lock, compact.compaction.inPlace) : lockExclusive(lock, header.recordCount);
  const auto* const row = std::ranges::find(lockTexts, result, &LockText::result);
  if (row == std::end(lockTexts)) return {};
  putComposed(compact.messages, {shared ? row->shared : row->exclusive, fileName(lock.name), "\n"});
  return {shared ? status::sharedCompactFailed : status::exclusiveCompactFailed, FileRole::input};
}

// --- the walk -------------------------------------------------------------------------------------------------------

// Fills the area with the next entries of the index, as the sort wants them. An entry without a length is none.
FilledTrain fillTrainFromIndex(Compaction& compaction, const EntryArea area, IndexResult& result) {
  IndexCursor& cursor = compaction.cursor;
  // Copies for the loop, as `area` is: to write the bytes of an entry may change anything that lies in memory, so that
  // it would be read anew for each.
  const bool recordNumbers = compaction.handle.recordNumbers;
  const std::uint32_t keyLength = compaction.handle.keyLength;
  std::uint8_t* place = area.first;
  std::uint32_t entries = 0;
  const auto take = [&](const std::uint8_t* entry) {
    const IsiEntryHead& head = entryHead(entry);
    if (entries == area.room || head.recordLength == 0) return false;
    setEntryHead(place, lfaOf(recordNumbers, head), head.recordLength);
    copyShort(place + sortEntryHeadSize, isiEntryKey(entry), keyLength);
    place += area.entrySize;
    ++entries;
    return true;
  };
  bool inOrder = true;
  for (;;) {
    takeNeighbours(cursor, take);
    if (entries == area.room) break;
    const std::uint64_t before = cursor.prefix;
    result = nextEntry(cursor);
    if (result == IndexResult::done && !take(cursor.entry)) result = IndexResult::inconsistent;
    if (result != IndexResult::done) break;
    // Keys ascend; where they are equal, their records may lie in another order.
    inOrder = inOrder && cursor.prefix != before;
  }
  writeEndMarker(place, area.entrySize);
  FilledTrain filled{FilledTrain::State::more, entries, cursor.nodesEntered, cursor.nodesInFile, inOrder};
  if (result == IndexResult::endOfIndex) filled.state = FilledTrain::State::last;
  if (result != IndexResult::done && result != IndexResult::endOfIndex) filled.state = FilledTrain::State::failed;
  return filled;
}

Failure sortIndex(const CompactContext& compact) {
  startCursor(compact.compaction.cursor, compact.handle());
  IndexResult walked = IndexResult::done;
  const SortResult sorted = formTrains(compact.sorter, compact.files, compact.messages, [&](const EntryArea& area) {
    return fillTrainFromIndex(compact.compaction, area, walked);
  });
  return sorted == SortResult::sourceFailed ? failWalk(compact, walked) : failureOf(sorted, compact.sorter);
}

// --- the new index --------------------------------------------------------------------------------------------------

// The stored command names the new file where the index moves there.
Failure updateStoredCommand(const CompactContext& compact) {
  if (compact.compaction.inPlace || compact.settings.keepStoredCommand) return {};
  const StatusCode status =
      replaceIndexName(compact.handle().area.header.storedCommandLine, compact.settings.storedCommandLine);
  return {status, FileRole::index};
}

void startNewTree(const CompactContext& compact) {
  const IsiHandle& handle = compact.handle();
  const IsiHeader& header = handle.area.header;
  IndexOutput& output = compact.builder.output;
  startOutput(output, compact.outputRole(), compact.outputFd(), compact.sorter.output.base, handle.recordNumbers);
  output.byteSwapped = handle.bigEndian;
  const std::uint32_t markLength = (header.recordFlags & record_flag::eorTwoBytes) != 0   ? 2
                                   : (header.recordFlags & record_flag::eorLineFeed) != 0 ? 1
                                                                                          : 0;
  compact.builder.tree.recordLength = header.recordLength + markLength;
  startTree(compact.builder, handle.keyLength, compact.settings.maxFillPercent);
}

// The header as it is, and the old root in the place of the new one.
Failure writeHeaderArea(const CompactContext& compact) {
  const IsiHandle& handle = compact.handle();
  IndexResult result = writeHeader(handle, compact.outputFd());
  if (result == IndexResult::done) {
    result = writeTreeNode(handle, compact.outputFd(), rootOffset, handle.area.root);
  }
  return result == IndexResult::done ? Failure{} : failWrite(compact);
}

Failure mergeIntoNewTree(const CompactContext& compact, std::uint32_t deletedCount) {
  TrackedFile& errorFile = compact.files[FileRole::errorFile];
  TreeResult inserted = TreeResult::done;
  const SortResult result =
      doFancyMerge(compact.sorter, compact.files, compact.messages, compact.settings.recordCountEnabled,
                   [&](const std::uint8_t* entry) {
                     inserted = writeTagRecord(compact.builder, entry, compact.settings, errorFile, compact.messages);
                     return inserted == TreeResult::done;
                   });
  if (result == SortResult::done) {
    putRecordCount(compact.messages, compact.sorter.delivered, deletedCount);
    return {};
  }
  if (compact.compaction.inPlace) return {status::indexNotWritten, FileRole::index};
  if (result != SortResult::sinkFailed) return failureOf(result, compact.sorter);
  if (inserted == TreeResult::tooHigh) return {status::treeTooHigh, compact.sorter.written};
  return {status::nodeNotWritten, FileRole::index};
}

Failure rebuild(const CompactContext& compact, std::uint32_t& deletedCount) {
  Failure failure = sortIndex(compact);
  if (failure.none()) failure = updateStoredCommand(compact);
  if (failure.none()) failure = failureOf(compact, checkDeletedList(compact.handle()));
  if (!failure.none()) return failure;
  Compaction& compaction = compact.compaction;
  if (compaction.inPlace) {
    compaction.backupMade = makeBackup(compact.files, compaction.lock.fd, compact.messages);
    if (!compaction.backupMade) return {status::backupFailed, FileRole::backup};
  }
  // From here on the index is overwritten when the compaction works in place.
  startNewTree(compact);
  failure = writeHeaderArea(compact);
  if (!failure.none()) return failure;
  return failureOf(compact, carryDeletedList(compact.handle(), compact.builder.output, compaction.inPlace, deletedCount,
                                             compact.messages));
}

Failure writeFinalHeader(const CompactContext& compact) {
  IsiHeader& header = compact.handle().area.header;
  header.spinCounter = header.spinCounter == 0 ? 1 : 0;
  header.reserved36 = 0;
  if (writeHeader(compact.handle(), compact.outputFd()) != IndexResult::done) return failWrite(compact);
  // The backup goes away next: the index has to be on stable storage before.
  if (compact.compaction.inPlace && ::fsync(compact.outputFd()) != 0) return failWrite(compact);
  return {};
}

Failure checkChangeCounter(const CompactContext& compact) {
  const IndexResult result = checkSpinCounter(compact.handle());
  if (result != IndexResult::done) putMessage(compact.messages, "Unable to access ISI spin counter!\n");
  return failureOf(compact, result);
}

}  // namespace

Failure compactIndex(const Settings& settings, Compaction& compaction, Sorter& sorter, const SortMemory& memory,
                     const SortLimits& limits, IndexBuilder& builder, TrackedFiles& files, Messages& messages) {
  const CompactContext compact{settings, compaction, sorter, builder, files, messages};
  Failure failure = failureOf(compact, openIndex(compaction.handle, files[FileRole::input].fd));
  if (failure.none()) failure = lockDataFile(compact);
  if (failure.none()) failure = checkChangeCounter(compact);
  if (!failure.none()) return failure;
  if (!startSorter(sorter, memory, limits, compaction.handle.keyLength, messages)) {
    return {status::outOfMemory, sorter.written};
  }

  std::uint32_t deletedCount = 0;
  failure = rebuild(compact, deletedCount);
  if (failure.none()) failure = mergeIntoNewTree(compact, deletedCount);
  if (!failure.none()) return failure;
  if (!finishLevels(builder, messages)) return {status::indexNotWritten, FileRole::index};
  return writeFinalHeader(compact);
}

}  // namespace tarnvale
