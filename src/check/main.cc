// The entry of tarnvale-check: its options.
#include <getopt.h>

#include <cstdio>

#include "check/index_check.h"
#include "common/interrupt.h"
#include "common/version.h"

namespace {

namespace check_status = tarnvale::check_status;

constexpr const char* usageText =
    "Usage: tarnvale-check [-q] [-s] INDEX\n"
    "Compares an index file with its data file and says where they differ.\n"
    "\n"
    "  -q         say nothing, only set the exit status\n"
    "  -s         check the structure of the index; the data file is not read\n"
    "  -h         show this text\n"
    "  --version  show the version\n"
    "\n"
    "Exit status: 0 the index is right, 1 it is wrong, 2 it could not be checked.\n";

constexpr option longOptions[] = {
    {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {nullptr, 0, nullptr, 0}};

int statusOfOutput(int printed) { return printed < 0 || std::fflush(stdout) != 0 ? check_status::notChecked : 0; }

}  // namespace

int main(int argc, char** argv) {
  static tarnvale::TrackedFiles files;  // static: an interrupt may end the process at any time
  tarnvale::openStandardDescriptors();
  tarnvale::installInterruptHandler(files, check_status::notChecked);
  tarnvale::CheckOptions options;
  for (int letter = 0; (letter = ::getopt_long(argc, argv, "qsh", longOptions, nullptr)) != -1;) {
    switch (letter) {
      case 'q':
        options.quiet = true;
        break;
      case 's':
        options.structureOnly = true;
        break;
      case 'h':
        return statusOfOutput(std::fputs(usageText, stdout));
      case 'V':
        return statusOfOutput(std::printf("tarnvale-check  %s\n", tarnvale::versionText));
      default:
        return check_status::notChecked;  // getopt_long has said what is wrong
    }
  }
  if (argc - optind != 1) {
    std::fputs(usageText, stderr);
    return check_status::notChecked;
  }
  options.indexName = argv[optind];
  return tarnvale::checkIndex(options, files);
}
