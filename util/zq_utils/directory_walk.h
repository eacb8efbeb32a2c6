// Iterates over directories. Each directory is read once, in the order of readdir(3).
#pragma once

#include <functional>
#include <string>

// Called for each entry with its full path and its name. `name` is valid only during the call.
using FileReader = std::function<void(const std::string& path, const char* name)>;

// Returns true for the entries "." and "..".
bool isSelfOrParent(const char* name);

// Calls `reader` for each file and symbolic link in `directory`, and in its subdirectories down to
// `depth` levels. A directory that cannot be opened is skipped without a log line.
void scanFilesInDirectory(const std::string& directory, FileReader reader, unsigned int depth);

// Does the same, with these differences: skips ".tac_symlink" trees, resolves links and entries of
// unknown type with stat(2), and enters subdirectories only if `depth` is at least 2.
void scanFilesInDir(const std::string& directory, FileReader reader, unsigned int depth);

// Calls `reader` for each subdirectory of `directory`. Links to directories are skipped.
void scanDirsInDirectory(const std::string& directory, FileReader reader);
