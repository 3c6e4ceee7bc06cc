// Records fetched from the data file, as the entries of an index name them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "isi/isi_handle.h"

namespace tarnvale {

/// An end-of-record mark that the flags of a header tell.
struct NamedMark {
  std::string_view bytes;  // none for binary records without a mark
  const char* name;
};

[[nodiscard]] NamedMark endOfRecordOf(std::uint8_t recordFlags);

enum class RecordResult : std::uint8_t {
  done,
  notRead,  // the system reports a failure
  noRecord  // there is no record of this length at its place: data file and index do not belong together
};

/// Reads the record of an entry. It ends with its mark, also where that is missing at the end of the data file.
[[nodiscard]] RecordResult readRecord(const IsiHandle& index, const IsiEntryHead& entry, int dataFd,
                                      std::string& record);

}  // namespace tarnvale
