// A string that the C library or a platform service allocated with malloc(3) for its caller.
#pragma once

#include <cstdlib>
#include <memory>

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

// Owns a string allocated with malloc(3), or is null.
using MallocText = std::unique_ptr<char, FreeText>;
