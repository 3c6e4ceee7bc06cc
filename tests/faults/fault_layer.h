// What the fault layer and the tests say to each other.
//
// TARNVALE_FAULTS holds a fault "KIND CODE SCOPE N", or two with a blank between them: it strikes the N-th call of the
// process.
//   KIND   error         the call fails with errno CODE (a close fails, but closes)
//          short, zero   a transfer moves half of its bytes; nothing
//          before, after signal CODE is raised there
//          unsynced      an fsync does nothing and is not logged
//   SCOPE  once; thrice: twice more when the call is repeated; same: all later calls that do the same; all: all later
//          calls
// TARNVALE_FAULT_LOG is a file that gets a CallRecord for each call, and its payload behind it.
#pragma once

#include <cstdint>

namespace tarnvale {

struct CallRecord {
  char name[16] = {};
  char file[128] = {};  // as it was opened, for a call on a descriptor too
  int flags = 0;        // of an open
  int error = 0;        // errno of a failure
  std::int64_t offset = 0;
  std::int64_t size = 0;  // asked for
  std::int64_t result = 0;
  std::uint64_t payload = 0;  // bytes that follow: what was written to a file of the current folder
};

}  // namespace tarnvale
