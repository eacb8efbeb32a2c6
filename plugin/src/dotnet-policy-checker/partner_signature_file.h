// Files that come from a partner, opened so that none of them can stop the caller.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};

// Owns a stream, or is null.
using PartnerFile = std::unique_ptr<FILE, CloseFile>;

// Opens a file for reading as fopen(path, "r") does, but never waits for a writer: what is neither
// a regular file nor a directory is refused. Null where it cannot be opened.
PartnerFile openPartnerFile(const char* path);

// The size of a regular file, in bytes, with the stream at its start again; nothing where it has
// none that this machine can hold.
std::optional<std::size_t> sizeOf(FILE* file);
