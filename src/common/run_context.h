// RunContext: all state of one run, grouped by the floor that owns it.
//
// There is one static record. It is plain and trivially destructible, so a run may end at any instruction by _exit, and
// the interrupt handler may read its names and handles. Every default is written at its field: a new run starts by
// assigning an empty record. File handles are -1 when closed, and each close marks them so.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <type_traits>

#include "common/fixed_text.h"
#include "common/records.h"
#include "common/sort_entry.h"
#include "common/status_code.h"

namespace tarnvale {

struct RunContext;
struct DataFileLock;

using FileName = FixedText<512>;

inline constexpr std::size_t workIoBufferSize = 262144;
inline constexpr std::size_t maxCommandLine = 576;        // characters of the joined command line
inline constexpr std::size_t maxStoredCommandLine = 527;  // characters that an index header keeps

/// A file name taken apart; the directory ends with "/", the extension begins with "." when they are not empty. Each
/// part can hold what a name of 255 characters can hold; the directory may also come from the search path.
struct FileNameParts {
  FixedText<3> drive;  // always empty on this platform
  FileName directory;
  FixedText<256> baseName;
  FixedText<256> extension;
};

/// driver: the message stream and the memory budget.
struct DriverState {
  std::FILE* outputStream = nullptr;  // null once the log is closed: messages are dropped
  int outputStreamFd = -1;            // its descriptor, for the interrupt handler
  bool logOpened = false;             // the stream is a log file that CloseLog closes
  bool progressEnabled = true;        // off when the stream is not a terminal
  bool debugMode = false;             // diagnostics of every floor; the work files are kept
  FixedText<260> iniFileName;         // empty: settings come from the environment alone
  std::uint32_t maxMemory = 1048576;  // bytes asked for the sort area
  std::uint32_t maxSortTrains = 20000;
  std::int32_t sortMethod = 0;  // 0 shell sort, 1 quicksort
  const char* modeName = "INDEX";
  FixedText<300> messageBuffer;  // where messages with values are composed
  FileName scratchPath;          // names tried while a file is looked for
  FixedText<maxCommandLine + 1> commandLineBuffer;

  // Routines that lower floors call upwards; the driver sets them before the command line is parsed.
  StatusCode (*openRunFiles)(RunContext&) = nullptr;
  StatusCode (*mergeOutputCallback)(RunContext&, const std::uint8_t* entry) = nullptr;
  StatusCode (*deletedRecordCallback)(RunContext&) = nullptr;
};

/// The files of a run and their names: what clean-up and the interrupt handler work on. A file that the run creates is
/// recorded here while interrupts are held.
struct RunFiles {
  FileName inputName;      // data file; in a display, reindex or compaction the index file
  FileName outputName;     // index file
  FileName errorFileName;  // list of duplicate keys
  FixedText<270> tempName1;
  FixedText<270> tempName2;
  int inputFd = -1;
  int outputFd = -1;  // equal to inputFd when a compaction works in place
  int errorFileFd = -1;
  int tempFd1 = -1;
  int tempFd2 = -1;
  bool dataFileCreated = false;  // this run made the empty data file
};

/// cmdline: what the user asked for. Reset as a whole before a stored command line is parsed.
struct CommandLineState {
  FixedText<maxCommandLine + 32> storedCommandLine;  // data,isi,rest of the command line
  FixedText<256> tempPath;                           // directory of the work files, empty: TMPDIR or /tmp
  char* searchPath = nullptr;                        // owned; null when no search path is set
  bool foldFileNameCase = false;                     // rebuilt file names are folded to lower case
  char extensionSeparator = '.';
  FixedText<6> defaultDataExtension;   // set to .TXT when a parse starts
  FixedText<6> defaultIndexExtension;  // set to .ISI when a parse starts

