// A run for the tests of routines below the driver: buffers, collected messages, and a folder for its files.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/run_context.h"
#include "support/test_folder.h"

namespace tarnvale {

class TestRun {
 public:
  explicit TestRun(std::uint32_t sortAreaSize = 1U << 20);
  ~TestRun();
  TestRun(const TestRun&) = delete;
  TestRun& operator=(const TestRun&) = delete;

  RunContext& operator*() { return *run_; }
  RunContext* operator->() { return run_.get(); }
  [[nodiscard]] std::string messages();

  /// Makes a data file of the bytes and opens the files of a build of out.isi with these options.
  StatusCode open(std::string_view data, const std::string& options, const std::string& recordLength = "");
  /// Builds out.isi over a data file of the bytes.
  StatusCode build(std::string_view data, const std::string& options, const std::string& recordLength = "");
  /// Opens two empty work files in the folder, as the command line would.
  void openWorkFiles();

  TestFolder folder;

 private:
  std::unique_ptr<RunContext> run_;
  char* text_ = nullptr;
  std::size_t textSize_ = 0;
  std::FILE* stream_ = nullptr;
};

/// What the routines that the run calls upwards were given, since the last TestRun was made.
inline std::vector<std::uint64_t> deletedLfas;
inline std::vector<std::string> deliveredEntries;  // of the merge, as bytes
inline std::size_t failingDelivery = 0;            // the merge's handler fails at this call; 0: never
inline constexpr StatusCode deliveryFailed = -77;

}  // namespace tarnvale
