/// Files that never hold their user.
#ifndef FILE_H
#define FILE_H

#include <sys/types.h>

#include <cstddef>

#include "FileDescriptor.h"

constexpr int kWriteAttempts = 20;  ///< so that a full disk or a broken flash never holds its writer

/// Opens with open(2), close-on-exec and without waiting: a pipe in the place of a file must not hold its opener.
/// A failure leaves errno, and nothing open.
FileDescriptor OpenFile(const char* path, int flags, mode_t mode = 0);

/// Writes while bytes remain, at most kWriteAttempts times. Answers how many were written.
std::size_t WriteToFile(const FileDescriptor& file, const void* bytes, std::size_t length);

#endif
