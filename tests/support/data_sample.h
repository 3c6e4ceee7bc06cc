// Random data files of every format, with the list of what is in them.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "support/index_file.h"

namespace tarnvale {

struct DataSample {
  std::string bytes;
  std::string recordLength;  // the command line's field, where the format needs it
  std::string options;       // with the key: columns 2 to 4, 9 and 8
  bool recordNumbers = true;
  std::vector<DataRecord> records;
  std::vector<std::uint64_t> deletedLfas;
};

/// A file of about `size` bytes, of one of the five formats and four marks by turns: with deleted records, NUL bytes
/// between variable records, TABs, single bytes of a mark inside records, records longer than half a block, and often
/// without the last mark or with a closing Ctrl-Z.
DataSample makeSample(int turn, std::size_t size, std::mt19937& random);

}  // namespace tarnvale
