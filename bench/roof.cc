// The roof of the measurements: how fast the same work can go on this machine. The same passes over the same bytes as
// an index build or a compaction by tarnvale, with nothing else: no options, checks, messages or header, and code made
// for the key length of the job.
//
//   roof build DATA INDEX AREA FORMAT...        FORMAT as in record_format.h, AREA: bytes of the sort area
//   roof compact INDEX NEW AREA FORMAT...
//   roof compact INDEX INDEX AREA FORMAT...     in place: a copy is made first, as a backup
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "../src/data/mark_finder.h"
#include "files.h"
#include "record_format.h"
#include "roof_merge.h"
#include "roof_train.h"
#include "roof_tree.h"

namespace {

using bench::Bytes;
using bench::fail;
using bench::RecordFormat;

constexpr std::size_t blockSize = 65536;  // bytes of the data file read at once

struct Job {
  bool compact = false;
  std::string input;
  std::string output;
  std::size_t areaSize = 0;
  RecordFormat format;
};

// A key that is one range of the record is copied in one piece.
bool isPlainKey(const RecordFormat& format) {
  return format.key.size() == 1 && format.key[0].first <= format.key[0].last && !format.expandTabs;
}

template <std::size_t keyLength>
void foldKey(std::uint8_t* key) {
#pragma GCC unroll 16
  for (std::size_t i = 0; i < keyLength; ++i) key[i] = bench::toUpper(key[i]);
}

// The end of the record that begins at `start`, or null when it has none before `end`.
template <typename MarkFinder>
const std::uint8_t* endOfRecord(const RecordFormat& format, MarkFinder& marks, const std::uint8_t* start,
                                const std::uint8_t* end) {
  const auto left = static_cast<std::size_t>(end - start);
  if (format.recordSize != 0) return left < format.recordSize ? nullptr : start + format.recordSize;
  for (;;) {
    const std::uint8_t* const markEnd = marks.next() + format.mark.size();
    if (markEnd > end) return nullptr;
    if (markEnd[-1] == static_cast<std::uint8_t>(format.mark.back())) return markEnd;
  }
}

template <typename MarkFinder, std::size_t keyLength>
void scanRecords(const RecordFormat& format, int input, bench::Trains<keyLength>& trains) {
  const bool plain = isPlainKey(format);
  const std::size_t keyStart = format.key[0].first;
  const std::uint8_t mark = format.mark.empty() ? 0 : static_cast<std::uint8_t>(format.mark[0]);
  constexpr std::size_t searchedBehind = 64;
  std::vector<std::uint8_t> buffer(2 * blockSize + searchedBehind);  // the rest of a block, and the next block
  std::uint64_t lfa = 0;
  for (std::size_t left = 0;;) {
    const ssize_t size = ::read(input, buffer.data() + left, blockSize);
    if (size <= 0) break;
    const std::uint8_t* start = buffer.data();
    const std::uint8_t* const end = start + left + size;
    MarkFinder marks(start, end, mark);
    for (const std::uint8_t* next; (next = endOfRecord(format, marks, start, end)) != nullptr; start = next) {
      const Bytes columns(start, next - format.mark.size());
      const std::uint64_t recordLfa = lfa;
      lfa += static_cast<std::size_t>(next - start);
      if (!format.select.empty() && !isSelected(format, columns)) continue;
      auto& entry = trains.next();
      entry.lfa = recordLfa;
      entry.length = static_cast<std::uint16_t>(next - start);
      if (plain && keyStart + keyLength <= columns.size()) {
        std::memcpy(entry.key, columns.data() + keyStart, keyLength);
        if (format.upperCase) foldKey<keyLength>(entry.key);
      } else {
        extractKey(format, columns, entry.key);
      }
      trains.accept();
    }
    left = static_cast<std::size_t>(end - start);
    std::memmove(buffer.data(), start, left);
  }
}

// Many marks are found faster 64 bytes at a time, few by one search for each.
template <std::size_t keyLength>
void scanFile(const Job& job, bench::Trains<keyLength>& trains) {
  constexpr std::size_t longRecord = 400;
  const int input = ::open(job.input.c_str(), O_RDONLY);
  if (input < 0) fail("cannot open " + job.input);
  std::uint8_t beginning[longRecord];
  const Bytes read(beginning, bench::readAt(input, beginning, longRecord, 0));
  if (!job.format.mark.empty() && std::ranges::find(read, job.format.mark[0]) == read.end()) {
    scanRecords<tarnvale::SearchingMarkFinder>(job.format, input, trains);
  } else {
    scanRecords<tarnvale::MarkFinder>(job.format, input, trains);
  }
}

// Walks an index in key order. Nodes come as they lie in the file, mostly, and are read many at a time; two such pieces
// are kept, since a node often lies in the one behind that of its leaves.
template <std::size_t keyLength>
struct Walk {
  using Node = typename bench::Tree<keyLength>::Node;
  using NodeEntry = typename bench::Tree<keyLength>::NodeEntry;

