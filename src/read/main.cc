// The entry of tarnvale-read.
#include <cstdio>

#include "common/interrupt.h"
#include "common/version.h"
#include "read/index_reader.h"

namespace {

using tarnvale::ReadOptions;

int show(const std::string& text) {
  const bool shown = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  return shown ? tarnvale::read_status::found : tarnvale::read_status::failed;
}

}  // namespace

int main(int argc, char** argv) {
  tarnvale::openStandardDescriptors();
  ReadOptions options;
  if (!tarnvale::parseReadOptions(argc, argv, options)) return tarnvale::read_status::failed;
  if (options.ask == ReadOptions::Ask::help) return show(tarnvale::readHelp());
  if (options.ask == ReadOptions::Ask::version)
    return show(std::string("tarnvale-read  ") + tarnvale::versionText + "\n");
  return tarnvale::readIndex(options);
}
