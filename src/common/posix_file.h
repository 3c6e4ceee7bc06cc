// Reading, writing and measuring files, with interrupted system calls and short counts dealt with once.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace tarnvale {

/// Reads up to `size` bytes at `offset`, fewer only at the end of the file. The number read, or -1 on an error.
[[nodiscard]] ssize_t readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset);

/// Reads up to `size` bytes from the file's position on, fewer only at the end of the file; -1 on an error.
[[nodiscard]] ssize_t readNext(int fd, void* buffer, std::size_t size);

/// Writes all bytes at the file's position. False, with errno set, when not all could be written.
[[nodiscard]] bool writeAll(int fd, const void* bytes, std::size_t size);

/// Writes all bytes at `offset`; the file's position stays.
[[nodiscard]] bool writeAllAt(int fd, const void* bytes, std::size_t size, std::uint64_t offset);

/// Sets the file's position.
[[nodiscard]] bool seekTo(int fd, std::uint64_t offset);

/// The length of the file in bytes, or nothing when it cannot be determined.
[[nodiscard]] std::optional<std::uint64_t> fileSize(int fd);

[[nodiscard]] bool isRegularFile(int fd);

/// True when both descriptors are open on one and the same file, whatever names it was opened by.
[[nodiscard]] bool isSameFile(int fd1, int fd2);

/// Creates the file, or opens and empties an existing one; reading and writing. A descriptor that the caller owns, or
/// -1. An existing file that is no regular file, or that is open under one of the descriptors `keep`, is left alone:
/// -1.
[[nodiscard]] int createFile(const char* name, std::initializer_list<int> keep);

/// Closes the handle when it is open and marks it closed. False when the system reports a failure. Async-signal-safe.
bool closeFile(int& fd);

/// True when the descriptor takes a short message now, or within the patience. Async-signal-safe.
[[nodiscard]] bool acceptsOutput(int fd, int patienceMilliseconds);

/// Syncs the directory that holds `name`, so that a file created or removed there is so after a power cut too.
[[nodiscard]] bool syncDirectoryOf(std::string_view name);

}  // namespace tarnvale
