// The second half of the roof: passes over the work files until few enough trains are left for the last one.
#pragma once

#include <unistd.h>

#include <array>
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
  static constexpr std::size_t maxFanIn = 64;

  int input;
  Record* area;  // in which each train of a group has a block
  std::size_t blockEntries;
  std::size_t shared;  // key bytes that need no look

  Merge(Trains<keyLength>& trains, std::size_t blockSize)
      : input(trains.out.fd), area(trains.area.get()), blockEntries(blockSize), shared(trains.shared) {}

  template <typename Take>
  void run(const std::uint64_t* starts, std::size_t trains, Take take) {
    for (std::size_t i = 0; i < trains; ++i) {
      sources[i] = {area + i * blockEntries, nullptr, nullptr, starts[i]};
      readBlock(sources[i]);
    }
    Head winner = playAll(trains);
    while (!isEnd(winner)) {
      Source& source = sources[winner.source];
      take(*source.next);
      if (++source.next == source.blockEnd) readBlock(source);
      winner = headOf(winner.source);
      for (std::size_t node = (trains + winner.source) / 2; node >= 1; node /= 2) {
        if (before(losers[node], winner)) std::swap(losers[node], winner);
      }
    }
  }

 private:
  struct Source {
    Record* block;
    Record* next;
    Record* blockEnd;
    std::uint64_t offset;  // of the next block
  };
  struct Head {
    std::uint64_t number;
    std::size_t source;
  };
  std::array<Source, maxFanIn> sources;
  std::array<Head, maxFanIn> losers;

  void readBlock(Source& source) {
    readAt(input, source.block, blockEntries * sizeof(Record), source.offset);
    source.offset += blockEntries * sizeof(Record);
    source.next = source.block;
    source.blockEnd = source.block + blockEntries;
  }

  Head headOf(std::size_t source) const {
    const Record& entry = *sources[source].next;
    const bool end = entry.lfa == ~std::uint64_t{0};
    return {end ? ~std::uint64_t{0} : keyNumber<std::uint64_t>(entry, shared), source};
  }
  bool isEnd(const Head& head) const { return sources[head.source].next->lfa == ~std::uint64_t{0}; }

  bool before(const Head& a, const Head& b) const {
    if (a.number != b.number) return a.number < b.number;
    if (isEnd(a) || isEnd(b)) return !isEnd(a);
    return sortsBefore(*sources[a.source].next, *sources[b.source].next);
  }

  // Source i stands below node (trains + i) / 2.
  Head playAll(std::size_t trains) {
    std::array<Head, 2 * maxFanIn> winners;
    for (std::size_t i = 0; i < trains; ++i) winners[trains + i] = headOf(i);
    for (std::size_t node = trains - 1; node >= 1; --node) {
      winners[node] = winners[2 * node];
      losers[node] = winners[2 * node + 1];
      if (before(losers[node], winners[node])) std::swap(losers[node], winners[node]);
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
  Merge<keyLength> merge(trains, (areaSize / sizeof(Record) - 1) / fanIn);
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
      trains.out.flush();
    }
    starts = std::move(merged);
    std::swap(merge.input, trains.out.fd);
    if (::ftruncate(trains.out.fd, 0) != 0 || ::lseek(trains.out.fd, 0, SEEK_SET) != 0)
      fail("cannot empty a work file");
  }
  merge.run(starts.data(), starts.size(), take);
}

}  // namespace bench
