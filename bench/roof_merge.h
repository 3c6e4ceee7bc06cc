// The second half of the roof: passes over the work files until few enough trains are left for the last one.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "files.h"
#include "roof_train.h"

namespace bench {

// How many trains one pass merges: 30 at most, and as few as will do in two or three passes.
inline std::size_t chooseFanIn(std::size_t trains) {
  if (trains <= 30) return trains;
  std::size_t fanIn = 6;
  while (fanIn * fanIn * (trains > 900 ? fanIn : 1) < trains) ++fanIn;
  return fanIn;
}

// A tree of losers over the trains of a group. The head of a train is known by eight bytes of its key; only where two
// agree in them the entries are looked at.
template <std::size_t keyLength>
struct Merge {
  using Record = Entry<keyLength>;
  static constexpr std::size_t maxFanIn = 32;
  static constexpr std::size_t cacheLine = 64;

  int input;
  std::uint8_t* area;    // in which each train of a group has a part
  std::size_t partSize;  // whole cache lines
  std::size_t blockEntries;
  std::size_t shared;   // key bytes that need no look
  unsigned sharedBits;  // of these in the number of a head

  Merge(Trains<keyLength>& trains, std::size_t sizeOfPart)
      : input(trains.out.fd),
        area(reinterpret_cast<std::uint8_t*>(trains.area)),
        partSize(sizeOfPart - sizeOfPart % cacheLine),
        blockEntries((partSize - cacheLine) / sizeof(Record)),
        shared(trains.shared),
        sharedBits(8 *
                   static_cast<unsigned>(std::clamp<std::size_t>(shared + 8, keyLength, keyLength + 7) - keyLength)) {}

  template <typename Take>
  void run(const std::uint64_t* starts, std::size_t trains, Take take) {
    leaves = std::bit_ceil(trains);
    for (std::size_t i = 0; i < trains; ++i) {
      sources[i] = {area + i * partSize, nullptr, nullptr, starts[i]};
      readBlock(sources[i]);
      following[i] = headOf(i, sources[i].next + 1);
    }
    if (trains == 1) {  // no match is played
      while (sources[0].next->lfa != ~std::uint64_t{0}) takeNext(0, take);
      return;
    }
    Head winner = playAll(trains);
    for (unsigned wins = 0;;) {
      const std::size_t moved = winner & sourceMask;
      if (winner >= endHead && isEnd(winner)) return;
      takeNext(moved, take);
      if (wins == 3) {  // as with data that are nearly sorted or equal keys: no match until another one leads
        for (const Head lowest = lowestOther(moved); goesBefore(following[moved], lowest);) {
          following[moved] = headOf(moved, sources[moved].next + 1);
          takeNext(moved, take);
        }
      }
      winner = following[moved];
      following[moved] = headOf(moved, sources[moved].next + 1);
      for (std::size_t node = (leaves + moved) / 2; node >= 1; node /= 2) play(winner, losers[node]);
      wins = (winner & sourceMask) == moved ? std::min(wins + 1, 3U) : 0;
    }
  }

 private:
  struct Source {
    std::uint8_t* part;  // of the area
    Record* next;
    Record* blockEnd;
    std::uint64_t offset;  // of the next block
  };
  using Head = std::uint64_t;  // bits of the key, and the source
  static constexpr Head sourceMask = maxFanIn - 1;
  static constexpr Head endHead = ~sourceMask;
  static constexpr Head noHead = ~Head{0};  // of a leaf without a source
  std::array<Source, maxFanIn> sources;
  std::array<Head, maxFanIn> losers;
  std::array<Head, maxFanIn> following;  // of each source: the head of the entry behind the next one
  std::size_t leaves;

  template <typename Take>
  void takeNext(std::size_t number, Take& take) {
    Source& source = sources[number];
    take(*source.next);
    if (++source.next != source.blockEnd) return;
    readBlock(source);
    following[number] = headOf(number, source.next);
  }

