// Status codes: the published numbers of failures. 0 is success. Each is unique within a phase of a run (command line,
// build, compaction); the driver turns it into the message of that phase. Below a phase rooms have results of their
// own.
#pragma once

#include <cstdint>

namespace tarnvale {

using StatusCode = std::int32_t;

namespace status {

inline constexpr StatusCode success = 0;
inline constexpr StatusCode usageShown = 1;  // result of a run, never of a routine
inline constexpr StatusCode closeFailed = 1;

// Index, sort and scan.
inline constexpr StatusCode nodeNotWritten = -1;         // of a tree that is compacted into a new file
inline constexpr StatusCode nodeMisplaced = -1;          // of the index being compacted: not at a multiple of 512
inline constexpr StatusCode workFileReadFailed = -3;     // a block of a temporary work file
inline constexpr StatusCode nodeNotRead = -3;            // of the index being compacted: its damage was reported
inline constexpr StatusCode inputReadFailed = -4;        // the data file
inline constexpr StatusCode treeDamaged = -4;            // of the index being compacted: too deep, or no tree
inline constexpr StatusCode invalidEndOfRecord = -5;     // a binary record without its end-of-record mark
inline constexpr StatusCode deletedNodeNotWritten = -8;  // a full node of the deleted-record list
inline constexpr StatusCode outOfMemory = -9;            // also: sort memory too small for the key
inline constexpr StatusCode wrongDataFormat = -10;       // the data file is not what the options declare
inline constexpr StatusCode iniNameMissing = -11;        // leading option -i: no name, or one that is too long
inline constexpr StatusCode usageRequested = -12;        // the usage text answers the command line
inline constexpr StatusCode treeTooHigh = -13;           // more than 16 levels
inline constexpr StatusCode displayFinished = -20;       // -i has shown what it had to show: not a failure
inline constexpr StatusCode recordLengthUnknown = -151;  // empty data file, no record length given
inline constexpr StatusCode tooManyTrains = -156;        // or too many records
inline constexpr StatusCode indexNotWritten = -157;      // a write or positioning of the index file
inline constexpr StatusCode workFileNotWritten = -158;   // a write of a temporary work file
inline constexpr StatusCode recordTooLong = -161;        // longer than 65535 bytes less the end-of-record mark

// Command line, names and the opening of files.
inline constexpr StatusCode outputNameUnresolved = -100;
inline constexpr StatusCode indexNotOpened = -101;
inline constexpr StatusCode notAnIndex = -102;
inline constexpr StatusCode noStoredCommandLine = -103;
inline constexpr StatusCode commandLineIncomplete = -104;
inline constexpr StatusCode dataFileReadFailed = -105;
inline constexpr StatusCode outputNotCreated = -106;
inline constexpr StatusCode fileNameTooLong = -107;
inline constexpr StatusCode invalidRecordLength = -108;
inline constexpr StatusCode commandLineTooLong = -109;
inline constexpr StatusCode workFileNotCreated = -110;
inline constexpr StatusCode keyColumnTooLarge = -111;
inline constexpr StatusCode invalidKeySyntax = -112;
inline constexpr StatusCode overlappingKeys = -113;
inline constexpr StatusCode tooManyKeyBytes = -114;
inline constexpr StatusCode tooManyKeySpecs = -115;
inline constexpr StatusCode dataNameUnresolved = -116;
inline constexpr StatusCode invalidPrimaryOption = -118;
inline constexpr StatusCode dataFileNotOpened = -120;
inline constexpr StatusCode dataFileSizeUnknown = -121;
inline constexpr StatusCode bareNameTooLong = -122;  // with option z
inline constexpr StatusCode fullNameTooLong = -123;  // without option z
inline constexpr StatusCode conflictingOptions = -124;
inline constexpr StatusCode outputIsInput = -126;
inline constexpr StatusCode recordSizeMismatch = -127;
inline constexpr StatusCode conflictingKeyOptions = -128;
inline constexpr StatusCode invalidFillPercent = -129;
inline constexpr StatusCode recordLengthRequired = -133;
inline constexpr StatusCode tooManyPrimaryOptions = -135;
inline constexpr StatusCode upperCaseTooLate = -136;
inline constexpr StatusCode conflictingRecordLengths = -137;
inline constexpr StatusCode dataFileTooLarge = -138;
inline constexpr StatusCode invalidOsType = -159;
inline constexpr StatusCode recordLengthNotFound = -160;

// Compaction.
inline constexpr StatusCode indexVersionUnknown = -162;
inline constexpr StatusCode storedCommandMalformed = -164;
inline constexpr StatusCode ownCommandMalformed = -165;
inline constexpr StatusCode newCommandTooLong = -166;
inline constexpr StatusCode backupFailed = -167;
inline constexpr StatusCode restoreFailed = -168;
inline constexpr StatusCode sharedCompactFailed = -169;     // the form with locking
inline constexpr StatusCode exclusiveCompactFailed = -170;  // the exclusive form
inline constexpr StatusCode invalidCompactOption = -171;

}  // namespace status

}  // namespace tarnvale