  std::uint32_t compactOptions = 0;  // compact_option bits, 0: no compaction
  bool compactLocking = false;       // share the data file with running applications
  bool displayInfoRequested = false;
  bool reindexRequested = false;
  bool discardPathInHeader = false;  // the header keeps the bare data file name
  bool noDriveInHeader = false;
  bool tabExpansion = true;  // a TAB stands for blanks up to the next multiple of 8
  bool errorFileWanted = false;
  bool noDuplicates = false;
  bool ignoreDuplicatesForNodup = false;  // duplicate keys are dropped instead of failing
  bool quietDuplicates = false;           // and not reported
  std::uint32_t maxFillPercent = 100;
  std::uint8_t osType = 0;    // indexFlags bits: 0, 8 or 16
  bool quitIfNoData = false;  // a missing data file is a failure instead of being created
  bool variableLengthAllowed = false;
  bool writeAllAtEnd = false;
  bool spaceCompressionAllowed = false;
  bool recordNumberAddressing = true;  // the index addresses records by number instead of by byte offset
  bool binaryRecords = false;
  bool binaryWithEor = false;
  bool recordCountEnabled = true;
  bool upperCaseKeys = false;

  std::array<KeySpec, maxKeySpecs> keySpecs{};
  std::uint32_t keySpecCount = 0;
  std::array<ColumnEntry, maxColumnEntries + 2> columnTable{};  // room for one entry too many and the closing one
  std::uint32_t columnEntryCount = 0;
  std::uint32_t keyLength = 0;  // key bytes in the column table

  char primaryMode = 0;  // the last p option: 0 none, 'p' simple form, 'P' expression form
  std::uint32_t primaryOptionCount = 0;
  std::array<PrimaryCondition, maxPrimaryOptions> primaryConditions{};  // ascending by position
  std::uint32_t primaryConditionCount = 0;
  std::array<SelectionTerm, maxSelectionTerms + 1> selectionTable{};  // ended by a term of kind end
  std::uint32_t selectionTermCount = 0;
  FixedText<maxCommandLine + 1> selectionText;  // the strings of the terms
};

namespace compact_option {
inline constexpr std::uint32_t compaction = 1;
inline constexpr std::uint32_t keepStoredCommand = 2;  // c=0
inline constexpr std::uint32_t backupMade = 4;         // set while the backup beside an index in place is whole
}  // namespace compact_option

/// sort: the data file's format and the scan. Reset together with CommandLineState.
struct InputState {
  FileNameParts dataFileParts;
  FileNameParts indexFileParts;
  std::uint8_t eorLength = 1;  // bytes of the end-of-record mark: 0, 1 or 2
  std::uint8_t eorChar1 = 0x0A;
  std::uint8_t eorChar2 = 0;           // 0 when the mark has one byte
  std::uint8_t eorCode = 0x80;         // recordFlags bits of the mark
  std::uint8_t binaryEorLength = 1;    // with option g: the mark that ends each record
  std::int32_t recordLengthSpec = 0;   // as given; once the files are open, with the mark
  std::int32_t foundRecordLength = 0;  // record size in effect, with the mark; 0 while unknown

