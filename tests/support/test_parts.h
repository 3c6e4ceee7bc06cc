// The parts of a run, each made in a line, for the tests of the floors below the driver.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "common/page_buffer.h"
#include "isi/tree_builder.h"
#include "sort/sorter.h"
#include "support/test_folder.h"

namespace tarnvale {

/// Messages that can be read back.
struct TestMessages : Messages {
  TestMessages() {
    stream = ::open_memstream(&text_, &size_);
    progressEnabled = false;
  }
  ~TestMessages() {
    std::fclose(stream);
    std::free(text_);
  }
  TestMessages(TestMessages&&) = delete;
  [[nodiscard]] std::string text() const { return {text_, size_}; }  // messages are flushed one by one

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
};

/// Files that are closed at the end of the test.
struct TestFiles : TrackedFiles {
  ~TestFiles() { releaseAllFiles(*this, RunEnd::failure); }
};

/// A sorter with its memory; only the key length is still to be told.
struct TestSorter : Sorter {
  explicit TestSorter(std::uint32_t areaSize = 1U << 20, const SortLimits& sortLimits = {});
  bool start(std::uint32_t keyLength, Messages& messages);

  std::vector<std::uint8_t> areaMemory;
  SortMemory memory;
};

/// A data file in a folder of its own, opened for a scan as a build of out.isi would.
struct TestScan {
  /// Makes the data file. `options` without the hyphen, `recordLength` as its field of the command line.
  StatusCode open(std::string_view bytes, const std::string& options, const std::string& recordLength = "");
  /// Opens the data.txt that the test has made.
  StatusCode openExisting(const std::string& options, const std::string& recordLength = "");

  TestFolder folder;
  TestMessages messages;
  TestFiles files;
  Settings settings;
  DataFile data;
  Scanner scanner;
  PageBuffer buffer = allocatePages(scanBufferSize);
};

/// A build of out.isi.
struct TestBuild : TestScan {
  /// The code of what failed.
  StatusCode build(std::string_view bytes, const std::string& options, const std::string& recordLength = "");
  /// Builds over the open data file.
  StatusCode buildOpened();
  [[nodiscard]] std::string index() const { return folder.read("out.isi"); }

  TestSorter sorter;
  IndexBuilder builder;
};

}  // namespace tarnvale
