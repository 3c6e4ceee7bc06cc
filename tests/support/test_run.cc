#include "support/test_run.h"

#include <cstdlib>

#include "cmdline/command_line.h"
#include "cmdline/work_files.h"
#include "common/posix_file.h"
#include "driver/clean_up.h"
#include "isi/data_file_lock.h"
#include "isi/deleted_list.h"
#include "isi/error_file.h"
#include "isi/index_build.h"
#include "isi/tree_builder.h"
#include "sort/input_buffer.h"
#include "sort/open_files.h"
#include "sort/sort_phase.h"

namespace tarnvale {

TestRun::TestRun(std::uint32_t sortAreaSize)
    : run_(std::make_unique<RunContext>()), stream_(::open_memstream(&text_, &textSize_)) {
  RunContext& run = *run_;
  run.outputStream = stream_;
  run.progressEnabled = false;
  run.workIoBuffer = static_cast<std::uint8_t*>(std::malloc(workIoBufferSize));
  run.workIoPosition = run.workIoBuffer;
  run.inputBuffer = static_cast<std::uint8_t*>(std::malloc(inputBufferSize));
  run.trainTable = static_cast<std::uint64_t*>(std::calloc(run.maxSortTrains, sizeof(std::uint64_t)));
  run.sortAreaBase = static_cast<std::uint8_t*>(std::malloc(sortAreaSize + 8));
  run.sortAreaSize = sortAreaSize;
  deletedLfas.clear();
  deliveredEntries.clear();
  failingDelivery = 0;
  run.openRunFiles = OpenRunFiles;
  run.deletedRecordCallback = [](RunContext& context) {
    deletedLfas.push_back(context.currentLfa);
    return status::success;
  };
  run.mergeOutputCallback = [](RunContext& context, const std::uint8_t* entry) {
    deliveredEntries.emplace_back(reinterpret_cast<const char*>(entry), context.sortEntrySize);
    return deliveredEntries.size() == failingDelivery ? deliveryFailed : status::success;
  };
}

TestRun::~TestRun() {
  closeFile(run_->compactLockFd);
  delete run_->dataFileLock;
  CleanUpFiles(*run_, CleanUp::failure);
  FreeBuffers(*run_);
  std::free(run_->sortAreaBase);
  std::fclose(stream_);
  std::free(text_);
}

std::string TestRun::messages() {
  std::fflush(stream_);
  return {text_, textSize_};
}

StatusCode TestRun::open(std::string_view data, const std::string& options, const std::string& recordLength) {
  const std::string name = folder.write("data.txt", data);
  return parseCommandLine(*run_, name + ",out.isi," + recordLength + "," + folder.path("tmp") + " -" + options);
}

StatusCode TestRun::build(std::string_view data, const std::string& options, const std::string& recordLength) {
  run_->mergeOutputCallback = WriteTagRecord;
  run_->deletedRecordCallback = appendDeletedRecord;
  StatusCode status = open(data, options, recordLength);
  if (status == status::success) status = divideSortArea(*run_, run_->keyLength);
  if (status == status::success) status = buildIndex(*run_);
  closeErrorFile(*run_);
  return status;
}

void TestRun::openWorkFiles() {
  if (!run_->tempPath.assign(folder.path("tmp")) || createWorkFiles(*run_) != status::success) std::abort();
}

}  // namespace tarnvale
