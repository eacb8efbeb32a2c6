// The table of docs/compatibility.md. The test run that QUILLON_WRITE_COMPATIBILITY is set for
// writes it; any other one compares with it.
#pragma once

#include <string>
#include <vector>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {

inline constexpr char kEqual[] = "equal";

// How a launch compares with the run under dotnet, as a cell of the table: kEqual, "refused with
// STATUS: MESSAGE" or "differs: ...".
std::string compare(const CommandResult& stock, const CommandResult& launched);

// One cell for the results of several application types: the result if it is the same for all, or
// each result with its types.
struct TypeResult {
  std::string type;
  std::string cell;
};
std::string merge(const std::vector<TypeResult>& results);

// The lines between the markers of the page without the head of the table.
std::vector<std::string> linesOfPage();

// Replaces the table of the page by one with these lines.
void writePage(const std::vector<std::string>& lines);

std::string tableLine(const std::vector<std::string>& cells);

}  // namespace quillon::test
