#include "support/test_folder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace tarnvale {

TestFolder::TestFolder() : folder_("/tmp/tarnvale-XXXXXX") {
  if (::mkdtemp(folder_.data()) == nullptr) std::abort();
  std::filesystem::create_directory(path("tmp"));
}

TestFolder::~TestFolder() { std::filesystem::remove_all(folder_); }

std::string TestFolder::write(std::string_view name, std::string_view bytes) const {
  std::ofstream(path(name), std::ios::binary) << bytes;
  return path(name);
}

std::string TestFolder::read(std::string_view name) const {
  std::ostringstream bytes;
  bytes << std::ifstream(path(name), std::ios::binary).rdbuf();
  return bytes.str();
}

std::string TestFolder::names() const {
  std::set<std::string> found;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_)) {
    if (!entry.is_directory()) found.insert(entry.path().string().substr(folder_.size() + 1));
  }
  std::string names;
  for (const std::string& name : found) names += (names.empty() ? "" : " ") + name;
  return names;
}

}  // namespace tarnvale
