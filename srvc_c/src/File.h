/// Files that never hold their user.
#ifndef FILE_H
#define FILE_H

#include <sys/types.h>

#include <cstddef>
#include <span>

#include "FileDescriptor.h"

constexpr int kWriteAttempts = 20;  ///< so that a full disk or a broken flash never holds its writer

/// Opens with open(2), close-on-exec and without waiting: a pipe in the place of a file must not hold its opener.
/// A failure leaves errno, and nothing open.
FileDescriptor OpenFile(const char* path, int flags, mode_t mode = 0);

/// Writes while bytes remain, at most kWriteAttempts times. Answers how many were written.
std::size_t WriteToFile(const FileDescriptor& file, const char* bytes, std::size_t length);

/// The same for pieces that lie side by side: each has its own attempts, and one that is given up does not keep the
/// next from being written. A write takes along all that is left, so that sound storage sees one write.
std::size_t WritePiecesToFile(const FileDescriptor& file, const char* bytes, std::span<const std::size_t> lengths);

#endif