  const std::uint8_t* scanCursor = nullptr;    // next byte of the block
  const std::uint8_t* blockEnd = nullptr;      // behind the last byte that counts
  const std::uint8_t* readAheadEnd = nullptr;  // behind the last byte in memory: at most 299 bytes further
  const std::uint8_t* nextTab = nullptr;       // no TAB between the scan cursor and here
  std::uint64_t inputReadPosition = 0;         // data file offset of the next block
  std::int32_t lastBlockSize = 0;              // bytes that the last fillInputBuffer delivered
  std::uint64_t currentLfa = 0;                // data file offset of the byte under the scan cursor
  std::uint8_t* currentEntry = nullptr;        // slot of the sort area that the record fills
  std::uint32_t entriesLeftInTrain = 0;
  const ColumnEntry* columnCursor = nullptr;  // next entry of the column table for the record
  std::uint32_t matchCount = 0;               // conditions that the record has met
  std::uint64_t scannedRecordCount = 0;       // records scanned, selected or not
  std::uint64_t indexedRecordCount = 0;       // while scanning the same; then the entries delivered by the merge
  std::uint32_t deletedRecordCount = 0;
  bool spaceCompressionFound = false;  // a TAB was expanded
  bool variableLengthFound = false;    // a position or length that does not fit a fixed-length file
  bool invalidRecordPosition = false;  // the first such was a run of NUL bytes
  bool recordSizeInvalid = false;      // a record longer than the maximum
};

/// sort: sort area, trains, work files and merge.
struct SortState {
  std::uint8_t* workIoBuffer = nullptr;    // owned, workIoBufferSize bytes: all output to work files and index
  std::uint8_t* workIoPosition = nullptr;  // where the next byte goes
  std::uint8_t* inputBuffer = nullptr;     // owned, inputBufferSize bytes
  std::uint8_t* sortAreaBase = nullptr;    // never given back
  std::uint32_t sortAreaSize = 0;          // bytes
  std::uint32_t sortKeyLength = 0;
  std::uint32_t sortEntrySize = 0;            // key length + 10
  std::uint32_t sortEntryCapacity = 0;        // entries of a train and its end marker
  std::uint32_t* sortPointerArray = nullptr;  // behind the entries: one entry number each
  std::uint64_t* trainTable = nullptr;        // owned, maxSortTrains offsets of trains in the work file
  std::uint64_t* trainWriteCursor = nullptr;
  std::uint64_t* trainReadCursor = nullptr;
  std::int32_t sortTrainCount = 0;
  std::array<std::uint8_t, maxSortEntrySize> lastWrittenEntry{};  // of the train before; valid once trainWritten
  bool trainWritten = false;
  std::array<std::uint8_t, maxKeyLength> sampleKey{};  // of the first train
  std::uint32_t sharedKeyLength = 0;                   // leading bytes in which all keys so far equal it
  std::uint64_t workFilePosition = 0;                  // offset in the written work file where the next train starts
  std::int32_t progressCountdown = 1000;
  int mergeOutputFd = -1;  // the file being written; names the file in the message of a failed write
  int mergeInputFd = -1;
};

/// isi: the tree builder and the deleted-record list.
struct BuilderState {
  std::uint32_t indexKeyLength = 0;
  std::uint32_t indexEntrySize = 0;  // key length + 12 rounded up to a multiple of 4
  std::uint32_t fillLimit = 0;       // entries that fill a node
  std::uint32_t lastNodePointer = 0;
  std::int32_t topLevel = 0;
  std::uint8_t* levelBuffers = nullptr;   // owned: 16 node images and the pending deleted-record node
  std::uint32_t previousListPointer = 0;  // last full deleted-record node written, 0xFFFFFFFF when none
  std::uint16_t previousDuplicateNumber = 0;
  const std::uint8_t* previousKey = nullptr;  // of the entry inserted last, in its node image; null: none yet
  std::uint32_t duplicateKeyCount = 0;
  std::uint32_t droppedDuplicateCount = 0;
  bool shortRecordReported = false;
  bool swapNodes = false;                    // the index is big-endian: nodes are turned on their way out
  std::array<char, 8192> errorFileBuffer{};  // lines of the error file not yet written
  std::size_t errorFileBuffered = 0;
  bool errorFileIncomplete = false;  // a line could not be written, and the user was told
};

/// isi: compaction.
struct CompactState {
  bool inPlace = false;
  int compactLockFd = -1;                // data file, open for its locks only
  DataFileLock* dataFileLock = nullptr;  // owned
  FixedText<256> isiDataFileName;        // data file named in the index header
  FileName backupName;
  int backupFd = -1;
  std::uint8_t* backupBuffer = nullptr;  // owned
};

struct RunContext : DriverState, RunFiles, CommandLineState, InputState, SortState, BuilderState, CompactState {};

static_assert(std::is_trivially_destructible_v<RunContext>);
static_assert(std::is_trivially_copyable_v<RunContext>);

}  // namespace tarnvale
