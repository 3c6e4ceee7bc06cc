#include "cmdline/work_files.h"

#include <unistd.h>

#include <cstdlib>

#include "cmdline/settings.h"
#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::string_view nameTemplate = "/dsortXXXXXX";

bool createWorkFile(RunContext& run, FixedText<270>& name, int& fd, std::string_view directory, const char* number) {
  FixedText<270> tried;
  if (!tried.join(directory, nameTemplate)) return false;
  {
    const InterruptHold hold;
    fd = ::mkstemp(tried.data());
    name = tried;
  }
  if (fd < 0) return false;
  if (run.debugMode) putComposed(run, {"Created ", fileName(name), " as temp file ", number, "\n"});
  return true;
}

void removeWorkFile(int& fd, const char* name, bool keep) {
  if (fd < 0) return;
  closeFile(fd);
  if (!keep) ::unlink(name);
}

}  // namespace

StatusCode createWorkFiles(RunContext& run) {
  if (run.debugMode) putComposed(run, {"Temporary file path is:", fileName(run.tempPath), "\n"});
  const bool fromEnvironment = run.tempPath.empty();
  if (fromEnvironment && !run.tempPath.assign(lookupSetting(run, "TMPDIR").value_or("/tmp"))) {
    return status::workFileNotCreated;
  }
  if (!createWorkFile(run, run.tempName1, run.tempFd1, run.tempPath, "1")) return status::workFileNotCreated;
  run.mergeOutputFd = run.tempFd1;
  std::string_view directory = run.tempPath;
  if (fromEnvironment && directory.ends_with('/')) directory.remove_suffix(1);
  if (!createWorkFile(run, run.tempName2, run.tempFd2, directory, "2")) return status::workFileNotCreated;
  run.mergeInputFd = run.tempFd2;
  return status::success;
}

void removeWorkFiles(RunContext& run) {
  removeWorkFile(run.tempFd1, run.tempName1.c_str(), run.debugMode);
  removeWorkFile(run.tempFd2, run.tempName2.c_str(), run.debugMode);
}

}  // namespace tarnvale
