// A text that the C library or a platform service allocated for its caller.
#pragma once

#include <cstdlib>
#include <memory>

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

// Owns a malloc'ed text, or is null.
using MallocText = std::unique_ptr<char, FreeText>;
