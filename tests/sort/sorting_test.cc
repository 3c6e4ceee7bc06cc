#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <numeric>
#include <random>

#include "sort/merge.h"
#include "sort/sort_phase.h"
#include "sort/train_sort.h"
#include "support/test_run.h"

namespace tarnvale {
namespace {

using Keys = std::vector<std::string>;
using Lfas = std::vector<std::uint64_t>;

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

Keys makeKeys(std::size_t count, std::size_t length, std::mt19937& random, const KeyKind& kind) {
  Keys keys(count, std::string(length, ' '));
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t place = 0; place < length; ++place) {
      keys[i][place] = static_cast<char>(kind.byte(random, i, place, length - 1 - place));
    }
  }
  return keys;
}

void writeEntry(const RunContext& run, std::size_t slot, std::uint64_t lfa, const std::string& key) {
  std::uint8_t* const entry = entryOfSlot(run, static_cast<std::uint32_t>(slot));
  setEntryHead(entry, lfa, 7);
  std::memcpy(entry + sortEntryHeadSize, key.data(), key.size());
}

// Numbers of the keys in the order of (key, LFA).
std::vector<std::uint32_t> sortedOrder(const Keys& keys, const Lfas& lfas) {
  std::vector<std::uint32_t> order(keys.size());
  std::iota(order.begin(), order.end(), 0U);
  std::ranges::sort(order, {}, [&](std::uint32_t i) { return std::tie(keys[i], lfas[i]); });
  return order;
}

void expectTrainsSorted(std::size_t count, std::size_t keyLength) {
  std::mt19937 random(static_cast<unsigned>(count + keyLength));
  TestRun run(static_cast<std::uint32_t>((count + 40) * (keyLength + 14)));
  ASSERT_EQ(divideSortArea(*run, static_cast<std::uint32_t>(keyLength)), status::success);
  for (const KeyKind& kind : keyKinds) {
    const Keys keys = makeKeys(count, keyLength, random, kind);
    Lfas lfas(count);
    std::iota(lfas.begin(), lfas.end(), 0xFFFFFFF0U);
    if (random() % 2 == 0) std::ranges::shuffle(lfas, random);
    for (std::size_t i = 0; i < count; ++i) writeEntry(*run, i, lfas[i], keys[i]);
    writeEndMarker(entryOfSlot(*run, static_cast<std::uint32_t>(count)), run->sortEntrySize);
    const std::vector<std::uint32_t> expected = sortedOrder(keys, lfas);
    std::uint32_t* const slots = run->sortPointerArray;
    for (const int method : {0, 1}) {
      run->sortMethod = method;
      SortTrain(*run);
      EXPECT_TRUE(std::equal(expected.begin(), expected.end(), slots)) << kind.name << count << " " << keyLength;
      EXPECT_EQ(slots[count], count);
    }
  }
}

TEST(TrainSort, OrdersByKeyThenLfaWithBothMethods) {
  for (const std::size_t keyLength : {1U, 2U, 7U, 8U, 9U, 20U, 150U}) {
    for (const std::size_t count : {0U, 1U, 2U, 24U, 25U, 300U, 5000U}) expectTrainsSorted(count, keyLength);
  }
}

TEST(TrainSort, DividesTrainsInPlaceThatItsPairsDoNotHold) { expectTrainsSorted(150000, 5); }

// Sends keys through trains and merge, in a sort area of `areaSize` bytes.
struct Sorting {
  TestRun run;
  StatusCode status = status::success;
  int trains = 0;

  explicit Sorting(std::uint32_t areaSize) : run(areaSize) { run.openWorkFiles(); }

  void makeTrains(const Keys& keys) {
    status = divideSortArea(*run, static_cast<std::uint32_t>(keys[0].size()));
    std::size_t next = 0;
    const auto fillTrain = [&] {
      const std::uint32_t room = run->sortEntryCapacity - 1;
      std::uint32_t slot = 0;
      for (; slot < room && next < keys.size(); ++slot, ++next) writeEntry(*run, slot, next, keys[next]);
      writeEndMarker(entryOfSlot(*run, slot), run->sortEntrySize);
      return slot == room ? status::trainFull : status::inputExhausted;
    };
    if (status == status::success) status = formTrains(*run, fillTrain);
    trains = run->sortTrainCount;
  }

