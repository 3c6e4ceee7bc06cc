// One loop over records: what lies between them is skipped, the record is found in one piece, its key extracted into
// the next slot of the area, and the slot is kept when the record is selected.
#include "data/record_scan.h"

#include <algorithm>
#include <cstring>

#include "data/plain_scan.h"

namespace tarnvale {

namespace {

// What a step of the scan comes to. All but the first two end the train.
enum class Step : std::uint8_t { goOn, skip, exhausted, readFailed, invalidEndOfRecord, recordTooLong, sinkRefused };

// What a scan hands to its steps.
struct ScanContext {
  Scanner& scanner;
  Messages& messages;
  DeletedRecordSink deleted;
};

// A record found, and whether the data ended in it.
struct FoundRecord {
  RecordBytes bytes{};
  bool inputEnded = false;
};

Step stepOf(BlockResult result) {
  switch (result) {
    case BlockResult::loaded:
      return Step::goOn;
    case BlockResult::exhausted:
      return Step::exhausted;
    case BlockResult::readFailed:
      break;
  }
  return Step::readFailed;
}

Step nextBlock(const ScanContext& scan) {
  scan.scanner.nextTab = nullptr;
  return stepOf(fillInputBuffer(scan.scanner.blocks, scan.messages));
}

Step addDeletedRecord(const ScanContext& scan) {
  ++scan.scanner.findings.deletedCount;
  return scan.deleted(scan.scanner.currentLfa) ? Step::goOn : Step::sinkRefused;
}

// Takes `length` NUL bytes at the cursor. In a fixed-length file a deleted record begins wherever `bytesToNext`, the
// bytes left of the one before, has come down to 0.
Step takeNulBytes(const ScanContext& scan, std::size_t length, std::uint32_t& bytesToNext) {
  Scanner& scanner = scan.scanner;
  if (scanner.settings->variableLength) {
    scanner.currentLfa += length;
    return Step::goOn;
  }
  while (length > 0) {
    if (bytesToNext == 0) {
      const Step step = addDeletedRecord(scan);
      if (step != Step::goOn) return step;
      bytesToNext = scanner.recordLimit;
    }
    const auto taken = static_cast<std::uint32_t>(std::min<std::size_t>(length, bytesToNext));
    bytesToNext -= taken;
    scanner.currentLfa += taken;
    length -= taken;
  }
  return Step::goOn;
}

void reportIrregularRun(const ScanContext& scan) {
  FormatFindings& format = scan.scanner.findings.format;
  if (!format.variableLength) {
    if (scan.messages.debugMode) {
      putMessage(scan.messages, "\nCreateSubList(1): Variable record detected after deleted record!\n");
    }
    format.invalidPosition = true;
  }
  format.variableLength = true;
}

// Skips the run of NUL bytes at the cursor of a text file.
Step skipNulRun(const ScanContext& scan) {
  BlockReader& blocks = scan.scanner.blocks;
  std::uint32_t bytesToNext = 0;
  Step step = Step::goOn;
  while (step == Step::goOn && *blocks.cursor == 0) {
    const std::uint8_t* const end = std::find_if(blocks.cursor, blocks.blockEnd, [](std::uint8_t b) { return b != 0; });
    step = takeNulBytes(scan, static_cast<std::size_t>(end - blocks.cursor), bytesToNext);
    if (step != Step::goOn) return step;
    blocks.cursor = end;
    if (end == blocks.blockEnd) step = nextBlock(scan);
  }
  if (bytesToNext != 0 && step != Step::readFailed) reportIrregularRun(scan);
  return step;
}

// The end-of-record mark in [from, blockEnd), or null. The second byte of a mark may lie behind the block.
const std::uint8_t* findMark(const Scanner& scanner, const std::uint8_t* from) {
  const BlockReader& blocks = scanner.blocks;
  while (from < blocks.blockEnd) {
    const auto* const mark = static_cast<const std::uint8_t*>(
        std::memchr(from, scanner.mark.first, static_cast<std::size_t>(blocks.blockEnd - from)));
    if (mark == nullptr || scanner.mark.second == 0) return mark;
    if (mark + 1 < blocks.readAheadEnd && mark[1] == scanner.mark.second) return mark;
    from = mark + 1;
  }
  return nullptr;
}

void reportLongRecord(const ScanContext& scan, std::uint32_t columns) {
  Scanner& scanner = scan.scanner;
  if (scan.messages.debugMode && !scanner.findings.format.overlongRecord) {
    putFormatted(scan.messages,
                 "\nCreateSubList(1):\n1st Long Rec Length:%u at LFA:0x%.8lX Max Allowed RecordLength:%u!\n", columns,
                 static_cast<unsigned long>(static_cast<std::uint32_t>(scanner.currentLfa)), scanner.recordLimit);
  }
  scanner.findings.format.overlongRecord = true;
}

// Columns of the record that begins at `begin`, wherever it ends: piece by piece, since it fits into no buffer. The
// scan does not go on behind it.
std::uint32_t countColumns(const ScanContext& scan, const std::uint8_t* begin) {
  Scanner& scanner = scan.scanner;
  std::uint32_t columns = 0;
  for (Step step = Step::goOn; step == Step::goOn; step = nextBlock(scan), begin = scanner.blocks.cursor) {
    const std::uint8_t* const mark = findMark(scanner, begin);
    const RecordBytes piece{begin, mark != nullptr ? mark : scanner.blocks.blockEnd};
    columns = scanner.expandsTabs ? expandedColumns(piece, columns) : columns + piece.size();
    if (mark != nullptr) break;
  }
  return columns;
}

// Gives up on a record that is longer than any may be, before its end was seen.
Step refuseRecord(const ScanContext& scan, const std::uint8_t* begin) {
  const bool reported = scan.scanner.settings->spaceCompression && scan.scanner.recordLimit != 0;
  if (reported) reportLongRecord(scan, scan.messages.debugMode ? countColumns(scan, begin) : 0);
  return Step::recordTooLong;
}

// Loads more of the record that begins at `begin` and has no end in the block.
Step extendRecord(const ScanContext& scan, const std::uint8_t*& begin) {
  BlockReader& blocks = scan.scanner.blocks;
  if (blocks.blockEnd - begin > static_cast<std::ptrdiff_t>(inputCarrySize)) return refuseRecord(scan, begin);
  scan.scanner.nextTab = nullptr;
  return stepOf(extendInputBlock(blocks, begin, scan.messages));
}

Step findTextRecord(const ScanContext& scan, FoundRecord& found) {
  Scanner& scanner = scan.scanner;
  const std::uint8_t* begin = scanner.blocks.cursor;
  const std::uint8_t* mark = findMark(scanner, begin);
  while (mark == nullptr) {
    const auto searched = scanner.blocks.blockEnd - begin;
    const Step step = extendRecord(scan, begin);
    found.inputEnded = step == Step::exhausted;
    if (found.inputEnded) break;
    if (step != Step::goOn) return step;
    mark = findMark(scanner, begin + searched);
  }
  found.bytes = {begin, found.inputEnded ? scanner.blocks.blockEnd : mark};
  return Step::goOn;
}

// Steps over the record and its mark; loads the next block when the one in memory is used up.
Step stepOver(const ScanContext& scan, const FoundRecord& found) {
  BlockReader& blocks = scan.scanner.blocks;
  blocks.cursor = found.bytes.end;
  if (found.inputEnded) return Step::exhausted;
  blocks.cursor += scan.scanner.markBehind;
  if (blocks.cursor < blocks.blockEnd) return Step::goOn;
  const auto beyond = blocks.cursor - blocks.blockEnd;  // the mark's second byte lies in the next block
  const Step step = nextBlock(scan);
  if (step == Step::goOn) blocks.cursor += beyond;
  return step;
}

Step skipDeletedRecord(const ScanContext& scan, const FoundRecord& found) {
  Step step = addDeletedRecord(scan);
  if (step == Step::goOn) step = stepOver(scan, found);
  scan.scanner.currentLfa += scan.scanner.recordLimit;
  return step == Step::goOn ? Step::skip : step;
}

Step findBinaryRecord(const ScanContext& scan, FoundRecord& found) {
  Scanner& scanner = scan.scanner;
  const auto size = static_cast<std::ptrdiff_t>(scanner.recordLimit);
  const std::uint8_t* begin = scanner.blocks.cursor;
  while (scanner.blocks.blockEnd - begin < size && !found.inputEnded) {
    const Step step = extendRecord(scan, begin);
    found.inputEnded = step == Step::exhausted;
    if (step != Step::goOn && !found.inputEnded) return step;
  }
  found.bytes = {begin, found.inputEnded ? scanner.blocks.blockEnd : begin + size};
  if (found.inputEnded) return Step::goOn;
  if (isAllNul(found.bytes)) return skipDeletedRecord(scan, found);
  const bool ends = !scanner.settings->binaryWithEor || endsWithMark(scanner.mark, found.bytes);
  return ends ? Step::goOn : Step::invalidEndOfRecord;
}

// Finds the next record behind what lies between records.
Step findRecord(const ScanContext& scan, FoundRecord& found) {
  BlockReader& blocks = scan.scanner.blocks;
  if (blocks.cursor == blocks.blockEnd) {
    const Step step = nextBlock(scan);
    if (step != Step::goOn) return step;
  }
  if (blocks.binary) return findBinaryRecord(scan, found);
  if (*blocks.cursor == 0) {
    const Step step = skipNulRun(scan);
    if (step != Step::goOn) return step;
  }
  if (*blocks.cursor == ctrlZ) return Step::exhausted;
  return findTextRecord(scan, found);
}

// True when a TAB of the record stands for blanks.
bool hasTabToExpand(const Scanner& scanner, const RecordBytes& record) {
  return scanner.expandsTabs && std::memchr(record.begin, '\t', record.size()) != nullptr;
}

// Extracts the key. True when the record is selected.
bool extractKey(const Scanner& scanner, const RecordBytes& record, bool hasTabs, std::uint8_t* key) {
  const Selection& selection = scanner.settings->selection;
  const RecordComparison comparison{selection, scanner.blocks.readAheadEnd, scanner.expandsTabs};
  const KeyPlan& plan = scanner.plan;
  if (plan.walkOnly || (plan.hasExpression && (hasTabs || record.size() < plan.columnsNeeded))) {
    return walkColumns(scanner.settings->keys, comparison, record, key) == selection.optionCount;
  }
  const RecordBytes plain = hasTabs ? expandTabs(plan, record, scanner.expanded) : record;
  if (!meetsConditions(plan, comparison, plain)) return false;
  copyKeyRanges(plan, plain, key);
  return true;
}

// Fills the entry from the record; `entry` then is the next one when the record is selected.
Step addRecord(const ScanContext& scan, const RecordBytes& record, const EntryArea& area, std::uint8_t*& entry) {
  Scanner& scanner = scan.scanner;
  const bool hasTabs = hasTabToExpand(scanner, record);
  std::uint32_t columns = record.size();
  if (hasTabs) {
    scanner.findings.format.spaceCompression = true;
    columns = expandedColumns(record);
  }
  const bool selected = extractKey(scanner, record, hasTabs, entry + sortEntryHeadSize);
  ++scanner.findings.recordCount;
  if (scanner.recordLimit == 0) scanner.recordLimit = std::max(smallestRecordLimit, columns) + scanner.markBehind;
  if (scanner.settings->spaceCompression && columns > scanner.recordLimit) reportLongRecord(scan, columns);
  const std::uint32_t length = record.size() + scanner.markBehind;
  if (length > maxRecordSize - scanner.markBehind) return Step::recordTooLong;
  setEntryHead(entry, scanner.currentLfa, static_cast<std::uint16_t>(length));
  if (selected) entry += area.entrySize;
  return Step::goOn;
}

ScanResult resultOf(Step step) {
  switch (step) {
    case Step::exhausted:
      return ScanResult::inputExhausted;
    case Step::invalidEndOfRecord:
      return ScanResult::invalidEndOfRecord;
    case Step::recordTooLong:
      return ScanResult::recordTooLong;
    case Step::sinkRefused:
      return ScanResult::sinkRefused;
    case Step::goOn:
    case Step::skip:
    case Step::readFailed:
      break;
  }
  return ScanResult::readFailed;
}

}  // namespace

ScannedTrain createSubList(Scanner& scanner, const EntryArea& area, Messages& messages, DeletedRecordSink deleted) {
  const ScanContext scan{scanner, messages, deleted};
  std::uint8_t* entry = area.first;
  const std::uint8_t* const areaEnd = entry + static_cast<std::size_t>(area.room) * area.entrySize;
  Step step = Step::goOn;
  const bool plain = mayScanPlainRecords(scanner);
  while (entry != areaEnd) {
    if (plain && scanner.blocks.cursor < scanner.blocks.blockEnd) {
      entry = scanPlainRecords(scanner, area, entry, areaEnd);
      if (entry == areaEnd) break;
    }
    FoundRecord found;
    step = findRecord(scan, found);
    if (step == Step::skip) continue;
    if (step == Step::goOn) step = addRecord(scan, found.bytes, area, entry);
    if (step == Step::goOn) step = stepOver(scan, found);
    if (step != Step::goOn) break;
    scanner.currentLfa += found.bytes.size() + scanner.markBehind;
  }
  writeEndMarker(entry, area.entrySize);
  const auto entries = static_cast<std::uint32_t>(static_cast<std::size_t>(entry - area.first) / area.entrySize);
  const bool full = entry == areaEnd && (step == Step::goOn || step == Step::skip);
  return {full ? ScanResult::trainFull : resultOf(step), entries};
}

}  // namespace tarnvale
