// A folder of its own for a test, removed at its end, and whole files in it.
#pragma once

#include <string>
#include <string_view>

namespace tarnvale {

class TestFolder {
 public:
  TestFolder();  // holds an empty folder "tmp" for work files
  ~TestFolder();
  TestFolder(TestFolder&&) = delete;

  [[nodiscard]] std::string path(std::string_view name = "") const { return folder_ + "/" + std::string(name); }
  /// The path of the file written.
  std::string write(std::string_view name, std::string_view bytes) const;
  [[nodiscard]] std::string read(std::string_view name) const;
  /// The names of all files, sorted, one blank between them.
  [[nodiscard]] std::string names() const;

 private:
  std::string folder_;
};

}  // namespace tarnvale
