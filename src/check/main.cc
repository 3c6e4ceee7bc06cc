// The entry of tarnvale-check: its options.
#include <getopt.h>

#include <cstdio>

#include "check/index_check.h"
#include "driver/interrupt.h"
#include "driver/message_stream.h"

namespace {

constexpr const char* usageText =
    "Usage: tarnvale-check [-q] [-s | -d] INDEX\n"
    "Holds an index file against its data file and says where they differ.\n"
    "\n"
    "  -q         say nothing, only set the exit status\n"
    "  -s         check the structure of the index; the data file is not read\n"
    "  -d         write the entries in key order, one a line: position, LFA, record\n"
    "             length, duplicate number and key, separated by TABs\n"
    "  -h         show this text\n"
    "  --version  show the version\n"
    "\n"
    "Exit status: 0 the index is right, 1 it is not, or it could not be checked.\n";

constexpr option longOptions[] = {
    {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {nullptr, 0, nullptr, 0}};

}  // namespace

int main(int argc, char** argv) {
  tarnvale::openStandardDescriptors();
  tarnvale::installInterruptHandler();
  tarnvale::CheckOptions options;
  for (int letter = 0; (letter = ::getopt_long(argc, argv, "qsdh", longOptions, nullptr)) != -1;) {
    switch (letter) {
      case 'q':
        options.quiet = true;
        break;
      case 's':
        options.structureOnly = true;
        break;
      case 'd':
        options.dump = true;
        break;
      case 'h':
        return std::fputs(usageText, stdout) < 0 ? 1 : 0;
      case 'V':
        return std::printf("tarnvale-check  %s\n", tarnvale::versionText) < 0 ? 1 : 0;
      default:
        return 1;  // getopt_long has said what is wrong
    }
  }
  if (argc - optind != 1) {
    std::fputs(usageText, stderr);
    return 1;
  }
  options.indexName = argv[optind];
  return tarnvale::checkIndex(options);
}
