// The process entry.
#include <cstdio>

#include "driver/interrupt.h"
#include "driver/run_utility.h"

int main(int argc, char** argv) {
  tarnvale::openStandardDescriptors();
  tarnvale::installInterruptHandler();
  return tarnvale::RunUtility(argc, argv, stdout) == 0 ? 0 : 1;
}
