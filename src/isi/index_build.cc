// The header is written last: until then the file begins with zero bytes, and every reader refuses it.
#include "isi/index_build.h"

#include <array>

#include "common/output.h"
#include "common/posix_file.h"
#include "isi/deleted_list.h"
#include "isi/index_header.h"
#include "isi/node_writer.h"
#include "isi/tree_builder.h"
#include "sort/sort_phase.h"

namespace tarnvale {

namespace {

StatusCode writeEmptyHeaderArea(RunContext& run) {
  constexpr std::array<std::uint8_t, headerAreaSize> zeroBytes{};
  if (writeAll(run.outputFd, zeroBytes.data(), zeroBytes.size())) return status::success;
  reportIndexWriteFailure(run);
  return status::indexNotWritten;
}

StatusCode writeHeader(RunContext& run) {
  const IsiHeader header = makeHeader(run);
  if (writeAllAt(run.outputFd, &header, sizeof header, 0)) return status::success;
  reportIndexWriteFailure(run);
  return status::indexNotWritten;
}

const char* irregularLengthText(const RunContext& run) {
  if (run.spaceCompressionFound) return "Data file has variable length records and space compression.\n";
  if (run.invalidRecordPosition && !run.variableLengthAllowed) {
    return "Data file record encountered with position invalid for fixed length records.\n";
  }
  return "Data file has variable length records.\n";
}

// What was learnt of the data file.
void reportFindings(RunContext& run) {
  if (run.duplicateKeyCount != 0) {
    putFormatted(run, "Data file has %u duplicate key entries.\n", run.duplicateKeyCount);
  }
  if (run.variableLengthFound) {
    PutMessage(run, irregularLengthText(run));
    if (run.recordSizeInvalid) PutMessage(run, "Record longer than maximum record length was found.\n");
  } else if (run.spaceCompressionFound) {
    PutMessage(run, "Data file has space compression.\n");
  }
}

}  // namespace

bool isInDeclaredFormat(const RunContext& run) {
  return !(run.noDuplicates && run.duplicateKeyCount != 0) &&
         !(run.variableLengthFound && !run.variableLengthAllowed) &&
         !(run.spaceCompressionFound && !run.spaceCompressionAllowed) && !run.recordSizeInvalid;
}

StatusCode buildIndex(RunContext& run) {
  StatusCode status = startTree(run, run.keyLength);
  if (status == status::success) status = writeEmptyHeaderArea(run);
  if (status == status::success) status = SortPhase(run);
  if (status == status::success) status = finishLevels(run);
  if (status == status::success) status = finishDeletedList(run);
  if (status == status::success) status = settleHeaderLength(run);
  if (status == status::success) status = writeHeader(run);
  if (status == status::success) reportFindings(run);
  return status;
}

}  // namespace tarnvale
