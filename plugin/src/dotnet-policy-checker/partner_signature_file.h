// Opens files of a partner without blocking the caller.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};

// Owns a stream, or is null.
using PartnerFile = std::unique_ptr<FILE, CloseFile>;

// Opens a file for reading like fopen(path, "r"), but never waits for a writer. Returns null if the
// file cannot be opened, or if it is neither a regular file nor a directory.
PartnerFile openPartnerFile(const char* path);

// Returns the size of a regular file in bytes and rewinds the stream. Returns nullopt if the file
// is not regular or its size cannot be represented.
std::optional<std::size_t> sizeOf(FILE* file);
