// The deleted-record list of an index that is compacted.
#pragma once

#include <cstdint>

#include "common/messages.h"
#include "isi/index_output.h"
#include "isi/isi_handle.h"

namespace tarnvale {

enum class ListCopyResult : std::uint8_t {
  done,
  damaged,     // a node cannot be read, is none, or the list has no end
  notWritten,  // a message was printed
};

/// Walks the list, where one is kept, before anything is overwritten.
[[nodiscard]] ListCopyResult checkDeletedList(IsiHandle& handle);

/// Writes the list behind the header area and the root, in its order, or discards it for files whose deleted records
/// are not kept. `count` becomes the number of positions. The output then ends behind the list, and its position is
/// there.
[[nodiscard]] ListCopyResult carryDeletedList(IsiHandle& handle, IndexOutput& output, bool inPlace,
                                              std::uint32_t& count, Messages& messages);

}  // namespace tarnvale
