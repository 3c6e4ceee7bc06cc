// The process entry.
#include <cstdio>

#include "common/interrupt.h"
#include "driver/run_utility.h"

namespace {

tarnvale::RunContext theRun;  // static: an interrupt may end the process while it is in use

}  // namespace

int main(int argc, char** argv) {
  tarnvale::openStandardDescriptors();
  tarnvale::installInterruptHandler(theRun.files);
  return tarnvale::runUtility(theRun, argc, argv, stdout) == 0 ? 0 : 1;
}
