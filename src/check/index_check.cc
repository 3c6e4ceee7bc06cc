// The phases of a check: the index is opened, its command read, its data file shared, and then either compared, which
// needs the memory and the work files of a build, or left alone.
#include "check/index_check.h"

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "check/checked_files.h"
#include "check/data_comparison.h"
#include "check/deleted_list_check.h"
#include "check/entry_check.h"
#include "check/failure_texts.h"
#include "check/header_check.h"
#include "check/progress_line.h"
#include "check/report.h"
#include "check/stored_command.h"
#include "common/interrupt_hold.h"
#include "common/page_buffer.h"
#include "sort/work_files.h"

namespace tarnvale {

namespace {

constexpr std::size_t detectionBufferSize = 65536;  // of the scan's buffer, before the scan needs it

// The parts of a check.
struct Check {
  Check(const CheckOptions& asked, TrackedFiles& tracked)
      : options(asked),
        files(tracked),
        naming(readFileNaming(environment)),
        progress(asked.quiet ? nullptr : stderr),
        report(asked.quiet ? nullptr : stdout, asked.quiet ? nullptr : stderr, progress) {}

  const CheckOptions& options;
  TrackedFiles& files;
  Messages messages;  // without a stream: the messages of a build are not wanted
  Environment environment;
  FileNaming naming;
  ProgressLine progress;
  Report report;
  IsiHandle index;
  std::optional<Settings> settings;  // nothing: the stored command cannot be used
  PageBuffer scanMemory;
  SortMemory sortMemory;
  DataFile data;
  Scanner scanner;
  Sorter sorter;

  [[nodiscard]] const IsiHeader& header() const { return index.area.header; }
  [[nodiscard]] bool readsData() const { return !options.structureOnly && settings; }
};

bool allocateMemory(Check& check) {
  const SortLimits limits;
  check.scanMemory = allocatePages(scanBufferSize);
  const bool ready =
      check.scanMemory != nullptr && check.sortMemory.allocateBuffers() &&
      check.sortMemory.allocateTrainTable(limits.maxTrains) && probeMemory(check.sorter.area, limits.maxMemory) &&
      startSorter(check.sorter, check.sortMemory, limits, check.settings->keys.keyLength, check.messages);
  if (!ready) check.report.fail("There is not enough memory.");
  return ready;
}

bool makeWorkFiles(Check& check) {
  const std::string_view standard = lookupSetting(check.environment, "TMPDIR").value_or("/tmp");
  const std::string_view asked = check.settings->tempPath;
  if (createWorkFiles(check.files, check.messages, asked, standard)) return true;
  check.report.fail(std::string("The work files cannot be made in ").append(asked.empty() ? standard : asked));
  return false;
}

bool beginScan(Check& check) {
  const TrackedFile& input = check.files[FileRole::input];
  if (!startScan(check.scanner, *check.settings, check.data.format, input.fd, check.scanMemory.get(), check.messages)) {
    reportScanFailure(ScanResult::readFailed, 0, check.files, check.report);
    return false;
  }
  if (hasWholeRecords(check.data, input, *check.settings)) return true;
  reportOpenFailure(status::recordSizeMismatch, check.messages, check.report);
  return false;
}

// The index once more, now that nobody rewrites it, and still the one whose data file is open.
bool readIndexAgain(Check& check) {
  const IsiHeader before = check.header();
  if (!readIndex(check.index, check.files[FileRole::index], check.report)) return false;
  if (before.dataFileName == check.header().dataFileName &&
      before.storedCommandLine == check.header().storedCommandLine) {
    return true;
  }
  check.report.fail("The index was built again meanwhile.");
  return false;
}

bool openData(Check& check) {
  if (!check.readsData()) return shareDataFile(check.header(), check.files, check.report);
  if (!allocateMemory(check) || !makeWorkFiles(check)) return false;
  return openCheckedData(check.data, *check.settings, check.header(), check.naming,
                         {check.scanMemory.get(), detectionBufferSize}, check.files, check.messages, check.report);
}

// What the index says by itself.
TreeSize checkAlone(Check& check) {
  const IsiHeader& header = check.header();
  const Settings* const settings = check.settings ? &*check.settings : nullptr;
  const bool listKept = settings != nullptr ? !settings->writeAllAtEnd : check.index.recordNumbers;
  const std::uint32_t fill = settings != nullptr ? builtFill(*settings, check.index.entriesPerNode) : 0;
  if (settings != nullptr) checkHeader(header, expectedHeader(*settings, header), check.report);
  checkExtent(header, check.report);

  const EntryRules rules = makeEntryRules(header, settings);
  PositionSet used(rules.positions);
  DeletedListCheck deletedList(check.index, listKept, check.report);
  deletedList.checkAlone(header.dataExtent, used);
  TreeWalk walk(check.index, deletedList.firstTreeNode(), fill, check.report);
  checkEntries(check.index, rules, walk, used, check.report, check.progress);
  checkRecordCount(header, walk.entryCount(), settings, check.report);
  return walk.size();
}

TreeSize compare(Check& check) {
  checkForm(check.header(), check.report);
  if (check.settings) {
    checkNames(*check.settings, check.header(), check.files, check.naming, check.report);
  }
  if (!check.readsData()) return checkAlone(check);
  if (!beginScan(check)) return {};
  return compareWithData({*check.settings, check.index, check.scanner, check.sorter, check.files, check.messages,
                          check.report, check.progress});
}

std::string rightText(const Check& check, const TreeSize& tree) {
  const std::string result = check.readsData() ? "index is complete: " : "index structure is right: ";
  return result + counted(tree.entries, "entry") + ", " + counted(check.header().deletedCount, "deleted record") +
         ", " + counted(tree.nodes, "node") + " on " + counted(tree.levels, "level");
}

int exitStatus(const Report& report) {
  if (report.count() != 0) return check_status::wrong;
  const bool said = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  return report.failed() || !said ? check_status::notChecked : check_status::right;
}

}  // namespace

int checkIndex(const CheckOptions& options, TrackedFiles& files) {
  if (!options.quiet) files.messageFd = ::fileno(stderr);  // first: an interrupt has to be told from here on
  Check check(options, files);
  TreeSize tree;
  if (openCheckedIndex(options.indexName, check.naming, files, check.messages, check.report) &&
      readIndex(check.index, files[FileRole::index], check.report)) {
    check.settings = readStoredCommand(check.header(), check.environment, check.messages, check.report);
    if (openData(check) && readIndexAgain(check)) tree = compare(check);
  }
  check.report.close(rightText(check, tree));
  const InterruptHold hold;
  releaseAllFiles(files, RunEnd::success);
  return exitStatus(check.report);
}

}  // namespace tarnvale
