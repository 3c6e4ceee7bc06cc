// What the fuzz targets share: their door, a file that is filled anew for each input, and the rules that must hold.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

namespace tarnvale {

/// What the target does with an input.
void tryInput(std::string_view input);

inline std::uint8_t byteAt(std::string_view input, std::size_t i) { return static_cast<std::uint8_t>(input[i]); }

/// Ends the process, which the fuzzer takes for a finding, unless the rule holds.
inline void demand(bool holds, const char* rule) {
  if (holds) return;
  ::dprintf(STDERR_FILENO, "Does not hold: %s\n", rule);
  std::abort();
}

/// A file in the folder that TMPDIR names; it stays there, so whoever starts a target gives it a folder of its own.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& name, std::string_view bytes = {})
      : name_(folder() + "/" + name), fd_(::open(name_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    fill(bytes);
  }

  void fill(std::string_view bytes) const {
    const bool filled =
        ::ftruncate(fd_, 0) == 0 && ::pwrite(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    demand(filled, "a scratch file can be filled");
  }

  [[nodiscard]] int fd() const { return fd_; }
  [[nodiscard]] const std::string& name() const { return name_; }

  [[nodiscard]] static std::string folder() { return std::filesystem::temp_directory_path(); }

 private:
  std::string name_;
  int fd_;
};

}  // namespace tarnvale

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  tarnvale::tryInput({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
