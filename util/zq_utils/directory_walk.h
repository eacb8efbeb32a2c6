// Directory walks, one pass of the directory stream each, in the stream's order.
#pragma once

#include <functional>
#include <string>

// Called per entry with its full path and its bare name, which lives during the call.
using FileReader = std::function<void(const std::string& path, const char* name)>;

// Calls `reader` for each file and symbolic link of `directory`, and for those of its
// subdirectories down to `depth` levels. A directory that cannot be opened is skipped silently.
void scanFilesInDirectory(const std::string& directory, FileReader reader, unsigned int depth);

// The same, but skips ".tac_symlink" trees, resolves links and entries of unknown type with
// stat(2), and descends only from a depth of 2.
void scanFilesInDir(const std::string& directory, FileReader reader, unsigned int depth);

// Calls `reader` for each subdirectory of `directory`; links to directories are none.
void scanDirsInDirectory(const std::string& directory, FileReader reader);
