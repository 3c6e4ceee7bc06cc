#include "check/checked_files.h"

#include <fcntl.h>

#include <string>

#include "check/failure_texts.h"
#include "common/posix_file.h"
#include "isi/data_file_lock.h"
#include "isi/index_information.h"

namespace tarnvale {

namespace {

// A relative name is looked for here, and then beside the index. Calls `open` with the names until it returns true.
template <typename Open>
bool openHereOrBeside(std::string_view name, std::string_view indexName, Open open) {
  if (name.empty()) return false;
  if (open(name)) return true;
  const std::string_view directory = indexName.substr(0, indexName.rfind('/') + 1);
  FileName beside;
  return !name.starts_with('/') && !directory.empty() && beside.join(directory, name) && open(beside.view());
}

// The data file stays open once: closing any of its descriptors would give up the locks.
bool lockInput(const TrackedFile& input, Report& report) {
  const LockResult result = lockForReading(input.fd);
  if (result == LockResult::granted) return true;
  const char* const text =
      result == LockResult::accessRefused ? "The data file is in exclusive use: " : "The data file cannot be locked: ";
  report.fail(std::string(text).append(input.name));
  return false;
}

// A name that was found is not completed once more: a dot at its end says that it has no extension.
FileName completeName(std::string_view name) {
  FileName complete;
  const bool hasExtension = name.find('.', name.rfind('/') + 1) != std::string_view::npos;
  static_cast<void>(complete.join(name, hasExtension ? "" : "."));
  return complete;
}

}  // namespace

bool openCheckedIndex(const char* asWritten, const FileNaming& naming, TrackedFiles& files, Messages& messages,
                      Report& report) {
  TrackedFile& index = files[FileRole::index];
  if (openNamedIndex(naming, messages, asWritten, index.name, index.fd) != status::success) {
    report.fail(messages.buffer);
    return false;
  }
  if (isRegularFile(index.fd)) return true;
  report.fail("Can't open .isi file " + std::string(index.name) + ": it is no regular file");
  return false;
}

bool readIndex(IsiHandle& index, const TrackedFile& file, Report& report) {
  index = {};
  index.keylessAllowed = true;
  if (openIndex(index, file.fd) == IndexResult::done) return true;
  report.add("%s: its first 2048 bytes are not those of an index", file.name.c_str());
  return false;
}

bool openCheckedData(DataFile& data, const Settings& settings, const IsiHeader& header, const FileNaming& naming,
                     std::span<std::uint8_t> buffer, TrackedFiles& files, Messages& messages, Report& report) {
  StatusCode status = status::success;
  const auto open = [&](std::string_view name) {
    status = openDataFile(data, files, messages, settings, naming, name, IfMissing::fail, buffer);
    return status != status::dataFileNotOpened && status != status::dataNameUnresolved;
  };
  if (!open(settings.dataName)) {
    const FixedText<300> message = messages.buffer;
    const std::string_view indexName = files[FileRole::index].name;
    const bool opened = openHereOrBeside(textOf(header.dataFileName), indexName,
                                         [&](std::string_view name) { return open(completeName(name)); });
    if (!opened) messages.buffer = message;  // of the name that the user knows
  }
  if (status == status::success) return lockInput(files[FileRole::input], report);
  reportOpenFailure(status, messages, report);
  return false;
}

bool shareDataFile(const IsiHeader& header, TrackedFiles& files, Report& report) {
  TrackedFile& input = files[FileRole::input];
  const auto open = [&input](std::string_view name) { return input.name.assign(name) && openRegular(input, O_RDONLY); };
  if (!openHereOrBeside(textOf(header.dataFileName), files[FileRole::index].name, open)) return true;
  return lockInput(input, report);
}

}  // namespace tarnvale
