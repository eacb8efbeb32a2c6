// Operations on paths and names as strings.
#pragma once

#include <string>
#include <vector>

// Returns the part after the last "/", or the whole string if there is none.
std::string getFileName(const std::string& path);

// Returns everything before the last "/", or "." if there is none.
std::string getBaseName(const std::string& path);

// directory + "/" + name, with one "/" between them.
std::string concatPath(const std::string& directory, const std::string& name);

// Returns the canonical absolute path (realpath(3)), or an empty string if it cannot be resolved.
std::string getAbsolutePath(const std::string& path);

// Appends the parts of `paths` between ":" to `pieces`, including empty parts. A ":" at the end
// adds no part.
void splitPath(const std::string& paths, std::vector<std::string>& pieces);

// Logs each part of a ":"-separated string on a line of its own, in grey.
void printAll(const std::string& paths);

// Returns a copy of `text` in which every occurrence of `pattern`, from left to right, is replaced.
std::string replaceAll(const std::string& text, const std::string& pattern,
                       const std::string& replacement);

bool startWith(const std::string& text, const std::string& prefix);
bool endWith(const std::string& text, const std::string& suffix);

// Returns true if `length` characters of `a` from `offsetA` equal those of `b` from `offsetB`,
// ignoring case. Returns false if a range is outside its string.
bool iCompare(const std::string& a, std::size_t offsetA, const std::string& b, std::size_t offsetB,
              std::size_t length);

// Returns false if `path` is empty, is a symbolic link, or cannot be examined, and true otherwise,
// also if it does not exist. Examines only the last component.
bool isRealPath(const std::string& path);

// Returns the target of "/proc/self/exe", or an empty string if it cannot be read.
std::string readSelfPath();
