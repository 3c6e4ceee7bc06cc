// Clean-up: closing the run's files, deleting the transient ones, giving back the buffers.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

enum class CleanUp { normal, failure };

/// Closes every file of the run that is open and deletes the work files (not in debug mode). After a failure the error
/// file and the log are closed too, and the index file and a data file that the run created are deleted; the error file
/// stays. May be called at any time, any number of times.
void CleanUpFiles(RunContext& run, CleanUp mode);

/// The part of the clean-up after a failure that the interrupt handler carries out: async-signal-safe, interrupts must
/// be held.
void closeAndRemoveFiles(RunContext& run, CleanUp mode);

/// Closes and deletes the index file of a failed run, if it is open.
void removeIndexFile(RunContext& run);

/// Deletes the index file, which is closed.
void deleteIndexByName(RunContext& run);

/// Closes the error file; deletes it when no duplicate key was met.
void finishErrorFile(RunContext& run);

/// Frees every buffer of the run that is allocated, except the sort area.
void FreeBuffers(RunContext& run);

}  // namespace tarnvale