  int fd;
  bool byNumber;
  bench::Trains<keyLength>& trains;
  struct Piece {
    std::vector<Node> nodes = std::vector<Node>(blockSize / 2 / sizeof(Node));
    std::uint64_t start = 0;
    std::uint64_t end = 0;
  };
  Piece pieces[2] = {};
  unsigned latest = 0;

  void run() { walkNode(Node(nodeAt(1024))); }

 private:
  const Node& nodeAt(std::uint64_t offset) {
    const auto lies = [&](const Piece& piece) { return offset >= piece.start && offset < piece.end; };
    if (!lies(pieces[latest])) latest = 1 - latest;
    Piece& piece = pieces[latest];
    if (!lies(piece)) {
      const std::size_t size = piece.nodes.size() * sizeof(Node);
      piece.start = offset - offset % size;
      piece.end = piece.start + bench::readAt(fd, piece.nodes.data(), size, piece.start);
    }
    return piece.nodes[(offset - piece.start) / sizeof(Node)];
  }

  static std::span<const NodeEntry> entriesOf(const Node& node) {
    return {reinterpret_cast<const NodeEntry*>(node.entries), node.count};
  }

  void convert(const NodeEntry& entry, bench::Entry<keyLength>& to) const {
    to.lfa = byNumber ? std::uint64_t{entry.position} * entry.length : entry.position;
    to.length = entry.length;
    std::memcpy(to.key, entry.key, keyLength);
  }

  void takeEntry(const NodeEntry& entry) {
    convert(entry, trains.next());
    trains.accept();
  }

  void takeLeaf(const Node& leaf) {
    if (trains.count + leaf.count >= trains.capacity - 1) {
      for (const NodeEntry& entry : entriesOf(leaf)) takeEntry(entry);
      return;
    }
    bench::Entry<keyLength>* next = &trains.next();
    for (const NodeEntry& entry : entriesOf(leaf)) convert(entry, *next++);
    trains.count += leaf.count;
  }

  void walkBelow(std::uint64_t pointer, unsigned level) {
    if (pointer == 0) return;
    const std::uint64_t offset = pointer * (byNumber ? sizeof(Node) : 1);
    if (level == 0) {
      takeLeaf(nodeAt(offset));
    } else {
      walkNode(Node(nodeAt(offset)));
    }
  }

  void walkNode(const Node& node) {
    if (node.level == 0) return takeLeaf(node);
    for (const NodeEntry& entry : entriesOf(node)) {
      walkBelow(entry.child, node.level - 1U);
      takeEntry(entry);
    }
    walkBelow(node.right, node.level - 1U);
  }
};

void waitForDisk(int fd) {
  if (::fsync(fd) != 0) fail("cannot write to the disk");
}

void makeBackup(const std::string& name) {
  const int from = bench::openFile(name, 0);
  bench::Writer to{bench::openFile(name + ".bak", O_CREAT | O_TRUNC)};
  std::vector<std::uint8_t> buffer(blockSize);
  for (std::uint64_t offset = 0; const std::size_t size = bench::readAt(from, buffer.data(), blockSize, offset);) {
    to.put(buffer.data(), size);
    offset += size;
  }
  to.flush();
  waitForDisk(to.fd);
  waitForDisk(::open(name.substr(0, name.rfind('/') + 1).append(".").c_str(), O_RDONLY | O_DIRECTORY));  // its name
}

template <std::size_t keyLength>
void run(const Job& job) {
  bench::Trains<keyLength> trains(job.areaSize);
  if (job.compact) {
    Walk<keyLength>{bench::openFile(job.input, 0), job.format.byNumber, trains}.run();
  } else {
    scanFile(job, trains);
  }
  trains.finish();
  const bool inPlace = job.input == job.output;
  if (inPlace) makeBackup(job.input);
  bench::Tree<keyLength> tree(bench::openFile(job.output, O_CREAT | O_TRUNC), job.format.byNumber);
  if (job.format.firstOfEqualKeys) {
    tree.dropsKeys = true;
    tree.dropped.fd = bench::openFile(job.output + ".err", O_CREAT | O_TRUNC);
  }
  mergeTrains(trains, job.areaSize, [&](const bench::Entry<keyLength>& entry) { tree.add(entry); });
  tree.finish();
  if (!inPlace) return;
  waitForDisk(tree.out.fd);  // as tarnvale: the index or its backup survives a power failure
  ::unlink((job.input + ".bak").c_str());
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount < 6) fail("usage: roof build|compact INPUT INDEX AREA FORMAT...");
  Job job;
  job.compact = std::string_view(arguments[1]) == "compact";
  job.input = arguments[2];
  job.output = arguments[3];
  job.areaSize = std::strtoull(arguments[4], nullptr, 10);
  job.format = bench::readFormat({arguments + 5, static_cast<std::size_t>(argumentCount - 5)});
  switch (job.format.keyLength) {  // those of the jobs
    case 10:
      run<10>(job);
      break;
    case 19:
      run<19>(job);
      break;
    case 40:
      run<40>(job);
      break;
    case 150:
      run<150>(job);
      break;
    default:
      fail("the roof is not made for keys of " + std::to_string(job.format.keyLength) + " bytes");
  }
}
