// *Build*: a data file becomes an index file.
#pragma once

#include "cmdline/settings.h"
#include "common/failure.h"
#include "common/messages.h"
#include "data/record_scan.h"
#include "isi/deleted_list.h"
#include "isi/tree_builder.h"
#include "sort/sorter.h"

namespace tarnvale {

/// Builds the index of the scanner's data file into the open, empty index file, which stays open. The scan must stand
/// at the start of the file, and the sorter be ready for the key. A failure has its detail printed; its code and its
/// file say the rest.
[[nodiscard]] Failure buildIndex(const Settings& settings, Scanner& scanner, Sorter& sorter, IndexBuilder& builder,
                                 TrackedFiles& files, Messages& messages);

/// Scans the whole data file into sorted trains. What the scan fails with becomes the failure. Its messages are
/// printed.
[[nodiscard]] Failure sortPhase(Scanner& scanner, Sorter& sorter, DeletedRecordSink deleted, const TrackedFiles& files,
                                Messages& messages);

/// What a failed step of the sort means to a phase; a source or sink that failed has a meaning of its own.
[[nodiscard]] Failure failureOf(SortResult result, const Sorter& sorter);

/// Prints "N records, N deleted entries".
void putRecordCount(Messages& messages, std::uint64_t records, std::uint32_t deleted);

/// False when the data file turned out not to be what the options declare; its index must not be kept.
[[nodiscard]] bool isInDeclaredFormat(const Settings& settings, const FormatFindings& findings,
                                      const DuplicateList& duplicates);

}  // namespace tarnvale
