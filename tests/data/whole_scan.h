// A data file scanned to its end, and all that was found.
#pragma once

#include "data/record_scan.h"
#include "support/index_file.h"

namespace tarnvale {

struct WholeScan {
  std::vector<DataRecord> records;
  std::vector<std::uint64_t> deletedLfas;
  std::uint64_t recordCount = 0;  // selected or not
  ScanResult result = ScanResult::trainFull;
  std::uint64_t failedAt = 0;  // the record that a failure names
  bool trainsAreRight = true;  // each ends with its marker, and only the last one before its area is full

  bool operator==(const WholeScan&) const = default;
};

/// Scans in trains of `room` entries.
inline WholeScan scanToEnd(Scanner& scanner, std::uint32_t room, Messages& messages) {
  const std::uint32_t entrySize = scanner.plan.keyLength + sortEntryHeadSize;
  std::vector<std::uint8_t> memory((room + std::size_t{1}) * entrySize);
  const EntryArea area{memory.data(), room, entrySize};
  WholeScan found;
  while (found.result == ScanResult::trainFull) {
    const ScannedTrain train = createSubList(scanner, area, messages, [&](std::uint64_t lfa) {
      found.deletedLfas.push_back(lfa);
      return true;
    });
    found.result = train.result;
    const std::uint8_t* entry = area.first;
    for (std::uint32_t i = 0; i < train.entries; ++i, entry += entrySize) {
      const std::string key(reinterpret_cast<const char*>(entryKey(entry)), scanner.plan.keyLength);
      found.records.push_back({entryLfa(entry), entryRecordLength(entry), key});
    }
    const bool endsEarly = train.result == ScanResult::trainFull && train.entries < room;
    found.trainsAreRight = found.trainsAreRight && isEndMarker(entry) && !endsEarly;
  }
  found.recordCount = scanner.findings.recordCount;
  if (found.result != ScanResult::inputExhausted) found.failedAt = scanner.currentLfa;
  return found;
}

}  // namespace tarnvale
