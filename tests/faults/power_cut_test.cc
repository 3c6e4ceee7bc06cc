// What a disk may hold when the power fails during a compaction in place. The logged calls are replayed on a model of
// the disk: what was written behind the last fsync of a file may be there or not, sector by sector, and a name that was
// made or removed behind the last fsync of the directory too.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>

#include "faults/job_test.h"
#include "support/index_file.h"

namespace tarnvale {
namespace {

// What is on stable storage, and the changes that are not yet.
template <typename State>
struct Stored {
  State durable;
  std::vector<std::function<void(State&)>> pending;

  [[nodiscard]] State with(std::size_t changes, std::size_t without = std::size_t(-1)) const {
    State state = durable;
    for (std::size_t i = 0; i < changes; ++i) {
      if (i != without) pending[i](state);
    }
    return state;
  }
  [[nodiscard]] State current() const { return with(pending.size()); }
  void sync() {
    durable = current();
    pending.clear();
  }

  /// True when `holds` is true for all states that a power failure may leave: each prefix of the changes, and all but
  /// each single one. It is asked for all in any case.
  [[nodiscard]] bool always(const std::function<bool(const State&)>& holds) const {
    bool all = holds(current());
    for (std::size_t i = 0; i < pending.size(); ++i) {
      for (const State& state : {with(i), with(pending.size(), i)}) all = holds(state) && all;
    }
    return all;
  }
};

using Names = std::map<std::string, std::size_t>;  // the files' numbers

// Of the current folder; work files are elsewhere.
struct Disk {
  Stored<Names> names;
  std::vector<Stored<std::string>> files;

  explicit Disk(const Files& before) {
    for (const auto& [name, bytes] : before) {
      names.durable[name] = files.size();
      files.push_back({bytes, {}});
    }
  }

  void replay(const LoggedCall& call) {
    const std::string_view what = call.what();
    const std::string name(call.onFile());
    if (call.result < 0 || name.empty() || name.find('/') != std::string::npos) return;
    const Names present = names.current();
    const auto found = present.find(name);
    if (name == ".") {
      if (what == "fsync") names.sync();
    } else if (what == "unlink") {
      names.pending.emplace_back([=](Names& all) { all.erase(name); });
    } else if (found != present.end()) {
      change(files[found->second], call);
    } else if (what == "open") {
      names.pending.emplace_back([name, number = files.size()](Names& all) { all[name] = number; });
      files.emplace_back();
    }
  }

 private:
  static void change(Stored<std::string>& file, const LoggedCall& call) {
    if (call.what() == "fsync") file.sync();
    if (call.what().ends_with("truncate") || (call.flags & O_TRUNC) != 0) {
      file.pending.emplace_back([size = std::size_t(call.size)](std::string& bytes) { bytes.resize(size); });
    }
    constexpr std::size_t sectorSize = 512;
    for (std::size_t done = 0; done < call.bytes.size();) {
      const auto place = static_cast<std::size_t>(call.offset) + done;
      const std::string part = call.bytes.substr(done, sectorSize - place % sectorSize);
      done += part.size();
      file.pending.emplace_back([=](std::string& bytes) {
        bytes.resize(std::max(bytes.size(), place + part.size()));
        bytes.replace(place, part.size(), part);
      });
    }
  }
};

class PowerCut : public JobTest {
 protected:
  const std::string& oldIndex() const { return before.at("idx.isi"); }
  const std::string& newIndex() const { return clean.files.at("idx.isi"); }

  // What tarnvale-check says. Where it calls right what is neither the old nor the new index, another reader decides.
  bool isRight(const std::string& index) {
    const auto found = knownIndexes.find(index);
    if (found != knownIndexes.end()) return found->second;
    const Outcome check = run({{"data.txt", before.at("data.txt")}, {"idx.isi", index}}, "check idx.isi");
    if (check.exitStatus == 0 && index != oldIndex() && index != newIndex()) {
      EXPECT_TRUE(readIndex(index).entries == entries) << "tarnvale-check calls a half-written index right";
    }
    return knownIndexes[index] = check.exitStatus == 0;
  }

