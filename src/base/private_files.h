#pragma once

#include <string>

#include "base/bytes.h"
#include "base/file_descriptor.h"

// Files and directories that belong to the user alone.
namespace velotide {

// Creates the directory and its missing parents with mode 0700; an existing directory is accepted as it is.
// Throws SystemFailure.
void createPrivateDirectory(const std::string& path);

// Whether `path` is itself (not through a link) a directory of this user, closed to group and others.
bool isPrivateDirectory(const std::string& path);

// Whether the open file is a regular one of this user, closed to group and others.
bool isPrivateFile(int descriptor);

// Creates a new file of mode 0600, never through a link and never over an existing file. Throws
// SystemFailure.
FileDescriptor createPrivateFile(const std::string& path);

// Writes everything. Throws SystemFailure.
void writeAll(int descriptor, ByteView content);

// Puts a complete file in the place of `path`: written under `temporary` in the same directory, then renamed,
// so that a reader sees the old content or the new one. Leaves no temporary file behind. Throws
// SystemFailure.
void replacePrivateFile(const std::string& path, const std::string& temporary, ByteView content);

}  // namespace velotide
