// The deleted-record list of an index, compared with the deleted records that the scan finds, or, without the data
// file, looked at by itself.
//
// All nodes of the list but the first are full. They lie behind the header area, newest first as the index was built
// (the links go down) and in list order when it was compacted (the links go up). So the node of the n-th deleted record
// is known, and the positions can be read in the order of the scan, which is that of the records.
#pragma once

#include <cstdint>

#include "check/found_sequence.h"
#include "check/position_set.h"
#include "check/report.h"
#include "isi/isi_handle.h"

namespace tarnvale {

class DeletedListCheck {
 public:
  /// Follows the links. `kept` tells whether a build keeps a list at all. Index and report must stay.
  DeletedListCheck(IsiHandle& index, bool kept, Report& report);

  /// Number of the first node behind the list.
  [[nodiscard]] std::uint64_t firstTreeNode() const;

  /// Looks up a record that the scan found deleted.
  void take(std::uint64_t lfa, std::uint64_t position);
  /// The scan has ended: what is left in the list is no deleted record.
  void finish();

  /// Checks what the positions, of a data file with so many places, say by themselves, and adds them to `used`.
  void checkAlone(std::uint64_t places, PositionSet& used);

 private:
  [[nodiscard]] bool mayBeMissing() const;
  [[nodiscard]] std::uint64_t nodesByCount() const;
  [[nodiscard]] bool follow();
  [[nodiscard]] bool isComplete(std::uint64_t lastNode);
  [[nodiscard]] bool readLinked(std::uint32_t pointer, std::uint64_t before);
  bool nextPosition(std::uint32_t& position);
  [[nodiscard]] std::uint64_t nodeOfGroup(std::uint64_t group) const;
  void addSurplus(std::uint32_t position);

  IsiHandle& index_;
  Report& report_;
  bool kept_;
  FoundSequence<std::uint32_t> positions_;
  bool linksGoUp_ = false;   // from the second node on
  std::uint64_t nodes_ = 0;  // of the list
  std::uint64_t total_ = 0;  // positions in the list
  std::uint64_t read_ = 0;   // of them, by nextPosition
  bool comparable_;          // there is a list, and it is whole
};

}  // namespace tarnvale
