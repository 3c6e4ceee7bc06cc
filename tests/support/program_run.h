// The real programs, started in a test's folder.
#pragma once

#include <csignal>
#include <functional>
#include <string>

#include "support/test_folder.h"

namespace tarnvale {

struct ProgramResult {
  int exitStatus;  // -1: a signal ended it
  std::string output;

  [[nodiscard]] bool says(std::string_view text) const { return output.find(text) != std::string::npos; }
};

/// A started program; its messages come through a pipe, its work files go to "tmp".
class ProgramRun {
 public:
  /// Arguments are separated by single blanks. `prepare` is called in the new process.
  ProgramRun(const TestFolder& folder, const std::string& arguments, const std::function<void()>& prepare = {},
             const char* program = TARNVALE_PROGRAM);

  /// Waits until this many bytes of messages stand in the pipe, whose room is 65,536 bytes.
  void waitForOutput(int bytes) const;
  void interrupt() const { ::kill(pid_, SIGINT); }
  /// Reads the messages and waits for the end.
  [[nodiscard]] ProgramResult finish() const;

 private:
  int pid_ = -1;
  int output_ = -1;
};

ProgramResult runProgram(const TestFolder& folder, const std::string& arguments,
                         const std::function<void()>& prepare = {}, const char* program = TARNVALE_PROGRAM);

/// Runs a program whose standard streams are a terminal, which turns each "\n" into "\r\n".
ProgramResult runAtTerminal(const TestFolder& folder, const std::string& arguments,
                            const char* program = TARNVALE_PROGRAM);

}  // namespace tarnvale
