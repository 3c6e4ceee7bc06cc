// What the fuzz targets share: a file that is filled anew for each input, and the rules that must hold.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace tarnvale {

/// Ends the process, which the fuzzer takes for a finding, unless the rule holds.
inline void demand(bool holds, const char* rule) {
  if (holds) return;
  ::dprintf(STDERR_FILENO, "Does not hold: %s\n", rule);
  std::abort();
}

/// A file in the folder that TMPDIR names; it stays there, so whoever starts a target gives it a folder of its own.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& name) : name_(folder() + "/" + name) {
    fd_ = ::open(name_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    demand(fd_ >= 0, "the folder for scratch files can be written to");
  }

  void fill(std::string_view bytes) const {
    demand(::ftruncate(fd_, 0) == 0, "a scratch file can be emptied");
    const auto written = ::pwrite(fd_, bytes.data(), bytes.size(), 0);
    demand(written == static_cast<ssize_t>(bytes.size()), "a scratch file can be filled");
  }

  [[nodiscard]] int fd() const { return fd_; }
  [[nodiscard]] const std::string& name() const { return name_; }

  [[nodiscard]] static std::string folder() {
    const char* const fromProcess = std::getenv("TMPDIR");
    return fromProcess != nullptr ? fromProcess : "/tmp";
  }

 private:
  std::string name_;
  int fd_;
};

}  // namespace tarnvale
