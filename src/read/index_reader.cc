// A reader keeps the locks of an application on the data file while it reads: no compaction in place can begin, and one
// that is under way is waited for. What was read of the index before is then read again.
//
// Without the data file there is no lock. Then the change counter tells whether a compaction came in between.
#include "read/index_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cmdline/environment.h"
#include "cmdline/file_names.h"
#include "common/character_case.h"
#include "common/messages.h"
#include "common/posix_file.h"
#include "common/tracked_files.h"
#include "isi/data_file_lock.h"
#include "isi/index_cursor.h"
#include "isi/index_information.h"
#include "read/header_text.h"
#include "read/record_reader.h"
#include "read/text_output.h"

namespace tarnvale {

namespace {

struct IndexReader {
  Messages messages;  // to the standard error
  TrackedFile index;
  TrackedFile data;  // closed where it is missing
  IsiHandle handle;
  IndexCursor cursor;
  TextOutput output{STDOUT_FILENO};
};

// --- failures -------------------------------------------------------------------------------------------------------

int fail(IndexReader& reader, std::initializer_list<MessagePiece> message) {
  static_cast<void>(reader.output.flush());  // what was found stands in front of the failure
  putComposed(reader.messages, message);
  putMessage(reader.messages, "\n");
  return read_status::failed;
}

int failWalk(IndexReader& reader, IndexResult result) {
  const std::string_view name = reader.index.name;
  if (result == IndexResult::notAnIndex || result == IndexResult::versionUnknown) {
    return fail(reader, {fileName(name), ": its first 2048 bytes are not those of an index"});
  }
  return fail(reader, {result == IndexResult::nodeNotRead ? "The tree cannot be read in ISI file: "
                                                          : "The tree is damaged in ISI file: ",
                       fileName(name)});
}

// A reader that has gone away has seen enough, and is told nothing.
int failOutput(IndexReader& reader) {
  if (errno == EPIPE) return read_status::failed;
  return fail(reader, {"Can't write the output: ", std::strerror(errno)});
}

int failRecord(IndexReader& reader, RecordResult result) {
  return fail(reader, {result == RecordResult::notRead ? "The data file cannot be read: "
                                                       : "The data file does not have the records of its index: ",
                       fileName(reader.data.name)});
}

// --- opening --------------------------------------------------------------------------------------------------------

// The name in the header; a relative one counts from here, and then from where the index is.
bool openNamedDataFile(IndexReader& reader) {
  TrackedFile& data = reader.data;
  const std::string_view stored = textOf(reader.handle.area.header.dataFileName);
  const std::string_view indexName = reader.index.name;
  if (data.name.assign(stored) && openRegular(data, O_RDONLY)) return true;
  if (stored.starts_with('/')) return false;
  return data.name.join(indexName.substr(0, indexName.rfind('/') + 1), stored) && openRegular(data, O_RDONLY);
}

// The data file stays open once: closing any of its descriptors would give up the lock.
int openAndLock(IndexReader& reader, const ReadOptions& options) {
  const Environment environment;
  const FileNaming naming = readFileNaming(environment);
  if (openNamedIndex(naming, reader.messages, options.indexName, reader.index.name, reader.index.fd) !=
      status::success) {
    putMessage(reader.messages, reader.messages.buffer);
    putMessage(reader.messages, "\n");
    return read_status::failed;
  }
  reader.handle.keylessAllowed = true;
  IndexResult result = openIndex(reader.handle, reader.index.fd);
  if (result != IndexResult::done) return failWalk(reader, result);
  if (openNamedDataFile(reader)) {
    if (lockForReading(reader.data.fd) != LockResult::granted) {
      return fail(reader, {"The data file is in exclusive use: ", fileName(reader.data.name)});
    }
    result = checkSpinCounter(reader.handle);
    if (result != IndexResult::done) return failWalk(reader, result);
  } else if (options.records) {
    return fail(reader, {"Can't open source file ", fileName(textOf(reader.handle.area.header.dataFileName))});
  }
  return read_status::found;
}

// --- the range ------------------------------------------------------------------------------------------------------

struct KeyRange {
  std::string from;  // empty: open, since all keys begin with it
  std::string to;
};

bool takeEnd(const std::optional<std::string>& asked, const ReadOptions& options, const IsiHandle& index,
             std::string& end) {
  end = asked.value_or("");
  if (end.size() > index.keyLength) return false;
  if (options.wholeKey) end.resize(index.keyLength, ' ');  // as the key of a record that ends before its columns
  if ((index.area.header.recordFlags & record_flag::upperCase) != 0) {
    std::ranges::transform(end, end.begin(), upperCaseChar);
  }
  return true;
}

std::string_view keyOf(const IndexReader& reader) {
  return {reinterpret_cast<const char*>(isiEntryKey(reader.cursor.entry)), reader.handle.keyLength};
}

IndexResult seekStart(IndexReader& reader, const KeyRange& range, bool backwards) {
  return backwards ? seekBehind(reader.cursor, reader.handle, range.to)
                   : seekBefore(reader.cursor, reader.handle, range.from);
}

// The next entry of the range; endOfIndex behind the last one.
IndexResult step(IndexReader& reader, const KeyRange& range, bool backwards) {
  const IndexResult result = backwards ? previousEntry(reader.cursor) : nextEntry(reader.cursor);
  if (result != IndexResult::done) return result;
  const std::string_view key = keyOf(reader);
  const bool outside =
      backwards ? key.substr(0, range.from.size()) < range.from : key.substr(0, range.to.size()) > range.to;
  return outside ? IndexResult::endOfIndex : IndexResult::done;
}

// --- writing --------------------------------------------------------------------------------------------------------

void putLine(TextOutput& output, const IsiHandle& index, const IsiEntryHead& head, std::string_view key, bool json) {
  const struct {
    std::string_view member;
    std::uint64_t number;
  } fields[] = {{"{\"position\":", head.position},
                {"\"lfa\":", lfaOf(index, head)},
                {"\"length\":", head.recordLength},
                {"\"duplicate\":", head.duplicateNumber}};
  for (const auto& [member, number] : fields) {
    if (json) output.put(member);
    output.putNumber(number);
    output.put(json ? ',' : '\t');
  }
  if (json) {
    output.putJsonText("key", key);
    output.put('}');
  } else {
    output.putEscaped(key);
  }
  output.put('\n');
}

// The record that was read is kept in `record`, whose memory serves the next one too.
RecordResult putEntry(IndexReader& reader, const ReadOptions& options, std::string& record) {
  const IsiEntryHead& head = entryHead(reader.cursor.entry);
  if (!options.records) {
    putLine(reader.output, reader.handle, head, keyOf(reader), options.json);
    return RecordResult::done;
  }
  const RecordResult result = readRecord(reader.handle, head, reader.data.fd, record);
  if (result == RecordResult::done) reader.output.put(record);
  return result;
}

int writeEntries(IndexReader& reader, const ReadOptions& options) {
  KeyRange range;
  if (!takeEnd(options.from, options, reader.handle, range.from) ||
      !takeEnd(options.to, options, reader.handle, range.to)) {
    return fail(reader, {"The key is longer than those of the index: ", fileName(reader.index.name)});
  }
  std::string record;
  IndexResult walked = seekStart(reader, range, options.backwards);
  std::uint64_t count = 0;
  for (; walked == IndexResult::done && count < options.limit; ++count) {
    walked = step(reader, range, options.backwards);
    if (walked != IndexResult::done) break;
    const RecordResult put = putEntry(reader, options, record);
    if (put != RecordResult::done) return failRecord(reader, put);
    if (!reader.output.flushWhenFull()) return failOutput(reader);
  }
  if (walked != IndexResult::done && walked != IndexResult::endOfIndex) return failWalk(reader, walked);
  return count > 0 ? read_status::found : read_status::none;
}

// True when the index was compacted although it could not be locked.
bool hasChanged(IndexReader& reader) {
  const std::uint32_t before = reader.handle.area.header.spinCounter;
  return !reader.data.isOpen() &&
         (checkSpinCounter(reader.handle) != IndexResult::done || reader.handle.area.header.spinCounter != before);
}

}  // namespace

int readIndex(const ReadOptions& options) {
  IndexReader reader;
  reader.messages.stream = stderr;
  int status = openAndLock(reader, options);
  if (status != read_status::found) return status;
  if (options.ask == ReadOptions::Ask::header) {
    putHeader(reader.output, reader.handle, options.json);
  } else {
    status = writeEntries(reader, options);
  }
  if (status == read_status::failed) return status;
  if (!reader.output.flush()) return failOutput(reader);
  if (hasChanged(reader)) return fail(reader, {"The index changed while it was read: ", fileName(reader.index.name)});
  return status;
}

}  // namespace tarnvale
