#include "check/failure_texts.h"

#include <algorithm>
#include <cinttypes>
#include <iterator>
#include <string>

namespace tarnvale {

namespace {

// Why a build would refuse the data file.
struct RefusalText {
  StatusCode code;
  const char* text;
};
constexpr RefusalText refusals[] = {
    {status::recordSizeMismatch, "it ends inside a record"},
    {status::dataFileTooLarge, "it is too large for byte offsets"},
    {status::recordLengthNotFound, "it tells no record length"},
    {status::recordTooLong, "a record is too long"},
};
struct ScanText {
  ScanResult result;
  const char* text;
};
constexpr ScanText scanTexts[] = {
    {ScanResult::invalidEndOfRecord, "the record does not end with the mark"},
    {ScanResult::recordTooLong, "the record is too long"},
};
struct SortText {
  SortResult result;
  const char* text;
  bool fileWritten;  // of the two work files; else the one being read
};
constexpr SortText sortTexts[] = {
    {SortResult::workFileNotRead, "The work file cannot be read: ", false},
    {SortResult::workFileNotWritten, "The work file cannot be written: ", true},
};

}  // namespace

void reportOpenFailure(StatusCode status, const Messages& messages, Report& report) {
  const auto* const row = std::ranges::find(refusals, status, &RefusalText::code);
  if (row != std::end(refusals)) {
    report.add("%s: %s", notInFormat, row->text);
  } else {
    report.fail(messages.buffer);
  }
}

void reportScanFailure(ScanResult result, std::uint64_t lfa, const TrackedFiles& files, Report& report) {
  const auto* const row = std::ranges::find(scanTexts, result, &ScanText::result);
  if (row != std::end(scanTexts)) {
    report.add("%s: LFA %" PRIu64 ": %s", notInFormat, lfa, row->text);
  } else {
    report.fail(std::string("The data file cannot be read: ").append(files[FileRole::input].name));
  }
}

void reportSortFailure(SortResult result, const Sorter& sorter, const TrackedFiles& files, Report& report) {
  if (result == SortResult::tooManyTrains) report.fail("There are too many records to be sorted.");
  const auto* const row = std::ranges::find(sortTexts, result, &SortText::result);
  if (row == std::end(sortTexts)) return;
  const FileRole other = sorter.written == FileRole::workFile1 ? FileRole::workFile2 : FileRole::workFile1;
  report.fail(std::string(row->text).append(files[row->fileWritten ? sorter.written : other].name));
}

}  // namespace tarnvale