  void sort(const Keys& keys) {
    makeTrains(keys);
    if (status == status::success) status = DoFancyMerge(*run);
  }

  void expectAllDelivered(const Keys& keys) {
    ASSERT_EQ(status, status::success);
    Lfas lfas(keys.size());
    std::iota(lfas.begin(), lfas.end(), 0U);
    const std::vector<std::uint32_t> order = sortedOrder(keys, lfas);
    ASSERT_EQ(deliveredEntries.size(), keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const auto* const entry = reinterpret_cast<const std::uint8_t*>(deliveredEntries[i].data());
      ASSERT_TRUE(entryLfa(entry) == order[i] && deliveredEntries[i].substr(10) == keys[order[i]]) << i;
    }
    completeRecordCount(*run);
    EXPECT_EQ(run->indexedRecordCount, keys.size());
  }
};

TEST(Merge, DeliversEveryEntryInOrderHoweverManyTrainsThereAre) {
  std::mt19937 random(3);
  for (const std::size_t trains : {1U, 2U, 6U, 30U, 31U, 36U, 37U, 900U, 901U}) {
    const Keys keys = makeKeys(trains * 53 - 1, 4, random, descending);  // they continue no train
    Sorting sorting(1000);                                               // 53 entries of 14 bytes to a train
    sorting.sort(keys);
    EXPECT_EQ(sorting.trains, static_cast<int>(trains));
    sorting.expectAllDelivered(keys);
  }
}

TEST(Merge, LosesNoKeyAndKeepsEqualOnesInOrder) {
  std::mt19937 random(4);
  for (const std::size_t keyLength : {1U, 2U, 3U, 8U, 12U, 150U}) {
    for (const KeyKind& kind : keyKinds) {
      SCOPED_TRACE(std::string(kind.name) + " " + std::to_string(keyLength));
      const Keys keys = makeKeys(5000, keyLength, random, kind);
      // The smallest area accepted: a train has fewer entries than trains can be merged at a time.
      Sorting sorting(static_cast<std::uint32_t>(31 * (keyLength + 10)));
      sorting.sort(keys);
      sorting.expectAllDelivered(keys);
    }
  }
}

TEST(Merge, OfTrainsThatContinueEachOtherFindsOne) {
  Keys keys;
  for (int i = 0; i < 1000; ++i) keys.push_back(std::to_string(1000 + i / 3));
  Sorting sorting(1000);
  sorting.run->maxSortTrains = 2;  // joined trains do not count
  sorting.sort(keys);
  EXPECT_EQ(sorting.trains, 1);
  sorting.expectAllDelivered(keys);
}

TEST(Sorting, FailsWithTheCodeOfWhatWentWrong) {
  std::mt19937 random(6);
  const Keys keys = makeKeys(2000, 4, random, descending);
  const struct {
    std::uint32_t areaSize;
    std::function<void(RunContext&)> prepare;
    StatusCode status;
    std::size_t delivered;
  } cases[] = {
      {31 * 14 - 1, [](RunContext&) {}, status::outOfMemory, 0},
      {1000, [](RunContext& run) { run.maxSortTrains = 3; }, status::tooManyTrains, 0},
      {1000, [](RunContext& run) { ::dup2(::open("/dev/full", O_RDWR), run.tempFd1); }, status::workFileNotWritten, 0},
      {1000, [](RunContext& run) { ::dup2(::open("/dev/full", O_RDWR), run.tempFd2); }, status::workFileNotWritten, 0},
      {1000, [](RunContext&) { failingDelivery = 5; }, deliveryFailed, 5}};
  for (const auto& c : cases) {
    Sorting sorting(c.areaSize);
    c.prepare(*sorting.run);
    sorting.sort(keys);
    EXPECT_EQ(sorting.status, c.status);
    EXPECT_EQ(deliveredEntries.size(), c.delivered);
  }
  Sorting cutFile(1000);
  cutFile.makeTrains(keys);
  ASSERT_EQ(::ftruncate(cutFile.run->tempFd1, 100), 0);
  EXPECT_EQ(DoFancyMerge(*cutFile.run), status::workFileReadFailed);
}

}  // namespace
}  // namespace tarnvale