  // True when in this state of the names the index is right, whatever became of its bytes, or tarnvale-check says that
  // it is not and the backup is whole.
  bool holds(const Disk& disk, const Names& names) {
    const auto alwaysHolds = [&](const std::string& name, const auto& test) {
      const auto found = names.find(name);
      return found != names.end() && disk.files[found->second].always(test);
    };
    return alwaysHolds("idx.isi", [this](const std::string& bytes) { return isRight(bytes); }) ||
           alwaysHolds("idx.isi.bak", [this](const std::string& bytes) { return bytes == oldIndex(); });
  }

  // The first call behind which the power must not fail, or nothing.
  std::string firstLoss(const Outcome& run) {
    Disk disk(before);
    for (std::size_t number = 1; number <= run.calls.size(); ++number) {
      disk.replay(run.calls[number - 1]);
      if (!disk.names.always([&](const Names& names) { return holds(disk, names); })) {
        return "after call " + std::to_string(number) + ", " + run.describe(number);
      }
    }
    Files left;
    for (const auto& [name, number] : disk.names.current()) left[name] = disk.files[number].current();
    EXPECT_TRUE(left == run.files) << "the model of the disk knows not all that the program does to files";
    return "";
  }

  void expectNoLossButWithoutAnyOneOfTheSyncs(const Outcome& careful, const std::string& fault) {
    EXPECT_EQ(firstLoss(careful), "") << fault;
    std::size_t syncs = 0;
    for (std::size_t number = 1; number <= careful.calls.size(); ++number) {
      if (careful.calls[number - 1].what() != "fsync") continue;
      ++syncs;
      const Outcome careless = run(fault + "unsynced 0 once " + std::to_string(number));
      EXPECT_NE(firstLoss(careless), "") << "without " << careful.describe(number);
    }
    EXPECT_GE(syncs, 3U) << "of the backup, of its name, and of the index";
  }

  const std::vector<IndexEntry> entries = readIndex(oldIndex(), 15).entries;
  std::map<std::string, bool> knownIndexes;
};

TEST_P(PowerCut, AtAnyMomentLeavesAWholeIndexOrAWholeBackup) {
  EXPECT_TRUE(isRight(oldIndex()) && isRight(newIndex()));
  expectNoLossButWithoutAnyOneOfTheSyncs(clean, "");
  EXPECT_GT(knownIndexes.size(), 10U) << "there are half-written indexes to look at";

  // Who does not look first, but compacts once more, must not lose the backup for it.
  const std::map<std::string, bool> met = knownIndexes;
  std::size_t lost = 0;
  for (const auto& [index, right] : met) {
    if (right) continue;
    Files files = before;
    files["idx.isi"] = index;
    files["idx.isi.bak"] = oldIndex();
    const Files after = run(files, job.arguments).files;
    const auto backup = after.find("idx.isi.bak");
    const bool kept = backup != after.end() && backup->second == oldIndex();
    if (!kept && !isRight(after.at("idx.isi"))) ++lost;
  }
  EXPECT_EQ(lost, 0U) << "of " << met.size() << " half-written indexes, by another compaction";
}

// The compaction fails when all but the final header is written.
TEST_P(PowerCut, InARestoreLeavesTheSame) {
  std::size_t last = 0;
  for (std::size_t i = 0; i < clean.calls.size(); ++i) {
    if (clean.calls[i].what() == "pwrite" && clean.calls[i].onFile() == "idx.isi") last = i + 1;
  }
  const std::string fault = "error 5 once " + std::to_string(last);
  const Outcome restored = run(fault);
  EXPECT_TRUE(restored.says("ISI has been restored")) << restored.output;
  expectNoLossButWithoutAnyOneOfTheSyncs(restored, fault + " ");
}

INSTANTIATE_TEST_SUITE_P(Jobs, PowerCut, testing::ValuesIn(jobsNamed({"CompactInPlace", "CompactInPlaceAlone"})),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tarnvale
