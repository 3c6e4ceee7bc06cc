// Both programs, run by the shell in a test's folder.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "support/program_run.h"

namespace tarnvale {

/// Runs shell commands in the folder; $T and $C are the two programs. The output is that of both streams.
inline ProgramResult run(const TestFolder& folder, const std::string& commands) {
  const std::string script = "T=" TARNVALE_PROGRAM "; C=" TARNVALE_CHECK_PROGRAM "; exec 2>&1; " + commands;
  return runProgram(folder, "", [&] { ::execl("/bin/sh", "sh", "-c", script.c_str(), nullptr); });
}

/// Writes a file that is there anew. If it were only emptied before, the file system would sync it.
inline void rewrite(const TestFolder& folder, const std::string& name, const std::string& bytes) {
  std::remove(folder.path(name).c_str());
  folder.write(name, bytes);
}

/// Both checks must accept the index, and leave everything as it is.
inline void expectSound(const TestFolder& folder, const std::string& index, const std::string& what) {
  SCOPED_TRACE(what);
  const std::string before = folder.names();
  const std::string bytes = folder.read(index);
  const ProgramResult result = run(folder, "$C " + index + " && $C -s " + index);
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_TRUE(result.output.starts_with("index is complete: ")) << result.output;
  EXPECT_TRUE(result.says("\nindex structure is right: ")) << result.output;
  EXPECT_EQ(folder.names(), before);
  EXPECT_TRUE(folder.read(index) == bytes);
}

}  // namespace tarnvale
