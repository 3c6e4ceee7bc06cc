#include <algorithm>
#include <ostream>

#include "faults/job_test.h"

namespace tarnvale {

namespace {

// Records with scrambled numbers in columns 1 to 4, some of them twice, and where `deleted` that many of NUL bytes.
std::string records(int count, const std::string& filler, const std::string& mark, int deleted = 0) {
  std::string data;
  for (int i = 0; i < count; ++i) data += std::to_string(1000 + i * 7919 % 997 * 9 % 4001) + filler + mark;
  return data + std::string(static_cast<std::size_t>(deleted) * (4 + filler.size() + mark.size()), '\0');
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

}  // namespace tarnvale