  // A block lies in memory as it does in the file, counted from a cache line: the system copies it faster so.
  void readBlock(Source& source) {
    source.next = reinterpret_cast<Record*>(source.part + source.offset % cacheLine);
    source.blockEnd = source.next + blockEntries;
    readAt(input, source.next, blockEntries * sizeof(Record), source.offset);
    source.offset += blockEntries * sizeof(Record);
  }

  Head headOf(std::size_t source, const Record* entry) const {
    const bool end = entry->lfa == ~std::uint64_t{0};
    return ((end ? ~std::uint64_t{0} : keyNumber<std::uint64_t>(*entry, shared) << sharedBits) & ~sourceMask) | source;
  }
  bool isEnd(Head head) const { return sources[head & sourceMask].next->lfa == ~std::uint64_t{0}; }

  // The smallest head but that of the source.
  Head lowestOther(std::size_t source) const {
    Head lowest = noHead;
    for (std::size_t node = (leaves + source) / 2; node >= 1; node /= 2) {
      Head loser = losers[node];
      play(lowest, loser);
    }
    return lowest;
  }

  bool goesBefore(Head a, Head b) const { return (a ^ b) <= sourceMask ? before(a, b) : a < b; }

  // Exchanges the two without a branch, which would be guessed wrong every other time.
  void play(Head& winner, Head& loser) const {
    const Head a = winner;
    const Head b = loser;
    if ((a ^ b) <= sourceMask) [[unlikely]] {
      if (before(b, a)) std::swap(winner, loser);
      return;
    }
    winner = __builtin_expect_with_probability(b < a, 1, 0.5) ? b : a;
    loser = a ^ b ^ winner;
  }

  bool before(Head a, Head b) const {
    if (a == noHead || b == noHead) return a != noHead;
    const Record& first = *sources[a & sourceMask].next;
    const Record& second = *sources[b & sourceMask].next;
    if (keyLength - shared < sizeof(Head))
      return first.lfa < second.lfa;  // all key bytes are in the heads; an end is last
    if (isEnd(a) || isEnd(b)) return !isEnd(a);
    return sortsBefore(first, second);
  }

  // The number of leaves is a power of two, so that all ways up are equally long.
  Head playAll(std::size_t trains) {
    std::array<Head, 2 * maxFanIn> winners;
    winners.fill(noHead);
    for (std::size_t i = 0; i < trains; ++i) winners[leaves + i] = headOf(i, sources[i].next);
    for (std::size_t node = leaves - 1; node >= 1; --node) {
      winners[node] = winners[2 * node];
      losers[node] = winners[2 * node + 1];
      play(winners[node], losers[node]);
    }
    return winners[1];
  }
};

/// Makes all passes. `take` gets each entry of the last one, in order.
template <std::size_t keyLength, typename Take>
void mergeTrains(Trains<keyLength>& trains, std::size_t areaSize, Take take) {
  using Record = Entry<keyLength>;
  std::vector<std::uint64_t> starts = trains.starts;
  const std::size_t fanIn = chooseFanIn(starts.size());
  constexpr std::size_t largestPart = 262144;  // a larger one leaves the cache before it is used
  Merge<keyLength> merge(trains, std::min(areaSize / fanIn, largestPart));
  if (starts.size() > fanIn) trains.out.fd = openWorkFile();
  while (starts.size() > fanIn) {
    std::vector<std::uint64_t> merged;
    std::uint64_t position = 0;
    const auto write = [&](const Record& entry) {
      trains.out.put(&entry, sizeof entry);
      position += sizeof entry;
    };
    for (std::size_t first = 0; first < starts.size(); first += fanIn) {
      merged.push_back(position);
      merge.run(&starts[first], std::min(fanIn, starts.size() - first), write);
      Record end{};
      end.lfa = ~std::uint64_t{0};
      write(end);
    }
    trains.out.flush();
    starts = std::move(merged);
    std::swap(merge.input, trains.out.fd);
    if (::ftruncate(trains.out.fd, 0) != 0 || ::lseek(trains.out.fd, 0, SEEK_SET) != 0)
      fail("cannot empty a work file");
  }
  merge.run(starts.data(), starts.size(), take);
}

}  // namespace bench
