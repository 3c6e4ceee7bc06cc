// The header is written last: until then the file begins with zero bytes, and every reader rejects it.
#include "isi/index_build.h"

#include <array>
#include <cinttypes>

#include "common/posix_file.h"
#include "isi/index_header.h"
#include "sort/merge.h"

namespace tarnvale {

namespace {

constexpr std::uint64_t maxRecords = std::uint64_t{1} << 32;
constexpr std::uint32_t largestCountableFillLimit = 11;  // beyond, a tree holds more records than a sort accepts

struct ScanFailure {
  ScanResult result;
  StatusCode code;
};
constexpr ScanFailure scanFailures[] = {
    {ScanResult::readFailed, status::inputReadFailed},
    {ScanResult::invalidEndOfRecord, status::invalidEndOfRecord},
    {ScanResult::recordTooLong, status::recordTooLong},
    {ScanResult::sinkRefused, status::deletedNodeNotWritten},
};

Failure failureOf(ScanResult result, const Scanner& scanner) {
  for (const ScanFailure& row : scanFailures) {
    if (row.result != result) continue;
    const FileRole file = result == ScanResult::sinkRefused ? FileRole::index : FileRole::input;
    return {row.code, file, scanner.currentLfa};
  }
  return {};
}

Failure failureOf(TreeResult result, const Sorter& sorter) {
  if (result == TreeResult::tooHigh) return {status::treeTooHigh, sorter.written};
  return {result == TreeResult::done ? status::success : status::indexNotWritten, FileRole::index};
}

void warnWhenNearlyFull(std::uint32_t fillLimit, std::uint64_t records, Messages& messages) {
  if (fillLimit > largestCountableFillLimit) return;
  const std::uint64_t allowed = treeCapacity(fillLimit);
  if (records <= allowed * 95 / 100) return;
  putFormatted(messages,
               "Record count of (%" PRIu64 ") is more than 95 percent of %" PRIu64
               " records allowed for this ISI file!\n",
               records, allowed);
}

// Puts the index in front of its first node: bytes that no reader takes for a header.
bool writeEmptyHeaderArea(const IndexOutput& output, Messages& messages) {
  constexpr std::array<std::uint8_t, headerAreaSize> zeroBytes{};
  if (writeAll(output.fd(), zeroBytes.data(), zeroBytes.size())) return true;
  reportIndexWriteFailure(messages);
  return false;
}

Failure mergeIntoTree(const Settings& settings, const Scanner& scanner, Sorter& sorter, IndexBuilder& builder,
                      TrackedFiles& files, Messages& messages) {
  builder.tree.recordLength = scanner.recordLimit;
  TrackedFile& errorFile = files[FileRole::errorFile];
  TreeResult inserted = TreeResult::done;
  const SortResult result =
      doFancyMerge(sorter, files, messages, settings.recordCountEnabled, [&](const std::uint8_t* entry) {
        inserted = writeTagRecord(builder, entry, settings, errorFile, messages);
        return inserted == TreeResult::done;
      });
  return result == SortResult::sinkFailed ? failureOf(inserted, sorter) : failureOf(result, sorter);
}

Failure finishIndex(const Settings& settings, const Scanner& scanner, IndexBuilder& builder, DeletedList& deleted,
                    const Sorter& sorter, std::string_view dataName, Messages& messages) {
  if (!finishLevels(builder, messages) || !finishDeletedList(deleted, builder.output, messages)) {
    return {status::indexNotWritten, FileRole::index};
  }
  if (scanner.recordLimit == 0) {
    putMessage(messages, "\aNull file must have record length on command line\n");
    return {status::recordLengthUnknown, sorter.written};
  }
  const IsiHeader header = makeHeader(settings, scanner, dataName, deleted.headPointer);
  if (writeAllAt(builder.output.fd(), &header, sizeof header, 0)) return {};
  reportIndexWriteFailure(messages);
  return {status::indexNotWritten, FileRole::index};
}

const char* irregularLengthText(const Settings& settings, const FormatFindings& findings) {
  if (findings.spaceCompression) return "Data file has variable length records and space compression.\n";
  if (findings.invalidPosition && !settings.variableLength) {
    return "Data file record encountered with position invalid for fixed length records.\n";
  }
  return "Data file has variable length records.\n";
}

// What was learnt of the data file.
void reportFindings(const Settings& settings, const IndexBuilder& builder, Messages& messages) {
  const FormatFindings& findings = builder.tree.findings;
  if (builder.duplicates.duplicates != 0) {
    putFormatted(messages, "Data file has %u duplicate key entries.\n", builder.duplicates.duplicates);
  }
  if (findings.variableLength) {
    putMessage(messages, irregularLengthText(settings, findings));
    if (findings.overlongRecord) putMessage(messages, "Record longer than maximum record length was found.\n");
  } else if (findings.spaceCompression) {
    putMessage(messages, "Data file has space compression.\n");
  }
}

}  // namespace

Failure failureOf(SortResult result, const Sorter& sorter) {
  switch (result) {
    case SortResult::tooManyTrains:
      return {status::tooManyTrains, sorter.written};
    case SortResult::workFileNotRead:
      return {status::workFileReadFailed, sorter.written};
    case SortResult::workFileNotWritten:
      return {status::workFileNotWritten, sorter.written};
    case SortResult::done:
    case SortResult::sourceFailed:
    case SortResult::sinkFailed:
      break;
  }
  return {};
}

Failure sortPhase(Scanner& scanner, Sorter& sorter, DeletedRecordSink deleted, const TrackedFiles& files,
                  Messages& messages) {
  Failure failure;
  const std::uint64_t fileLength = fileSize(scanner.blocks.fd).value_or(0);
  const auto scanTrain = [&](const EntryArea& area) -> FilledTrain {
    const ScannedTrain train = createSubList(scanner, area, messages, deleted);
    failure = failureOf(train.result, scanner);
    if (failure.none() && scanner.findings.recordCount > maxRecords) {
      putMessage(messages, "\nToo many records to index\n");
      failure = {status::tooManyTrains, sorter.written};
    }
    if (!failure.none()) return {FilledTrain::State::failed, 0};
    const bool last = train.result == ScanResult::inputExhausted;
    return {last ? FilledTrain::State::last : FilledTrain::State::more, train.entries, scanner.currentLfa, fileLength};
  };
  const SortResult result = formTrains(sorter, files, messages, scanTrain);
  return result == SortResult::sourceFailed ? failure : failureOf(result, sorter);
}

void putRecordCount(Messages& messages, std::uint64_t records, std::uint32_t deleted) {
  putFormatted(messages, "%" PRIu64 " records, %u deleted entries\n", records, deleted);
}

bool isInDeclaredFormat(const Settings& settings, const FormatFindings& findings, const DuplicateList& duplicates) {
  return !(settings.noDuplicates && duplicates.duplicates != 0) &&
         !(findings.variableLength && !settings.variableLength) &&
         !(findings.spaceCompression && !settings.spaceCompression) && !findings.overlongRecord;
}

Failure buildIndex(const Settings& settings, Scanner& scanner, Sorter& sorter, IndexBuilder& builder,
                   TrackedFiles& files, Messages& messages) {
  const bool recordNumbers = settings.recordNumberAddressing;
  startOutput(builder.output, FileRole::index, files[FileRole::index].fd, sorter.output.base, recordNumbers);
  startTree(builder, settings.keys.keyLength, settings.maxFillPercent);
  DeletedList deleted;
  deleted.kept = !settings.writeAllAtEnd;
  deleted.positionUnit = recordNumbers ? scanner.recordLimit : 1;
  if (!writeEmptyHeaderArea(builder.output, messages)) return {status::indexNotWritten, FileRole::index};

  const auto takeDeleted = [&](std::uint64_t lfa) {
    return appendDeletedRecord(deleted, builder.output, lfa, messages);
  };
  Failure failure = sortPhase(scanner, sorter, takeDeleted, files, messages);
  builder.tree.findings = scanner.findings.format;
  if (failure.none()) failure = mergeIntoTree(settings, scanner, sorter, builder, files, messages);
  if (!failure.none()) return failure;
  putRecordCount(messages, sorter.delivered, scanner.findings.deletedCount);
  warnWhenNearlyFull(builder.tree.fillLimit, sorter.delivered, messages);

  const std::string_view dataName = files[FileRole::input].name;
  failure = finishIndex(settings, scanner, builder, deleted, sorter, dataName, messages);
  if (failure.none()) reportFindings(settings, builder, messages);
  return failure;
}

}  // namespace tarnvale
