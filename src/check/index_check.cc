// The check builds the index again, but compares every result with the index that is there instead of writing it: the
// stored command line is parsed and the data file scanned and sorted by the routines of a build, in the same memory,
// with a sink of its own behind the merge. So no file is made but the two work files.
#include "check/index_check.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <optional>

#include "check/deleted_list_check.h"
#include "check/header_check.h"
#include "check/record_check.h"
#include "check/report.h"
#include "check/tree_walk.h"
#include "cmdline/command_line.h"
#include "common/character_case.h"
#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "common/progress.h"
#include "data/data_file.h"
#include "isi/data_file_lock.h"
#include "isi/index_build.h"
#include "isi/index_header.h"
#include "isi/index_information.h"
#include "sort/merge.h"
#include "sort/work_files.h"

namespace tarnvale {

namespace {

// The parts of a check: those of a run that it needs, and what it compares.
struct Check {
  Check(const CheckOptions& asked, TrackedFiles& tracked)
      : options(asked), files(tracked), report(asked.quiet ? nullptr : stdout) {}

  const CheckOptions& options;
  TrackedFiles& files;
  Messages messages;  // without a stream: what a build says of its work is not wanted
  Environment environment;
  FileNaming naming = readFileNaming(environment);
  Settings settings;  // of the stored command
  DataFile data;
  Scanner scanner;
  Sorter sorter;
  SortMemory sortMemory;
  PageBuffer scanBuffer;
  Report report;
  FileName indexName;
  int indexFd = -1;
  IsiHandle index;
  std::optional<DeletedListCheck> deletedList;
  std::optional<TreeWalk> walk;

