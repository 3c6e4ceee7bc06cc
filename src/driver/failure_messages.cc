#include "driver/failure_messages.h"

#include <algorithm>
#include <cinttypes>
#include <span>

#include "common/output.h"

namespace tarnvale {

namespace {

struct ParseText {
  StatusCode code;
  const char* text;
};
constexpr ParseText parseTexts[] = {
    {status::commandLineIncomplete, "The command line is incomplete.  Use -? option."},
    {status::fileNameTooLong, "One of the filenames is too long."},
    {status::invalidRecordLength, "Invalid record length specification."},
    {status::workFileNotCreated, "One of the temporary files could not be opened."},
    {status::keyColumnTooLarge, "A key specification is too large."},
    {status::invalidKeySyntax, "Invalid key specification syntax."},
    {status::overlappingKeys, "Overlapping keys are not allowed."},
    {status::tooManyKeyBytes, "Too many key bytes have been selected in each record."},
    {status::tooManyKeySpecs, "Cannot use more than 32 key specifications!"},
    {status::invalidPrimaryOption, "Invalid primary key information."},
    {status::conflictingOptions, "Conflicting utility options specified. (f, s, & v)."},
    {status::outputIsInput, "The Output file name can not be same as Input name."},
    {status::recordSizeMismatch, "Record size not valid for file length found."},
    {status::conflictingKeyOptions, "Conflicting key options."},
    {status::invalidFillPercent, "Invalid Max sector fill percent specification"},
    {status::recordLengthRequired, "Options '-f or -g' require record length specification."},
    {status::tooManyPrimaryOptions, "Cannot use more than 10 'P' option parameters!"},
    {status::upperCaseTooLate, "Uppercase option must be given prior to key specifications."},
    {status::conflictingRecordLengths, "Conflicting record length specifications."},
    {status::dataFileTooLarge, "File too large to use space compression or variable length records."},
    {status::invalidOsType, "Invalid 'O' option value!"},
    {status::recordTooLong, "A record longer than 65533 bytes was found."},
    {status::invalidCompactOption, "Invalid compact option!"},
};

// The file whose write failed: a work file, or else the index.
std::string_view writeName(const RunContext& run) {
  if (run.mergeOutputFd == run.tempFd1) return run.tempName1;
  if (run.mergeOutputFd == run.tempFd2) return run.tempName2;
  return run.outputName;
}

void putWorkFileReadFailure(RunContext& run) {
  putComposed(run, {"WARNING!  ", run.modeName, " failed reading temporary work file.\n"});
}

void putInputReadFailure(RunContext& run) {
  putComposed(run, {"WARNING!  ", run.modeName, " failed reading input file ", fileName(run.inputName), ".\n"});
}

void putInvalidEndOfRecord(RunContext& run) {
  putInputReadFailure(run);
  putFormatted(run, "Invalid EOR found for record starting at byte offset: %" PRIu64 ".\n", run.currentLfa);
}

void putWriteFailure(RunContext& run) {
  putComposed(run, {"WARNING!  ", run.modeName, " failed writing to file ", fileName(writeName(run)), ".\n"});
}

void putOutputFailure(RunContext& run) {
  putComposed(run, {"WARNING!  ", run.modeName, " failed writing output data!\n"});
}

void putMessageBuffer(RunContext& run) { PutMessage(run, run.messageBuffer); }
void putRecordTooLong(RunContext& run) { PutMessage(run, "A record longer than 65533 bytes was found."); }
void putNothing(RunContext& /*run*/) {}

struct FailureRow {
  StatusCode code;
  void (*put)(RunContext&);
};
constexpr FailureRow buildRows[] = {
    {status::workFileReadFailed, putWorkFileReadFailure},
    {status::inputReadFailed, putInputReadFailure},
    {status::invalidEndOfRecord, putInvalidEndOfRecord},
    {status::outOfMemory, putNothing},
    {status::treeTooHigh, putMessageBuffer},
    {status::recordTooLong, putRecordTooLong},
};

struct CompactText {
  StatusCode code;
  const char* before;  // the name of the index follows where there is an `after`
  const char* after;
};
constexpr CompactText compactTexts[] = {
    {status::notAnIndex, "Not a valid .isi file structure for file: ", ".\n"},
    {status::indexVersionUnknown, "Invalid ISI version to compact file named:  ", ".\n"},
    {status::storedCommandMalformed, "Invalid input ISI command line format found in file named:  ", ".\n"},
    {status::ownCommandMalformed, "Invalid input compact option command line (Internal)!\n", nullptr},
    {status::newCommandTooLong, "New compact command line too long to store in ISI header!\n", nullptr},
    {status::backupFailed, "Unable to execute in place ISI compact operation!\n", nullptr},
    {status::sharedCompactFailed, "Unable to execute ISI compact operation with locking!\n", nullptr},
    {status::exclusiveCompactFailed, "Unable to execute ISI compact operation!\n", nullptr},
};

constexpr FailureRow compactRows[] = {
    {status::workFileReadFailed, putWorkFileReadFailure},
    {status::pathTooDeep, putInputReadFailure},
    {status::indexNotWritten, putOutputFailure},
};

// The row of the code's message; any other code is a failed write.
void putRow(RunContext& run, std::span<const FailureRow> rows, StatusCode status) {
  const auto row = std::ranges::find(rows, status, &FailureRow::code);
  (row != rows.end() ? row->put : putWriteFailure)(run);
}

}  // namespace

void putParseFailure(RunContext& run, StatusCode status) {
  const auto* const row = std::ranges::find(parseTexts, status, &ParseText::code);
  PutMessage(run, row != std::end(parseTexts) ? row->text : run.messageBuffer.view());
  PutMessage(run, "\n");
}

void putBuildFailure(RunContext& run, StatusCode status) { putRow(run, buildRows, status); }

void putCompactFailure(RunContext& run, StatusCode status) {
  const auto* const row = std::ranges::find(compactTexts, status, &CompactText::code);
  if (row == std::end(compactTexts)) {
    putRow(run, compactRows, status);
  } else if (row->after == nullptr) {
    PutMessage(run, row->before);
  } else {
    putComposed(run, {row->before, fileName(run.inputName), row->after});
  }
}

}  // namespace tarnvale
