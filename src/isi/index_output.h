// The index file while it is written: appended nodes, and the one message when a write fails.
#pragma once

#include <cstdint>

#include "common/messages.h"
#include "format/isi_format.h"
#include "sort/output_buffer.h"

namespace tarnvale {

/// Where an index goes. The first node that is appended lies behind the header area.
struct IndexOutput {
  OutputBuffer buffer;        // over the memory that the sorter's buffer uses too: one of them is empty
  bool recordNumbers = true;  // node pointers are node numbers
  bool byteSwapped = false;   // the index is big-endian
  std::uint32_t entrySize = 0;
  std::uint32_t lastNodePointer = 0;  // of the node appended last

  [[nodiscard]] int fd() const { return buffer.fd; }
};

/// Aims the output at an open file. The buffer's memory is `base` (outputBufferSize bytes).
void startOutput(IndexOutput& output, FileRole file, int fd, std::uint8_t* base, bool recordNumbers);

/// Prints that a segment of the index file could not be written, with errno.
void reportIndexWriteFailure(Messages& messages);

/// The pointer that the next appended node will have. False, and a message, when it would not fit 32 bits.
[[nodiscard]] bool advanceNodePointer(IndexOutput& output, Messages& messages);

/// Adds a node to the buffer, in the byte order of the file. False, and a message, when a write fails.
[[nodiscard]] bool putNode(IndexOutput& output, const IsiNode& node, Messages& messages);

/// Writes what is in the buffer. False, and a message, when that fails.
[[nodiscard]] bool flushNodes(IndexOutput& output, Messages& messages);

}  // namespace tarnvale
