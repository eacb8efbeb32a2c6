// Paths and names as text.
#pragma once

#include <string>
#include <vector>

// The text after the last "/"; the whole text when there is none.
std::string getFileName(const std::string& path);

// The directory part: everything before the last "/"; "." when there is none.
std::string getBaseName(const std::string& path);

// directory + "/" + name, with one "/" between them.
std::string concatPath(const std::string& directory, const std::string& name);

// The canonical absolute path (realpath(3)); empty when it cannot be resolved.
std::string getAbsolutePath(const std::string& path);

// Appends the pieces between ":" to `pieces`, empty ones included; a trailing ":" adds none.
void splitPath(const std::string& paths, std::vector<std::string>& pieces);

// Logs each piece of a ":"-joined text on a line of its own, in grey.
void printAll(const std::string& paths);

// A copy of `text` with every occurrence of `pattern` replaced, left to right.
std::string replaceAll(const std::string& text, const std::string& pattern,
                       const std::string& replacement);

bool startWith(const std::string& text, const std::string& prefix);
bool endWith(const std::string& text, const std::string& suffix);

// True when `length` characters of `a` from `offsetA` equal those of `b` from `offsetB`, ignoring
// case. A range outside either text is never equal.
bool iCompare(const std::string& a, std::size_t offsetA, const std::string& b, std::size_t offsetB,
              std::size_t length);

// True unless `path` is empty, is a symbolic link, or cannot be examined. Looks at the last
// component only; a path that does not exist is real.
bool isRealPath(const std::string& path);

// The target of "/proc/self/exe"; empty when it cannot be read.
std::string readSelfPath();
