#include "driver/message_stream.h"

#include <unistd.h>

#include <cstring>

#include "cmdline/character_case.h"
#include "common/output.h"

namespace tarnvale {

namespace {

constexpr const char* noticeText = "Builds, shows and compacts ISAM index files.";

void useLogFile(RunContext& run, const char* name, const char* mode) {
  std::FILE* const log = std::fopen(name, mode);
  if (log == nullptr) return;
  run.outputStream = log;
  run.outputStreamFd = ::fileno(log);
  run.logOpened = true;
}

}  // namespace

void openLog(RunContext& run, Arguments& arguments) {
  if (arguments.size() < 2 || arguments[0][0] != '-') return;
  const char letter = lowerCaseChar(arguments[0][1]);
  if (letter != 'l' && letter != 'q') return;
  const char* name = arguments[0] + 2;
  arguments = arguments.subspan(1);
  if (*name == '\0') {
    name = arguments[0];
    arguments = arguments.subspan(1);
  }
  if (*name != '-') useLogFile(run, name, letter == 'l' ? "we" : "ae");
}

void startMessages(RunContext& run, Arguments arguments) {
  if (run.outputStream == nullptr) return;
  std::setvbuf(run.outputStream, nullptr, _IONBF, 0);
  if (::isatty(run.outputStreamFd) == 0) {
    run.progressEnabled = false;
    for (const char* const argument : arguments) {
      PutMessage(run, argument);
      PutMessage(run, " ");
    }
    PutMessage(run, "\n");
  }
  putComposed(run, {"\nMORVANE ", run.modeName, " COMMAND   ", versionText});
  putComposed(run, {"\n", noticeText, "\n"});
}

}  // namespace tarnvale
