// The rows of docs/compatibility.md: what runs, and what is known to differ from `dotnet APP.dll`.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tests/system/compatibility/conversation.h"

namespace quillon::test {

struct Row {
  std::string name;         // of the test; letters and digits
  std::string application;  // for the page
  std::string folder;       // below the published applications
  std::string executable;   // in the folder
  std::vector<std::string> arguments = {};
  int status = 0;           // with which the application ends under dotnet
  std::string prints = {};  // part of its output under dotnet
  std::vector<Step> steps = {};
  bool onTerminal = false;
  std::string runtimeConfig = {};  // in place of the application's own
  bool oneType = false;            // takes long: launched as "inhouse" only
  // What is known about this row, for the page, if a launch differs from dotnet or is refused.
  // Empty if both are equal.
  std::string difference = {};
};

// For gtest.
inline void PrintTo(const Row& row, std::ostream* stream) { *stream << row.name; }

const std::vector<Row>& compatibilityRows();

}  // namespace quillon::test
