#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>

#include "sort/merge.h"
#include "sort/work_files.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using Entries = std::vector<std::pair<std::string, std::uint64_t>>;  // key and LFA, which sort as entries do

// Gives the byte at a place of key number `record`; `left` bytes of the key follow it.
struct KeyKind {
  const char* name;
  std::function<int(std::mt19937&, std::size_t record, std::size_t place, std::size_t left)> byte;
};
const KeyKind keyKinds[] = {
    {"random", [](auto& random, auto, auto, auto) { return random(); }},
    {"long shared prefix", [](auto& random, auto, auto, auto left) { return left >= 3 ? 'p' : random(); }},
    {"few distinct", [](auto& random, auto, auto place, auto) { return place == 0 ? '0' + random() % 10 : 'k'; }},
    {"extreme bytes", [](auto& random, auto, auto, auto) { return "\xFF\0a"[random() % 3]; }},
    {"all equal", [](auto&, auto, auto, auto) { return 'e'; }},
};
const KeyKind descending = {"descending", [](auto&, auto record, auto, auto left) { return ~record >> (8 * left); }};

Entries makeEntries(std::size_t count, std::size_t keyLength, std::mt19937& random, const KeyKind& kind) {
  Entries entries(count, {std::string(keyLength, ' '), 0});
  for (std::size_t i = 0; i < count; ++i) {
    entries[i].second = 0xFFFFFFF0U + (random() % 2 == 0 ? i : count * (random() % 9 + 1) + i);
    for (std::size_t place = 0; place < keyLength; ++place) {
      entries[i].first[place] = static_cast<char>(kind.byte(random, i, place, keyLength - 1 - place));
    }
  }
  return entries;
}

// Sends entries through trains and merge, in a sort area of `areaSize` bytes; how many trains there were.
// `lastIsKnown`: the source says that a full train is the last one, instead of giving an empty one behind it.
std::uint32_t expectSorted(std::size_t areaSize, std::size_t keyLength, Entries entries, const SortLimits& limits = {},
                           bool lastIsKnown = false) {
  const TestFolder folder;
  TestMessages messages;
  TestFiles files;
  TestSorter sorter(static_cast<std::uint32_t>(areaSize), limits);
  EXPECT_TRUE(sorter.start(static_cast<std::uint32_t>(keyLength), messages));
  EXPECT_TRUE(createWorkFiles(files, messages, folder.path("tmp"), ""));
  auto next = entries.begin();
  const SortResult formed = formTrains(sorter, files, messages, [&](const EntryArea& area) -> FilledTrain {
    const auto count = std::min<std::ptrdiff_t>(area.room, entries.end() - next);
    std::uint8_t* place = area.first;
    for (const auto end = next + count; next != end; ++next, place += area.entrySize) {
      setEntryHead(place, next->second, 7);
      std::ranges::copy(next->first, place + sortEntryHeadSize);
    }
    writeEndMarker(place, area.entrySize);
    const bool last = count < area.room || (lastIsKnown && next == entries.end());
    return {last ? FilledTrain::State::last : FilledTrain::State::more, static_cast<std::uint32_t>(count)};
  });
  EXPECT_EQ(formed, SortResult::done);
  const std::uint32_t trains = sorter.trainCount;
  std::memset(sorter.area.base, 'x', sorter.area.size);  // what the merge needs has to stand in the work file
  Entries delivered;
  const SortResult merged = doFancyMerge(sorter, files, messages, {}, [&](const std::uint8_t* entry) {
    delivered.emplace_back(std::string(reinterpret_cast<const char*>(entryKey(entry)), keyLength), entryLfa(entry));
    return true;
  });
  EXPECT_EQ(merged, SortResult::done);
  EXPECT_EQ(sorter.delivered, entries.size());
  std::ranges::sort(entries);
  EXPECT_TRUE(delivered == entries) << entries.size() << " entries, " << keyLength << " key bytes";
  return trains;
}

void expectSortedWithBothMethods(std::size_t areaSize, std::size_t keyLength, std::size_t count) {
  std::mt19937 random(static_cast<unsigned>(count + keyLength));
  for (const KeyKind& kind : keyKinds) {
    SCOPED_TRACE(kind.name);
    const Entries entries = makeEntries(count, keyLength, random, kind);
    for (const SortMethod method : {SortMethod::shellSort, SortMethod::quickSort}) {
      expectSorted(areaSize, keyLength, entries, {.method = method});
    }
  }
}

TEST(Sort, OrdersByKeyThenLfaInOneTrainAndInMany) {
  for (const std::size_t keyLength : {1U, 2U, 3U, 7U, 8U, 9U, 20U, 150U}) {
    for (const std::size_t count : {0U, 1U, 2U, 24U, 25U, 300U, 3000U}) {
      expectSortedWithBothMethods((count + 40) * (keyLength + 14), keyLength, count);
    }
    // The smallest area accepted: a train has fewer entries than trains can be merged at a time.
    expectSortedWithBothMethods(31 * (keyLength + 10), keyLength, 1000);
  }
}

TEST(Sort, DividesTrainsInPlaceThatItsPairsDoNotHold) { expectSortedWithBothMethods(3000000, 5, 135000); }

TEST(Merge, DeliversEveryEntryInOrderHoweverManyTrainsThereAre) {
  std::mt19937 random(3);
  for (const std::size_t trains : {1U, 2U, 6U, 30U, 31U, 36U, 37U, 900U, 901U}) {  // of 53 entries
    for (const std::size_t missing : {1U, 0U}) {  // in the last train; without one its end marker closes the file
      const Entries entries = makeEntries(trains * 53 - missing, 4, random, descending);
      EXPECT_EQ(expectSorted(1000, 4, entries, {}, true), trains);
    }
  }
}

TEST(Merge, OfTrainsThatContinueEachOtherFindsOne) {
  Entries entries;
  for (std::uint64_t i = 0; i < 1060; ++i) entries.emplace_back(std::to_string(1000 + i / 3), i);  // 20 full trains
  EXPECT_EQ(expectSorted(1000, 4, entries, {.maxTrains = 2}), 1U) << "joined trains do not count";
}

TEST(WorkFile, TellsInDebugModeHowMuchOfABlockCouldBeRead) {
  const TestFolder folder;
  TestMessages messages;
  TestFiles files;
  EXPECT_TRUE(createWorkFiles(files, messages, folder.path("tmp"), ""));
  messages.debugMode = true;
  for (const auto& [which, number] : {std::pair{TrainBlock::first, "1"}, {TrainBlock::further, "3"}}) {
    std::uint8_t block[28];
    EXPECT_FALSE(readTrainBlock(files[FileRole::workFile1].fd, block, sizeof block, 200, 0, which, messages));
    const std::string message = std::string("\nDoFancyMerge(") + number + "): Invalid blkLgt size read! 28:0\n";
    EXPECT_TRUE(messages.text().ends_with(message)) << messages.text();
  }
}

}  // namespace
}  // namespace tarnvale
