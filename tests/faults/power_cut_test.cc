// What a disk may hold when the power fails during a compaction in place. The logged calls are replayed on a model of
// the disk: what was written behind the last fsync of a file may be there or not, sector by sector, and a name that was
// made or removed behind the last fsync of the directory too.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "faults/jobs.h"
#include "support/index_file.h"

namespace tarnvale {
namespace {

constexpr std::size_t sectorSize = 512;
constexpr int theDirectory = -1;

// What is on stable storage, and the changes that are not yet.
template <typename State>
struct Stored {
  using Change = std::function<void(State&)>;

  State durable;
  std::vector<Change> pending;

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

  /// The states that a power failure may leave: each prefix of the changes, and all but each single one. True when
  /// `holds` is true for all of them; it is asked for all in any case.
  template <typename Test>
  [[nodiscard]] bool always(Test holds) const {
    bool all = true;
    for (std::size_t i = 0; i <= pending.size(); ++i) {
      all = holds(with(i)) && all;
      if (i < pending.size()) all = holds(with(pending.size(), i)) && all;
    }
    return all;
  }
};

using Names = std::map<std::string, std::size_t>;  // the files' numbers

class Disk {
 public:
  explicit Disk(const Files& before) {
    for (const auto& [name, bytes] : before) {
      names.durable[name] = files.size();
      files.push_back({bytes, {}});
    }
  }

  void replay(const LoggedCall& call) {
    if (call.result < 0) return;
    const std::string what = call.what();
    const std::string name = call.onFile();
    if (what == "open" && name == ".") open_[call.fd] = theDirectory;
    if (what == "open" && name.find('/') == std::string::npos && name != ".") open(name, call);
    if (what == "close") open_.erase(call.fd);
    if (what == "unlink") names.pending.emplace_back([=](Names& all) { all.erase(name); });
    if (what == "rename")
      names.pending.emplace_back([=, to = call.bytes](Names& all) {
        all[to] = all.at(name);
        all.erase(name);
      });
    if (what == "truncate" && names.current().contains(name)) resize(names.current().at(name), call.size);
    const auto opened = open_.find(call.fd);
    if (opened == open_.end()) return;
    if (what == "fsync" && opened->second == theDirectory) names.sync();
    if (opened->second == theDirectory) return;
    const auto number = static_cast<std::size_t>(opened->second);
    if (what == "fsync") files[number].sync();
    if (what == "ftruncate") resize(number, call.size);
    if (what == "write" || what == "pwrite") write(number, call);
  }

  Stored<Names> names;
  std::vector<Stored<std::string>> files;

 private:
  void open(const std::string& name, const LoggedCall& call) {
    const Names present = names.current();
    const auto found = present.find(name);
    if (found == present.end()) {
      names.pending.emplace_back([name, number = files.size()](Names& all) { all[name] = number; });
      files.emplace_back();
      open_[call.fd] = static_cast<int>(files.size() - 1);
    } else {
      open_[call.fd] = static_cast<int>(found->second);
      if ((call.flags & O_TRUNC) != 0) resize(found->second, 0);
    }
  }

  void resize(std::size_t number, std::int64_t size) {
    files[number].pending.emplace_back([=](std::string& bytes) { bytes.resize(static_cast<std::size_t>(size)); });
  }

  void write(std::size_t number, const LoggedCall& call) {
    for (std::size_t done = 0; done < call.bytes.size();) {
      const auto place = static_cast<std::size_t>(call.offset) + done;
      const std::string part = call.bytes.substr(done, sectorSize - place % sectorSize);
      done += part.size();
      files[number].pending.emplace_back([=](std::string& bytes) {
        bytes.resize(std::max(bytes.size(), place + part.size()));
        bytes.replace(place, part.size(), part);
      });
    }
  }

  std::map<int, int> open_;  // the files' numbers by their descriptors
};

class PowerCut : public testing::TestWithParam<Job> {
 protected:
  PowerCut() : before(filesBefore(workshop, job)), clean(workshop.run(before, job.arguments)) {
    entries = readIndex(oldIndex(), 15).entries;
    knownIndexes = {{oldIndex(), isRight(oldIndex())}, {newIndex(), isRight(newIndex())}};
  }

  const std::string& oldIndex() const { return before.at("idx.isi"); }
  const std::string& newIndex() const { return clean.files.at("idx.isi"); }

