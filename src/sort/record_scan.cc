// One loop over records: what lies between them is skipped, the record is found in one piece, its key extracted into
// the next slot of the sort area, and the slot is kept when the record is selected.
#include "sort/record_scan.h"

#include <algorithm>
#include <cstring>

#include "common/output.h"
#include "sort/input_buffer.h"
#include "sort/key_extraction.h"

namespace tarnvale {

namespace {

constexpr std::uint8_t ctrlZ = 0x1A;
constexpr std::uint32_t maxRecordSize = 65535;   // less the end-of-record mark
constexpr std::int32_t smallestMaxRecord = 256;  // columns, when the first record decides
constexpr StatusCode skipped = 1;                // findRecord: a deleted record, not one to index

// A record found, and whether the data ended in it.
struct FoundRecord {
  RecordBytes bytes{};
  bool inputEnded = false;
};

StatusCode endTrain(RunContext& run, StatusCode result) {
  writeEndMarker(run.currentEntry, run.sortEntrySize);
  return result;
}

// Loads the next block. inputExhausted when there is none.
StatusCode nextBlock(RunContext& run) {
  const std::int32_t size = fillInputBuffer(run, run.inputFd);
  if (size == 0) return status::inputExhausted;
  return size < 0 ? size : status::success;
}

StatusCode addDeletedRecord(RunContext& run) {
  ++run.deletedRecordCount;
  return run.deletedRecordCallback(run);
}

// Takes `length` NUL bytes at the cursor. In a fixed-length file a deleted record begins wherever `bytesToNext`, the
// bytes left of the one before, has come down to 0.
StatusCode takeNulBytes(RunContext& run, std::size_t length, std::uint32_t& bytesToNext) {
  if (run.variableLengthAllowed) {
    run.currentLfa += length;
    return status::success;
  }
  while (length > 0) {
    if (bytesToNext == 0) {
      const StatusCode status = addDeletedRecord(run);
      if (status != status::success) return status;
      bytesToNext = static_cast<std::uint32_t>(run.foundRecordLength);
    }
    const auto step = static_cast<std::uint32_t>(std::min<std::size_t>(length, bytesToNext));
    bytesToNext -= step;
    run.currentLfa += step;
    length -= step;
  }
  return status::success;
}

void reportIrregularRun(RunContext& run) {
  if (!run.variableLengthFound) {
    if (run.debugMode) PutMessage(run, "\nCreateSubList(1): Variable record detected after deleted record!\n");
    run.invalidRecordPosition = true;
  }
  run.variableLengthFound = true;
}

// Skips the run of NUL bytes at the cursor of a text file.
StatusCode skipNulRun(RunContext& run) {
  std::uint32_t bytesToNext = 0;
  StatusCode status = status::success;
  while (status == status::success && *run.scanCursor == 0) {
    const std::uint8_t* const end = std::find_if(run.scanCursor, run.blockEnd, [](std::uint8_t b) { return b != 0; });
    status = takeNulBytes(run, static_cast<std::size_t>(end - run.scanCursor), bytesToNext);
    if (status != status::success) return status;
    run.scanCursor = end;
    if (end == run.blockEnd) status = nextBlock(run);
  }
  if (bytesToNext != 0 && status >= status::inputExhausted) reportIrregularRun(run);
  return status;
}

// The end-of-record mark in [from, blockEnd), or null. The second byte of a mark may lie behind the block.
const std::uint8_t* findMark(const RunContext& run, const std::uint8_t* from) {
  while (from < run.blockEnd) {
    const auto* const mark = static_cast<const std::uint8_t*>(
        std::memchr(from, run.eorChar1, static_cast<std::size_t>(run.blockEnd - from)));
    if (mark == nullptr || run.eorChar2 == 0) return mark;
    if (mark + 1 < run.readAheadEnd && mark[1] == run.eorChar2) return mark;
    from = mark + 1;
  }
  return nullptr;
}

void reportLongRecord(RunContext& run, std::uint32_t columns) {
  if (run.debugMode && !run.recordSizeInvalid) {
    putFormatted(run, "\nCreateSubList(1):\n1st Long Rec Length:%d at LFA:0x%.8lX Max Allowed RecordLength:%d!\n",
                 static_cast<int>(columns), static_cast<unsigned long>(static_cast<std::uint32_t>(run.currentLfa)),
                 run.foundRecordLength);
  }
  run.recordSizeInvalid = true;
}

// Gives up on a record that is longer than any may be, before its end was seen.
StatusCode refuseRecord(RunContext& run, const std::uint8_t* begin) {
  const auto seen = static_cast<std::uint32_t>(run.blockEnd - begin);
  if (run.spaceCompressionAllowed && run.foundRecordLength != 0) reportLongRecord(run, seen);
  return status::recordTooLong;
}

// Loads more of the record that begins at `begin` and has no end in the block. inputExhausted when no more comes.
StatusCode extendRecord(RunContext& run, const std::uint8_t*& begin) {
  if (run.blockEnd - begin > static_cast<std::ptrdiff_t>(inputCarrySize)) return refuseRecord(run, begin);
  const std::int32_t size = extendInputBlock(run, begin);
  if (size == 0) return status::inputExhausted;
  return size < 0 ? size : status::success;
}

StatusCode findTextRecord(RunContext& run, FoundRecord& found) {
  const std::uint8_t* begin = run.scanCursor;
  const std::uint8_t* mark = findMark(run, begin);
  while (mark == nullptr) {
    const auto searched = run.blockEnd - begin;
    const StatusCode status = extendRecord(run, begin);
    found.inputEnded = status == status::inputExhausted;
    if (found.inputEnded) break;
    if (status != status::success) return status;
    mark = findMark(run, begin + searched);
  }
  found.bytes = {begin, found.inputEnded ? run.blockEnd : mark};
  return status::success;
}

bool endsWithMark(const RunContext& run, const RecordBytes& record) {
  if (run.binaryEorLength == 0) return true;  // f and g together, and a file without any mark
  if (run.binaryEorLength == 1) return record.end[-1] == run.eorChar1;
  return record.end[-2] == run.eorChar1 && record.end[-1] == run.eorChar2;
}

bool isAllNul(const RecordBytes& record) {
  return *record.begin == 0 && std::all_of(record.begin, record.end, [](std::uint8_t b) { return b == 0; });
}

// Steps over the record and its mark; loads the next block when the one in memory is used up.
StatusCode stepOver(RunContext& run, const FoundRecord& found) {
  run.scanCursor = found.bytes.end;
  if (found.inputEnded) return status::inputExhausted;
  run.scanCursor += run.eorLength;
  if (run.scanCursor < run.blockEnd) return status::success;
  const auto beyond = run.scanCursor - run.blockEnd;  // the mark's second byte lies in the next block
  const StatusCode status = nextBlock(run);
  if (status == status::success) run.scanCursor += beyond;
  return status;
}

StatusCode findBinaryRecord(RunContext& run, FoundRecord& found) {
  const std::uint8_t* begin = run.scanCursor;
  while (run.blockEnd - begin < run.foundRecordLength && !found.inputEnded) {
    const StatusCode status = extendRecord(run, begin);
    found.inputEnded = status == status::inputExhausted;
    if (status != status::success && !found.inputEnded) return status;
  }
  found.bytes = {begin, found.inputEnded ? run.blockEnd : begin + run.foundRecordLength};
  if (found.inputEnded) return status::success;
  if (isAllNul(found.bytes)) {
    StatusCode status = addDeletedRecord(run);
    if (status == status::success) status = stepOver(run, found);
    run.currentLfa += static_cast<std::uint64_t>(run.foundRecordLength);
    return status == status::success ? skipped : status;
  }
  return run.binaryWithEor && !endsWithMark(run, found.bytes) ? status::invalidEndOfRecord : status::success;
}

// Finds the next record behind what lies between records. inputExhausted at the end of the data.
StatusCode findRecord(RunContext& run, FoundRecord& found) {
  if (run.scanCursor == run.blockEnd) {
    const StatusCode status = nextBlock(run);
    if (status != status::success) return status;
  }
  if (run.binaryRecords) return findBinaryRecord(run, found);
  if (*run.scanCursor == 0) {
    const StatusCode status = skipNulRun(run);
    if (status != status::success) return status;
  }
  if (*run.scanCursor == ctrlZ) return status::inputExhausted;
  return findTextRecord(run, found);
}

// True when a TAB of the record stands for blanks. A block without TABs is searched once, not once per record.
bool hasTabToExpand(RunContext& run, const RecordBytes& record) {
  if (run.binaryRecords || !run.tabExpansion) return false;
  if (run.nextTab == nullptr || run.nextTab < record.begin) {
    const void* const tab = std::memchr(record.begin, '\t', static_cast<std::size_t>(run.blockEnd - record.begin));
    run.nextTab = tab != nullptr ? static_cast<const std::uint8_t*>(tab) : run.blockEnd;
  }
  return run.nextTab < record.end;
}

// Fills the current slot from the record; the next slot becomes the current one when the record is selected.
StatusCode addRecord(RunContext& run, const KeyPlan& plan, const RecordBytes& record) {
  const bool hasTabs = hasTabToExpand(run, record);
  std::uint8_t* const key = run.currentEntry + sortEntryHeadSize;
  std::uint32_t columns = record.size();
  if (hasTabs) {
    run.spaceCompressionFound = true;
    columns = expandedColumns(record);
  }
  if (plan.hasExpression && (hasTabs || record.size() < plan.columnsNeeded)) {
    walkColumns(run, record, hasTabs, key);
  } else {
    copyKeyRanges(run, plan, hasTabs ? expandTabs(plan, record) : record, key);
  }
  ++run.scannedRecordCount;
  ++run.indexedRecordCount;
  if (run.foundRecordLength == 0) {
    run.foundRecordLength = std::max(smallestMaxRecord, static_cast<std::int32_t>(columns)) + run.eorLength;
  }
  if (run.spaceCompressionAllowed && columns > static_cast<std::uint32_t>(run.foundRecordLength)) {
    reportLongRecord(run, columns);
  }
  const std::uint32_t length = record.size() + run.eorLength;
  if (length > maxRecordSize - run.eorLength) return status::recordTooLong;
  setEntryHead(run.currentEntry, run.currentLfa, static_cast<std::uint16_t>(length));
  if (run.matchCount == run.primaryOptionCount) {
    run.currentEntry += run.sortEntrySize;
    --run.entriesLeftInTrain;
  }
  return status::success;
}

}  // namespace

StatusCode CreateSubList(RunContext& run) {
  run.currentEntry = run.sortAreaBase;
  run.entriesLeftInTrain = run.sortEntryCapacity - 1;  // one slot stays for the end marker
  const KeyPlan plan = makeKeyPlan(run);
  for (;;) {
    FoundRecord found;
    StatusCode status = findRecord(run, found);
    if (status == skipped) continue;
    if (status == status::inputExhausted) return endTrain(run, status);
    if (status != status::success) return status;
    status = addRecord(run, plan, found.bytes);
    if (status != status::success) return status;
    status = stepOver(run, found);
    if (status == status::inputExhausted) return endTrain(run, status);
    if (status != status::success) return status;
    run.currentLfa += found.bytes.size() + run.eorLength;
    if (run.entriesLeftInTrain == 0) return endTrain(run, status::trainFull);
  }
}

}  // namespace tarnvale
