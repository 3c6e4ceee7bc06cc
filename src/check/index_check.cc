// The check builds the index again, but holds every result against the index that is there instead of writing it: the
// stored command line is parsed and the data file scanned and sorted by the routines of the build, in the same memory.
// The routines that the run calls upwards are those of the check, so no file is made but the two work files.
#include "check/index_check.h"

#include <fcntl.h>

#include <cinttypes>
#include <cstdio>
#include <functional>
#include <optional>

#include "check/deleted_list_check.h"
#include "check/header_check.h"
#include "check/record_check.h"
#include "check/report.h"
#include "check/tree_walk.h"
#include "cmdline/command_line.h"
#include "cmdline/index_information.h"
#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"
#include "driver/clean_up.h"
#include "driver/failure_messages.h"
#include "driver/interrupt.h"
#include "driver/sort_memory.h"
#include "isi/data_file_lock.h"
#include "isi/index_build.h"
#include "isi/index_header.h"
#include "sort/merge.h"
#include "sort/open_files.h"
#include "sort/record_scan.h"
#include "sort/sort_phase.h"

namespace tarnvale {

namespace {

struct Check {
  explicit Check(const CheckOptions& asked)
      : options(asked),
        report(asked.quiet  ? nullptr
               : asked.dump ? stderr
                            : stdout) {}

  const CheckOptions& options;
  Report report;
  RunContext& run = theRun();
  FileName indexName;
  int indexFd = -1;
  IsiHandle index;
  std::optional<DeletedListCheck> deletedList;
  std::optional<TreeWalk> walk;
  std::optional<RecordCheck> records;

