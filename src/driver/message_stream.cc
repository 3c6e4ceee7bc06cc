#include "driver/message_stream.h"

#include <unistd.h>

#include "common/character_case.h"
#include "common/version.h"
#include "driver/usage.h"

namespace tarnvale {

namespace {

constexpr const char* noticeText = "Builds, shows and compacts ISAM index files.";

void useLogFile(Messages& messages, const char* name, const char* mode) {
  std::FILE* const log = std::fopen(name, mode);
  if (log == nullptr) return;
  messages.stream = log;
  messages.logOpened = true;
}

}  // namespace

bool answerQuestion(Arguments arguments, std::FILE* output) {
  const std::string_view question = arguments.size() == 2 ? arguments[1] : "";
  Messages messages;
  messages.stream = output;
  if (question == "--help") showUsage(messages);
  if (question == "--version") putComposed(messages, {"tarnvale  ", versionText, "\n"});
  return question == "--help" || question == "--version";
}

void openMessages(Messages& messages, std::FILE* output, Arguments& arguments) {
  messages.stream = output;
  if (arguments.size() < 2 || arguments[0][0] != '-') return;
  const char letter = lowerCaseChar(arguments[0][1]);
  if (letter != 'l' && letter != 'q') return;
  const char* name = arguments[0] + 2;
  arguments = arguments.subspan(1);
  if (*name == '\0') {
    name = arguments[0];
    arguments = arguments.subspan(1);
  }
  if (*name != '-') useLogFile(messages, name, letter == 'l' ? "we" : "ae");
}

void startMessages(Messages& messages, Arguments arguments) {
  std::setvbuf(messages.stream, nullptr, _IONBF, 0);
  if (::isatty(::fileno(messages.stream)) == 0) {
    messages.progressEnabled = false;
    for (const char* const argument : arguments) {
      putMessage(messages, argument);
      putMessage(messages, " ");
    }
    putMessage(messages, "\n");
  }
  putComposed(messages, {"\nMORVANE ", modeName, " COMMAND   ", versionText});
  putComposed(messages, {"\n", noticeText, "\n"});
}

}  // namespace tarnvale
