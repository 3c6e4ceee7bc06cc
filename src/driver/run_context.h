// RunContext: the one record of a run, put together from the parts that the floors below declare.
//
// It is static and trivially destructible, so a run may end at any instruction by _exit. Every default is written at
// its field; the large buffers have none, so that a run which does not use them takes no memory for them. Below the
// driver nobody knows it.
#pragma once

#include <type_traits>

#include "cmdline/settings.h"
#include "common/messages.h"
#include "common/tracked_files.h"
#include "data/data_file.h"
#include "data/scanner.h"
#include "driver/leading_options.h"
#include "isi/compaction.h"
#include "isi/tree_builder.h"
#include "sort/sorter.h"

namespace tarnvale {

struct RunContext {
  Messages messages;
  TrackedFiles files;  // all that clean-up and the interrupt handler need
  LeadingOptions options;
  Settings settings;  // of the command line that is carried out
  DataFile data;
  Scanner scanner;
  Sorter sorter;
  IndexBuilder builder;
  Compaction compaction;
};

static_assert(std::is_trivially_destructible_v<RunContext>);
static_assert(std::is_trivially_copyable_v<RunContext>);

}  // namespace tarnvale
