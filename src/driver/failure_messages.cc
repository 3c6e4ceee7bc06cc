#include "driver/failure_messages.h"

#include <algorithm>
#include <cinttypes>
#include <span>

#include "driver/message_stream.h"

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

// A failure and what its text names.
struct FailedRun {
  const Failure& failure;
  const TrackedFiles& files;
  Messages& messages;

  [[nodiscard]] std::string_view inputName() const { return files[FileRole::input].name; }
};

void putWorkFileReadFailure(const FailedRun& run) {
  putComposed(run.messages, {"WARNING!  ", modeName, " failed reading temporary work file.\n"});
}

void putInputReadFailure(const FailedRun& run) {
  putComposed(run.messages, {"WARNING!  ", modeName, " failed reading input file ", fileName(run.inputName()), ".\n"});
}

void putInvalidEndOfRecord(const FailedRun& run) {
  putInputReadFailure(run);
  putFormatted(run.messages, "Invalid EOR found for record starting at byte offset: %" PRIu64 ".\n",
               run.failure.offset);
}

void putWriteFailure(const FailedRun& run) {
  const std::string_view name = run.files[run.failure.file].name;
  putComposed(run.messages, {"WARNING!  ", modeName, " failed writing to file ", fileName(name), ".\n"});
}

void putOutputFailure(const FailedRun& run) {
  putComposed(run.messages, {"WARNING!  ", modeName, " failed writing output data!\n"});
}

void putMessageBuffer(const FailedRun& run) { putMessage(run.messages, run.messages.buffer); }
void putRecordTooLong(const FailedRun& run) { putMessage(run.messages, "A record longer than 65533 bytes was found."); }
void putNothing(const FailedRun& /*run*/) {}

struct FailureRow {
  StatusCode code;
  void (*put)(const FailedRun&);
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
    {status::workFileReadFailed, putWorkFileReadFailure},  // the line of a node that cannot be read, too
    {status::treeDamaged, putInputReadFailure},
    {status::indexNotWritten, putOutputFailure},
};

// The row of the code's message; any other code is a failed write.
void putRow(const FailedRun& run, std::span<const FailureRow> rows) {
  const auto row = std::ranges::find(rows, run.failure.code, &FailureRow::code);
  (row != rows.end() ? row->put : putWriteFailure)(run);
}

}  // namespace

void putParseFailure(StatusCode status, Messages& messages) {
  const auto* const row = std::ranges::find(parseTexts, status, &ParseText::code);
  putMessage(messages, row != std::end(parseTexts) ? row->text : messages.buffer.view());
  putMessage(messages, "\n");
}

void putBuildFailure(const Failure& failure, const TrackedFiles& files, Messages& messages) {
  putRow({failure, files, messages}, buildRows);
}

void putCompactFailure(const Failure& failure, const TrackedFiles& files, Messages& messages) {
  const FailedRun run{failure, files, messages};
  const auto* const row = std::ranges::find(compactTexts, failure.code, &CompactText::code);
  if (row == std::end(compactTexts)) {
    putRow(run, compactRows);
  } else if (row->after == nullptr) {
    putMessage(messages, row->before);
  } else {
    putComposed(messages, {row->before, fileName(run.inputName()), row->after});
  }
}

}  // namespace tarnvale
