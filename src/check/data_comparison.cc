#include "check/data_comparison.h"

#include "check/deleted_list_check.h"
#include "check/failure_texts.h"
#include "check/header_check.h"
#include "check/record_check.h"
#include "check/stored_command.h"
#include "common/posix_file.h"
#include "isi/index_header.h"
#include "sort/merge.h"

namespace tarnvale {

namespace {

FilledTrain::State stateOf(ScanResult result) {
  if (result == ScanResult::trainFull) return FilledTrain::State::more;
  return result == ScanResult::inputExhausted ? FilledTrain::State::last : FilledTrain::State::failed;
}

// Scans the data file into sorted trains, and looks every deleted record up in the list. False, reported, when that
// fails.
bool scanData(const DataComparison& check, DeletedListCheck& deletedList) {
  Scanner& scanner = check.scanner;
  const std::uint64_t size = fileSize(scanner.blocks.fd).value_or(0);
  const std::uint64_t unit = check.settings.recordNumberAddressing ? scanner.recordLimit : 1;
  const auto takeDeleted = [&](std::uint64_t lfa) {
    deletedList.take(lfa, lfa / unit);
    return true;
  };
  ScannedTrain train;
  const SortResult result = formTrains(check.sorter, check.files, check.messages, [&](const EntryArea& area) {
    check.progress.show("scan", scanner.bytesRead(), size);
    train = createSubList(scanner, area, check.messages, takeDeleted);
    return FilledTrain{stateOf(train.result), train.entries, 0, 0};
  });
  if (result == SortResult::done) {
    deletedList.finish();
  } else if (result == SortResult::sourceFailed) {
    reportScanFailure(train.result, scanner.currentLfa, check.files, check.report);
  } else {
    reportSortFailure(result, check.sorter, check.files, check.report);
  }
  return result == SortResult::done;
}

// Compares the sorted entries, as they are merged, with those of the index.
void compareRecords(const DataComparison& check, RecordCheck& records) {
  const std::uint64_t total = check.scanner.findings.recordCount;
  const SortResult result =
      doFancyMerge(check.sorter, check.files, check.messages, false, [&](const std::uint8_t* entry) {
        records.take(entry);
        check.progress.count("compare", records.recordCount(), total);
        return true;
      });
  if (result != SortResult::done) {
    reportSortFailure(result, check.sorter, check.files, check.report);
    return;
  }
  records.finish();
  if (!records.inDeclaredFormat()) check.report.add("%s", notInFormat);
}

}  // namespace

// The header comes first: it says how entries are to be read.
TreeSize compareWithData(const DataComparison& check) {
  const Settings& settings = check.settings;
  IsiHandle& index = check.index;
  DeletedListCheck deletedList(index, !settings.writeAllAtEnd, check.report);
  if (!scanData(check, deletedList)) return {};
  if (check.scanner.recordLimit == 0) {
    check.report.add("the data file is empty: no record length is known");
    return {};
  }
  const IsiHeader& found = index.area.header;
  checkHeader(found, makeHeader(settings, check.scanner, check.files[FileRole::input].name, found.deletedListHead),
              check.report);
  TreeWalk walk(index, deletedList.firstTreeNode(), builtFill(settings, index.entriesPerNode), check.report);
  if (settings.keys.keyLength == index.keyLength && settings.recordNumberAddressing == index.recordNumbers) {
    RecordCheck records(settings, check.scanner, index, walk, check.report);
    compareRecords(check, records);
  }
  return walk.size();
}

}  // namespace tarnvale
