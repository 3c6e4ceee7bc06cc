#include "faults/jobs.h"

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <set>
#include <sstream>

namespace tarnvale {

namespace {

// Records with scrambled numbers in columns 1 to 4, some of them twice, and where `deleted` that many of NUL bytes.
std::string records(int count, const std::string& filler, const std::string& mark, int deleted = 0) {
  std::string data;
  for (int i = 0; i < count; ++i) data += std::to_string(1000 + i * 7919 % 997 * 9 % 4001) + filler + mark;
  return data + std::string(static_cast<std::size_t>(deleted) * (4 + filler.size() + mark.size()), '\0');
}

constexpr const char* listIncomplete = "Unable to write all duplicate keys";

std::set<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::set<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.insert(line);
  return lines;
}

bool holds(const Files& files, const std::string& name, const std::string& bytes) {
  const auto found = files.find(name);
  return found != files.end() && found->second == bytes;
}

// True for a file that stays only since it could not be deleted; an index must at least be empty then.
bool couldNotBeDeleted(const Outcome& now, const std::string& name, const std::string& bytes) {
  const bool emptied =
      bytes.empty() || !name.ends_with(".isi") || now.failed("ftruncate", name) || now.failed("truncate", name);
  return now.failed("unlink", name) && emptied;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Job& job) { return stream << job.name; }

const std::vector<Job>& allJobs() {
  const std::string text = records(1200, " fixed text", "\n", 200);
  const std::string wide = records(2600, std::string(96, '.'), "\n", 3);
  const std::string build = "data.txt,idx.isi -1-4";
  const std::string loose = "data.txt,idx.isi -m50,1-4";
  const std::string looseAndWide = "data.txt,idx.isi -m50,1-100";
  const std::string little = "-m524288 -m262144 -m131072 -m65536 -m32768 -m16384 -m8192 ";  // more than 30 sort trains
  const std::string more = text + records(50, " fixed text", "\n");
  static const std::vector<Job> jobs = {
      {"TextLf", text, {}, build},
      {"TextCrLf", records(1200, "", "\r\n"), {}, build},
      {"VariableLength", records(600, "", "\n") + records(600, " and more", "\n"), {}, "data.txt,idx.isi,L40 -v,1-4"},
      {"SpaceCompressed", records(1200, "\tx", "\n"), {}, "data.txt,idx.isi,L40 -s,1-4,9"},
      {"Binary", records(1200, "\n\r\t.", "", 200), {}, "data.txt,idx.isi -f=8,1-4"},
      {"BinaryWithMark", records(1200, "\t...", "\n", 200), {}, "data.txt,idx.isi -g=8,1-4"},
      {"DuplicatesListed", text, {}, "data.txt,idx.isi -e,1-4"},
      {"DuplicatesRefused", text, {}, "data.txt,idx.isi -n,1-4", Does::refuses},
      {"ListWithoutDuplicates", records(900, "", "\n"), {}, "data.txt,idx.isi -e,1-4"},
      {"MergePasses", wide, {}, little + "data.txt,idx.isi -1-100"},
      {"LargeTrain", records(140000, "", "\n"), {}, "-m8388608 data.txt,idx.isi -1-4"},
      {"NewDataFile", "", {}, "data.txt,idx.isi,L20 -1-4"},
      {"Reindex", text, {build}, "idx.isi -r", Does::rebuilds, more},
      {"CompactInPlace", text, {loose}, "idx.isi -c", Does::compactsInPlace},
      {"CompactInPlaceAlone", text, {loose}, "idx.isi -c=1", Does::compactsInPlace},
      {"CompactInPlaceWithMergePasses", wide, {looseAndWide}, little + "idx.isi -c", Does::compactsInPlace},
      {"CompactIntoNewFile", text, {loose}, "idx.isi,new.isi -c"},
      {"Display", text, {build}, "idx.isi -i", Does::shows},
      {"Check", text, {build}, "check idx.isi", Does::shows},
      {"CheckOfStructure", text, {build}, "check -s idx.isi", Does::shows},
      {"ReadEntries", text, {build}, "read idx.isi", Does::shows},
      {"ReadRecordsBackwards", text, {build}, "read -b -r -n 9 idx.isi", Does::shows},
      {"CheckOfAnOldIndex", text, {build}, "check idx.isi", Does::refuses, more},
  };
  return jobs;
}

std::vector<Job> jobsNamed(const std::vector<std::string>& names) {
  std::vector<Job> jobs;
  for (const std::string& name : names) jobs.push_back(*std::ranges::find(allJobs(), name, &Job::name));
  return jobs;
}

JobTest::JobTest() {
  if (!job.data.empty()) before["data.txt"] = job.data;
  for (const std::string& arguments : job.preparation) before = workshop.run(before, arguments).files;
  if (!job.laterData.empty()) before["data.txt"] = job.laterData;
  clean = run("");
  EXPECT_EQ(clean.exitStatus, job.does == Does::refuses ? 1 : 0) << clean.output;
  EXPECT_GT(clean.calls.size(), 3U) << "the layer sees nothing: is it preloaded?";
}

std::string JobTest::troubleOf(const Outcome& now, bool interrupted) const {
  if (now.exitStatus < 0 && interrupted && now.files == before) return "";  // before there was a handler
  const bool reader = job.arguments.starts_with("check ") || job.arguments.starts_with("read ");
  if (now.exitStatus != 0 && now.exitStatus != 1 && !(reader && now.exitStatus == 2))
    return "exit status " + std::to_string(now.exitStatus);
  if (now.exitStatus == 0 && clean.exitStatus == 1) return "success of what must fail";
  if (const std::string trouble = troubleOfList(now, interrupted); !trouble.empty()) return trouble;
  if (now.exitStatus == 0 && job.does == Does::shows && now.output != clean.output)
    return "success, but shows something else";
  if (now.exitStatus == 0 || (clean.exitStatus == 1 && now.output == clean.output)) return troubleOfFiles(now);
  return troubleAfterFailure(now, interrupted);
}

// The run ended as it does without faults.
std::string JobTest::troubleOfFiles(const Outcome& now) const {
  const bool toldOfList = now.says(listIncomplete);
  for (const auto& [name, bytes] : clean.files) {
    if (!holds(now.files, name, bytes) && !(name.ends_with(".ERR") && toldOfList))
      return "ended well, but wrong or no " + name;
  }
  for (const auto& [name, bytes] : now.files) {
    if (!clean.files.contains(name) && !couldNotBeDeleted(now, name, bytes)) return "ended well, but left " + name;
  }
  return "";
}

// An index being compacted: whole under its name, or else whole in the backup, which the messages name.
std::string JobTest::troubleInPlace(const Outcome& now, bool interrupted) const {
  const std::string& old = before.at("idx.isi");
  const auto index = now.files.find("idx.isi");
  const bool longer = index != now.files.end() && index->second.starts_with(old);  // which harms nobody
  const bool whole = holds(now.files, "idx.isi", old) || holds(now.files, "idx.isi", clean.files.at("idx.isi")) ||
                     (longer && now.failed("ftruncate", "idx.isi"));
  const bool backup = now.files.contains("idx.isi.bak");
  const bool named = now.says("idx.isi.bak");
  if (!whole && !holds(now.files, "idx.isi.bak", old)) {
    return longer ? "the old index with more behind it, and no backup" : "no whole index, nor a whole backup";
  }
  if (!whole && !interrupted && !named) return "backup not named";
  if (whole && backup && !interrupted && !named && !now.failed("unlink", "idx.isi.bak")) return "needless backup left";
  return "";
}

// Of the list of duplicate keys there are whole lines, and it is told when its last ones may not have reached the disk.
std::string JobTest::troubleOfList(const Outcome& now, bool interrupted) const {
  const auto list = now.files.find("idx.ERR");
  if (list == now.files.end() || list->second.empty()) return "";
  const auto whole = clean.files.find("idx.ERR");
  if (whole == clean.files.end() || !whole->second.starts_with(list->second)) return "wrong list of duplicates";
  if (interrupted) return list->second.ends_with("\r\n") ? "" : "list of duplicates cut inside a line";
  const bool doubtful = std::ranges::any_of(now.calls, [](const LoggedCall& call) {
    return call.what() == "close" && call.onFile() == "idx.ERR" && call.error != 0 && call.error != EINTR;
  });
  return doubtful && !now.says(listIncomplete) ? "silent about a list not closed" : "";
}

std::string JobTest::troubleAfterFailure(const Outcome& now, bool interrupted) const {
  const bool inPlace = job.does == Does::compactsInPlace;
  const std::string input = clean.files.contains("new.isi") ? "idx.isi" : "data.txt";
  if (std::ranges::includes(linesOf(clean.output), linesOf(now.output))) return "failure without a message";
  for (const auto& [name, bytes] : before) {
    const bool index = name == "idx.isi" && (inPlace || job.does == Does::rebuilds);
    if (!index && !holds(now.files, name, bytes)) return "failure that touched " + name;
  }
  for (const auto& [name, bytes] : now.files) {
    const bool inputNotClosed = name != input && now.failed("close", input) && holds(clean.files, name, bytes);
    const bool madeEmpty = name == "data.txt" && bytes.empty() && !interrupted;  // documented: it stays
    const bool known = holds(before, name, bytes) || name.ends_with(".ERR") || couldNotBeDeleted(now, name, bytes) ||
                       inputNotClosed || madeEmpty;
    if (!known && !(inPlace && name.starts_with("idx.isi"))) return "failure that left " + name;
  }
  return inPlace ? troubleInPlace(now, interrupted) : "";
}

}  // namespace tarnvale