  // What tarnvale-check says. Where it calls right what is neither the old nor the new index, another reader decides.
  bool isRight(const std::string& index) {
    const Outcome check = workshop.run({{"data.txt", before.at("data.txt")}, {"idx.isi", index}}, "check idx.isi");
    const bool known = index == oldIndex() || index == newIndex();
    if (check.exitStatus == 0 && !known) {
      EXPECT_TRUE(readIndex(index).entries == entries) << "tarnvale-check calls a half-written index right";
    }
    return check.exitStatus == 0;
  }

  bool isRightAsKnown(const std::string& index) {
    const auto found = knownIndexes.find(index);
    if (found != knownIndexes.end()) return found->second;
    return knownIndexes.emplace(index, isRight(index)).first->second;
  }

  // True when in this state of the names the index is right, whatever became of its bytes, or tarnvale-check says that
  // it is not and the backup is whole.
  bool holds(const Disk& disk, const Names& names) {
    const auto alwaysHolds = [&](const std::string& name, const std::function<bool(const std::string&)>& test) {
      const auto found = names.find(name);
      return found != names.end() && disk.files[found->second].always(test);
    };
    const bool right = alwaysHolds("idx.isi", [this](const std::string& bytes) { return isRightAsKnown(bytes); });
    return right || alwaysHolds("idx.isi.bak", [this](const std::string& bytes) { return bytes == oldIndex(); });
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

  // The fault that lets the compaction fail when all but the final header is written: the index is restored.
  std::string faultBeforeTheEnd() const {
    std::size_t last = 0;
    for (std::size_t i = 0; i < clean.calls.size(); ++i) {
      if (clean.calls[i].what() == "pwrite" && clean.calls[i].onFile() == "idx.isi") last = i + 1;
    }
    return "error 5 once " + std::to_string(last);
  }

  const Job& job = GetParam();
  Workshop workshop;
  Files before;
  Outcome clean;
  std::vector<IndexEntry> entries;
  std::map<std::string, bool> knownIndexes;
};

TEST_P(PowerCut, AtAnyMomentLeavesAWholeIndexOrAWholeBackup) {
  EXPECT_TRUE(isRightAsKnown(oldIndex()) && isRightAsKnown(newIndex()));
  EXPECT_EQ(firstLoss(clean), "");
  EXPECT_GT(knownIndexes.size(), 10U) << "there are half-written indexes to look at";
}

TEST_P(PowerCut, InARestoreLeavesTheSame) {
  const Outcome restored = workshop.run(before, job.arguments, faultBeforeTheEnd());
  EXPECT_NE(restored.output.find("ISI has been restored"), std::string::npos) << restored.output;
  EXPECT_EQ(firstLoss(restored), "");
}

TEST_P(PowerCut, WithoutAnyOneOfTheSyncsWouldLoseTheIndex) {
  for (const std::string& fault : {std::string(), faultBeforeTheEnd() + ";"}) {
    const Outcome careful = workshop.run(before, job.arguments, fault);
    std::size_t syncs = 0;
    for (std::size_t number = 1; number <= careful.calls.size(); ++number) {
      if (careful.calls[number - 1].what() != "fsync") continue;
      ++syncs;
      const std::string careless = fault + "unsynced 0 once " + std::to_string(number);
      EXPECT_NE(firstLoss(workshop.run(before, job.arguments, careless)), "") << careful.describe(number);
    }
    EXPECT_GE(syncs, 3U) << "of the backup, of its name, and of the index";
  }
}

// Who does not look first, but compacts once more, must not lose the backup for it.
TEST_P(PowerCut, FollowedByAnotherCompactionCostsNoIndex) {
  EXPECT_EQ(firstLoss(clean), "");
  std::size_t lost = 0;
  const std::map<std::string, bool> met = knownIndexes;
  for (const auto& [index, right] : met) {
    if (right) continue;
    Files files = before;
    files["idx.isi"] = index;
    files["idx.isi.bak"] = oldIndex();
    const Files after = workshop.run(files, job.arguments).files;
    const auto backup = after.find("idx.isi.bak");
    const bool kept = backup != after.end() && backup->second == oldIndex();
    if (!kept && !isRightAsKnown(after.at("idx.isi"))) ++lost;
  }
  EXPECT_EQ(lost, 0U) << "of " << met.size() << " half-written indexes";
}

INSTANTIATE_TEST_SUITE_P(Jobs, PowerCut, testing::Values(jobNamed("CompactInPlace"), jobNamed("CompactInPlaceAlone")),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tarnvale