  [[nodiscard]] const IsiHeader& header() const { return index.area.header; }
  [[nodiscard]] bool readsData() const { return !options.structureOnly; }
};

// Says why the check cannot go on. False, for the caller to return.
bool fail(const Check& check, std::string_view text, std::string_view name = {}) {
  if (check.options.quiet) return false;
  std::fprintf(stderr, "%.*s%.*s\n", static_cast<int>(text.size()), text.data(), static_cast<int>(name.size()),
               name.data());
  return false;
}

struct FailureText {
  StatusCode code;
  const char* text;  // the name of the file follows
};
constexpr FailureText failureTexts[] = {
    {status::workFileReadFailed, "A work file cannot be read: "},
    {status::inputReadFailed, "The data file cannot be read: "},
    {status::invalidEndOfRecord, "A record of the data file does not end with its end-of-record mark: "},
    {status::tooManyTrains, "There are too many records for the work file: "},
    {status::workFileNotWritten, "A work file cannot be written: "},
    {status::recordTooLong, "A record of the data file is longer than an index can say: "},
};

bool fail(const Check& check, const Failure& failure) {
  const auto* const row = std::ranges::find(failureTexts, failure.code, &FailureText::code);
  const char* const text = row != std::end(failureTexts) ? row->text : "This file cannot be used: ";
  return fail(check, text, check.files[failure.file].name);
}

// A line at the terminal while the check works; it goes away at the next one, or at the end.
void showProgress(const Check& check, const char* what, std::uint64_t done, std::uint64_t total,
                  const Progress& progress) {
  if (check.options.quiet || ::isatty(STDERR_FILENO) == 0) return;
  std::fprintf(stderr, "%s%s\r", what, progress.note(done, total).c_str());
}

void clearProgress(const Check& check) {
  constexpr int width = 60;
  if (!check.options.quiet && ::isatty(STDERR_FILENO) != 0) std::fprintf(stderr, "%*s\r", width, "");
}

// --- opening --------------------------------------------------------------------------------------------------------

bool openIndexFile(Check& check) {
  const StatusCode status =
      openNamedIndex(check.naming, check.messages, check.options.indexName, check.indexName, check.indexFd);
  return status == status::success || fail(check, check.messages.buffer);
}

bool readHeaderArea(Check& check) {
  check.index = {};
  check.index.keylessAllowed = true;
  if (openIndex(check.index, check.indexFd) == IndexResult::done) return true;
  check.report.add("%s: its first 2048 bytes are not those of an index", check.indexName.c_str());
  return false;
}

// A relative name is looked for here, and then beside the index.
bool openBesideIndex(Check& check, std::string_view name, FunctionRef<bool(std::string_view)> open) {
  const std::string_view directory = check.indexName.view().substr(0, check.indexName.view().rfind('/') + 1);
  FileName beside;
  if (open(name)) return true;
  return !name.starts_with('/') && !directory.empty() && beside.join(directory, name) && open(beside);
}

// The lock that applications take. The data file is open once, since closing any of its descriptors would give it up.
bool lockInput(Check& check) {
  const TrackedFile& input = check.files[FileRole::input];
  return lockForReading(input.fd) == LockResult::granted ||
         fail(check, "The data file is in exclusive use: ", input.name);
}

// The lock alone. An index may be looked at where its data file is not.
bool shareDataFile(Check& check) {
  TrackedFile& input = check.files[FileRole::input];
  const auto open = [&](std::string_view name) {
    input.name.assignCut(name);
    return openRegular(input, O_RDONLY);
  };
  return !openBesideIndex(check, textOf(check.header().dataFileName), open) || lockInput(check);
}

// Opens the data file that the stored command names, or else the one that the header names.
bool openScannedFile(Check& check) {
  StatusCode status = status::success;
  const auto open = [&](std::string_view name) {
    status = openDataFile(check.data, check.files, check.messages, check.settings, check.naming, name, IfMissing::fail,
                          {check.scanBuffer.get(), inputBlockSize});
    return status != status::dataFileNotOpened;
  };
  if (!open(check.settings.dataName)) {
    const auto message = check.messages.buffer;
    if (!openBesideIndex(check, textOf(check.header().dataFileName), open)) return fail(check, message);
  }
  if (status == status::success) return lockInput(check);
  const std::string_view text = check.messages.buffer;
  return fail(check, text.empty() ? "The data file does not fit the command that the index keeps" : text);
}

// The stored command and what it says of names and options. An index whose command cannot be parsed is wrong.
bool readStoredCommand(Check& check) {
  const auto noFiles = [](const Settings&) { return StatusCode{status::success}; };
  const ParsedCommand stored =
      parseCommandLine(textOf(check.header().storedCommandLine), check.environment, check.messages, noFiles);
  check.settings = stored.settings;
  if (stored.status == status::success && check.settings.isBuild()) return true;
  check.report.add("stored command line: it does not build an index (code %d)", static_cast<int>(stored.status));
  return false;
}

bool prepareScan(Check& check) {
  check.scanBuffer = allocatePages(scanBufferSize);
  const SortLimits limits;
  if (check.scanBuffer == nullptr || !check.sortMemory.allocateBuffers() ||
      !check.sortMemory.allocateTrainTable(limits.maxTrains) || !probeMemory(check.sorter.area, limits.maxMemory)) {
    return fail(check, "There is not enough memory");
  }
  const std::string_view standard = lookupSetting(check.environment, "TMPDIR").value_or("/tmp");
  if (!createWorkFiles(check.files, check.messages, check.settings.tempPath, standard)) {
    return fail(check, "A work file cannot be made in ",
                check.settings.tempPath.empty() ? standard : check.settings.tempPath.view());
  }
  if (!openScannedFile(check)) return false;
  if (!startSorter(check.sorter, check.sortMemory, limits, check.settings.keys.keyLength, check.messages)) {
    return fail(check, "There is not enough memory for the keys");
  }
  const TrackedFile& input = check.files[FileRole::input];
  return startScan(check.scanner, check.settings, check.data.format, input.fd, check.scanBuffer.get(),
                   check.messages) ||
         fail(check, "The data file cannot be read: ", input.name);
}

// --- the comparison -------------------------------------------------------------------------------------------------

// Scans the data file into sorted trains; deleted records are compared on the way.
bool scanData(Check& check) {
  const std::uint64_t unit = check.settings.recordNumberAddressing ? check.scanner.recordLimit : 1;
  const bool listKept = !check.settings.writeAllAtEnd;
  const auto takeDeleted = [&](std::uint64_t lfa) {
    if (listKept) check.deletedList->take(lfa, unit);
    return true;
  };
  showProgress(check, "Reading the data file", 0, 0, Progress{});
  const Failure failure = sortPhase(check.scanner, check.sorter, takeDeleted, check.files, check.messages);
  if (!failure.none()) return fail(check, failure);
  check.deletedList->finish();
  return true;
}

bool compareRecords(Check& check) {
  RecordCheck records(check.settings, check.scanner, check.index, *check.walk, check.report);
  const Progress progress;
  std::uint64_t compared = 0;
  const SortResult result =
      doFancyMerge(check.sorter, check.files, check.messages, false, [&](const std::uint8_t* entry) {
        constexpr std::uint64_t shownEach = 1U << 20;
        if (++compared % shownEach == 0) {
          showProgress(check, "Comparing records", compared, check.sorter.formed, progress);
        }
        records.take(entry);
        return true;
      });
  if (result != SortResult::done) return fail(check, failureOf(result, check.sorter));
  records.finish();
  if (!records.inDeclaredFormat()) check.report.add("the data file is not in the format that its index declares");
  return true;
}

// The header first: it says how entries are to be read.
bool compareWithData(Check& check) {
  if (!scanData(check)) return false;
  check.walk.emplace(check.index, check.deletedList->firstTreeNode(), check.report);
  if (check.scanner.recordLimit == 0) {
    check.report.add("the data file is empty: no record length is known");
  } else {
    const std::string_view name = check.files[FileRole::input].name;
    checkHeader(check.header(), makeHeader(check.settings, check.scanner, name, noPointer), check.report);
  }
  const bool comparable = check.settings.keys.keyLength == check.index.keyLength &&
                          check.settings.recordNumberAddressing == check.index.recordNumbers;
  return !comparable || compareRecords(check);
}

void compareAlone(Check& check) {
  check.walk.emplace(check.index, check.deletedList->firstTreeNode(), check.report);
  showProgress(check, "Reading the index", 0, 0, Progress{});
  checkOrder(check.index, *check.walk, check.report);
  checkEntryCount(check.header(), check.walk->entryCount(), check.report);
  check.deletedList->checkAlone();
}

// What is wrong whatever stands in the data file, and then all that does. False when it could not be found out.
bool compare(Check& check) {
  checkHeaderAlone(check.header(), check.report);
  const bool parsed = readStoredCommand(check);
  if (parsed) checkStoredCommand(check.header(), check.settings, check.report);
  check.deletedList.emplace(check.index, check.report);
  if (!check.readsData()) {
    compareAlone(check);
    return true;
  }
  return !parsed || compareWithData(check);
}

// --- the verdict ----------------------------------------------------------------------------------------------------

// A copy of an index is as good as the index, but a rebuild goes to the name that is stored.
void noteIndexName(const Check& check) {
  const auto bare = [](std::string_view name) { return name.substr(name.rfind('/') + 1); };
  const std::string_view stored = bare(check.settings.indexName.view());
  const std::string_view own = bare(check.indexName.view());
  const std::string_view named = stored.substr(0, stored.find(':'));
  if (named.empty() || compareNoCase(named, own) == 0) return;
  if (named.find('.') == std::string_view::npos && compareNoCase(named, own.substr(0, own.rfind('.'))) == 0) return;
  std::printf("note: it was built as %.*s; tarnvale -r would rebuild that file\n", static_cast<int>(stored.size()),
              stored.data());
}

void sayVerdict(const Check& check) {
  if (check.options.quiet) return;
  check.report.close();
  if (check.report.count() != 0) {
    std::printf("index is wrong: %s\n", counted(check.report.count(), "difference").c_str());
    return;
  }
  std::printf("%s: %s, %s, %s on %s\n", check.readsData() ? "index is complete" : "index structure is right",
              counted(check.walk->entryCount(), "entry").c_str(),
              counted(check.header().deletedCount, "deleted record").c_str(),
              counted(check.walk->nodeCount(), "node").c_str(), counted(check.walk->levelCount(), "level").c_str());
  noteIndexName(check);
}

// The steps up to the comparison. The header is read again once the lock is held: from then on nobody rewrites it.
bool carryOut(Check& check) {
  if (!openIndexFile(check)) return false;
  if (!readHeaderArea(check)) return true;
  if (check.readsData()) {
    Report unheard(nullptr);
    std::swap(unheard, check.report);
    const bool parsed = readStoredCommand(check);
    std::swap(unheard, check.report);
    if (parsed && !prepareScan(check)) return false;
  } else if (!shareDataFile(check)) {
    return false;
  }
  return !readHeaderArea(check) || compare(check);
}

}  // namespace

Verdict checkIndex(const CheckOptions& options, TrackedFiles& files) {
  const auto check = std::make_unique<Check>(options, files);
  const bool checked = carryOut(*check);
  clearProgress(*check);
  if (checked || check->report.count() != 0) sayVerdict(*check);
  {
    const InterruptHold hold;
    releaseAllFiles(files, RunEnd::success);
  }
  closeFile(check->indexFd);
  const bool said = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (!checked || !said) return Verdict::notChecked;
  return check->report.count() == 0 ? Verdict::right : Verdict::wrong;
}

}  // namespace tarnvale