  [[nodiscard]] const IsiHeader& header() const { return index.area.header; }
  [[nodiscard]] bool readsData() const { return !options.structureOnly && !options.dump; }
};

Check* current = nullptr;  // for the routines that the run calls

// Says why the check cannot go on. All other messages of the routines that take part are those of a build: they are not
// wanted.
StatusCode fail(Check& check, void (*put)(RunContext&, StatusCode), StatusCode status) {
  check.run.outputStream = check.options.quiet ? nullptr : stderr;
  if (status == status::outOfMemory) PutMessage(check.run, "There is not enough memory.\n");
  put(check.run, status);
  check.run.outputStream = nullptr;
  return status;
}

template <std::size_t N>
std::string_view textOf(const std::array<char, N>& field) {
  const std::string_view text(field.data(), N - 1);
  return text.substr(0, text.find('\0'));
}

StatusCode openIndexFile(Check& check) {
  RunContext& run = check.run;
  readEnvironment(run);
  run.inputName.assignCut(check.options.indexName);
  const StatusCode status = openNamedIndex(run, check.indexFd);
  if (status != status::success) return fail(check, putParseFailure, status);
  check.indexName = run.outputName;
  return status;
}

StatusCode readHeaderArea(Check& check) {
  check.index = {};
  check.index.keylessAllowed = true;
  const StatusCode status = openIndex(check.index, check.indexFd);
  if (status == status::success) return status;
  check.report.add("%s: its first 2048 bytes are not those of an index", check.indexName.c_str());
  return status;
}

// --- the data file --------------------------------------------------------------------------------------------------

// The name in the header. A relative one is looked for here, and then beside the index.
bool openNamedDataFile(Check& check, const std::function<bool()>& open) {
  FileName& name = check.run.inputName;
  const std::string_view stored = textOf(check.header().dataFileName);
  const std::string_view directory = check.indexName.view().substr(0, check.indexName.view().rfind('/') + 1);
  if (name.assign(stored) && open()) return true;
  return !stored.starts_with('/') && !directory.empty() && name.join(directory, stored) && open();
}

StatusCode lockInput(RunContext& run) {
  DataFileLock lock;
  lock.fd = run.inputFd;
  if (lockForReading(lock) == status::success) return status::success;
  composeMessage(run, {"The data file is in exclusive use: ", fileName(run.inputName)});
  return status::sharedCompactFailed;
}

// In the place of the opening of a build's files. The data file stays open once, since closing any of its descriptors
// would give up the lock.
StatusCode openScannedFile(RunContext& run) {
  StatusCode status = OpenDataFile(run);
  if (status == status::dataFileNotOpened) {
    const FileName wanted = run.inputName;
    openNamedDataFile(*current, [&] {
      status = OpenDataFile(run);
      return status != status::dataFileNotOpened;
    });
    if (status == status::dataFileNotOpened) composeMessage(run, {"Can't open source file ", fileName(wanted)});
  }
  return status == status::success ? lockInput(run) : status;
}

// The lock alone. An index may be looked at where its data file is not.
StatusCode shareDataFile(Check& check) {
  RunContext& run = check.run;
  const auto open = [&run] {
    const InterruptHold hold;
    run.inputFd = ::open(run.inputName.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    return run.inputFd >= 0;
  };
  if (!openNamedDataFile(check, open)) return status::success;
  const StatusCode status = lockInput(run);
  return status == status::success ? status : fail(check, putParseFailure, status);
}

StatusCode prepareScan(Check& check) {
  RunContext& run = check.run;
  run.openRunFiles = openScannedFile;
  StatusCode status = allocateBuffers(run);
  if (status == status::success) status = allocateTrainTable(run);
  if (status == status::success) status = obtainSortArea(run);
  if (status != status::success) return fail(check, putBuildFailure, status);
  status = parseStoredCommand(run, textOf(check.header().storedCommandLine));
  if (status != status::success) return fail(check, putParseFailure, status);
  status = divideSortArea(run, run.keyLength);
  return status == status::success ? status : fail(check, putBuildFailure, status);
}

// --- the comparison -------------------------------------------------------------------------------------------------

StatusCode scanData(Check& check) {
  check.run.deletedRecordCallback = [](RunContext& run) {
    current->deletedList->take(run);
    return status::success;
  };
  const StatusCode status = formTrains(check.run, [&check] { return CreateSubList(check.run); });
  if (status == status::success) check.deletedList->finish();
  return status;
}

StatusCode compareRecords(Check& check) {
  check.run.mergeOutputCallback = [](RunContext& /*run*/, const std::uint8_t* entry) {
    current->records->take(entry);
    return status::success;
  };
  const StatusCode status = DoFancyMerge(check.run);
  if (status == status::success) check.records->finish();
  return status;
}

// The header first: it says how entries are to be read.
StatusCode compareWithData(Check& check) {
  RunContext& run = check.run;
  StatusCode status = scanData(check);
  if (status != status::success) return status;
  check.walk.emplace(check.index, check.deletedList->firstTreeNode(), check.report);
  check.records.emplace(run, check.index, *check.walk, check.report);
  run.indexKeyLength = run.keyLength;
  if (settleHeaderLength(run) != status::success) check.report.add("the data file is empty: no record length is known");
  checkHeader(check.header(), makeHeader(run), check.report);
  if (run.keyLength != check.index.keyLength || run.recordNumberAddressing != check.index.recordNumbers) return status;

  status = compareRecords(check);
  if (!isInDeclaredFormat(run)) check.report.add("the data file is not in the format that its index declares");
  return status;
}

void dumpEntries(Check& check) {
  FoundEntry entry;
  while (check.walk->next(entry) && std::ferror(stdout) == 0) {
    const IsiEntryHead& head = entry.head();
    std::printf("%" PRIu32 "\t%" PRIu64 "\t%u\t%u\t%s\n", std::uint32_t{head.position}, lfaOf(check.index, entry),
                unsigned{head.recordLength}, unsigned{head.duplicateNumber},
                escapedText({entry.key(), check.index.keyLength}).c_str());
  }
}

StatusCode checkAlone(Check& check) {
  check.walk.emplace(check.index, check.deletedList->firstTreeNode(), check.report);
  if (check.options.dump) {
    dumpEntries(check);
  } else {
    checkOrder(check.index, *check.walk, check.report);
  }
  if (std::ferror(stdout) != 0) return status::success;  // the walk was given up
  checkHeaderAlone(check.header(), check.walk->entryCount(), check.report);
  return status::success;
}

StatusCode compare(Check& check) {
  check.deletedList.emplace(check.index, check.report);
  const StatusCode status = check.readsData() ? compareWithData(check) : checkAlone(check);
  return status == status::success ? status : fail(check, putBuildFailure, status);
}

void sayVerdict(const Check& check) {
  if (check.options.quiet || (check.options.dump && check.report.count() == 0)) return;
  check.report.close();
  if (check.report.count() != 0) {
    std::fprintf(check.options.dump ? stderr : stdout, "index is wrong: %s\n",
                 counted(check.report.count(), "difference").c_str());
    return;
  }
  std::printf("%s: %s, %s, %s on %s\n", check.readsData() ? "index is complete" : "index structure is right",
              counted(check.walk->entryCount(), "entry").c_str(),
              counted(check.header().deletedCount, "deleted record").c_str(),
              counted(check.walk->nodeCount(), "node").c_str(), counted(check.walk->levelCount(), "level").c_str());
}

}  // namespace

int checkIndex(const CheckOptions& options) {
  Check check(options);
  RunContext& run = check.run;
  current = &check;
  run = RunContext{};
  run.modeName = "CHECK";
  run.progressEnabled = false;
  if (!options.quiet) run.outputStreamFd = ::fileno(stderr);

  StatusCode status = openIndexFile(check);
  if (status == status::success) status = readHeaderArea(check);
  if (status == status::success) status = check.readsData() ? prepareScan(check) : shareDataFile(check);
  if (status == status::success) status = readHeaderArea(check);  // again: from here on nobody rewrites the index
  if (status == status::success) status = compare(check);
  if (status == status::success || check.report.count() != 0) sayVerdict(check);

  CleanUpFiles(run, CleanUp::normal);
  FreeBuffers(run);
  closeFile(check.indexFd);
  const bool told = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  return status == status::success && check.report.count() == 0 && told ? 0 : 1;
}

}  // namespace tarnvale
