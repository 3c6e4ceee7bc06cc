// Both programs, run by the shell in a test's folder.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/test_folder.h"

namespace tarnvale {

struct CheckOutcome {
  int exitStatus;
  std::string output;  // of both streams

  [[nodiscard]] bool says(std::string_view text) const { return output.find(text) != std::string::npos; }
};

/// Runs shell commands in the folder; $T and $C are the two programs, work files go to "tmp".
inline CheckOutcome run(const TestFolder& folder, const std::string& commands) {
  const std::string script =
      "cd " + folder.path() +
      "; TMPDIR=$PWD/tmp; export TMPDIR; T=" TARNVALE_PROGRAM "; C=" TARNVALE_CHECK_PROGRAM "; exec 2>&1; " + commands;
  CheckOutcome outcome{};
  std::FILE* const pipe = ::popen(script.c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) outcome.output += static_cast<char>(c);
  const int state = ::pclose(pipe);
  outcome.exitStatus = WIFEXITED(state) ? WEXITSTATUS(state) : -1;
  return outcome;
}

/// Both checks must accept the index, and leave everything as it is.
inline void expectSound(const TestFolder& folder, const std::string& index, const std::string& what) {
  SCOPED_TRACE(what);
  const std::string before = folder.names();
  const std::string bytes = folder.read(index);
  const CheckOutcome whole = run(folder, "$C " + index);
  EXPECT_EQ(whole.exitStatus, 0) << whole.output;
  EXPECT_TRUE(whole.output.starts_with("index is complete: ")) << whole.output;
  const CheckOutcome alone = run(folder, "$C -s " + index);
  EXPECT_EQ(alone.exitStatus, 0) << alone.output;
  EXPECT_TRUE(alone.output.starts_with("index structure is right: ")) << alone.output;
  EXPECT_EQ(folder.names(), before);
  EXPECT_TRUE(folder.read(index) == bytes);
}

}  // namespace tarnvale
