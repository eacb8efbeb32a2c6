// Describes command lines that the parser refuses.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Error.hpp>

#include <string>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::cli {

// Returns what is wrong with the command line that `app` refused with `error`, and what to write in
// its place. Names a word that no command knows, with the most similar one that it knows.
Failure parseFailure(const CLI::App& app, const CLI::ParseError& error);

// Whether the command gives the arguments after "--" to the program or application that it starts.
bool takesProgramArguments(const CLI::App& command);

// Returns the element of `known` that `word` is most likely a misspelling of; empty if none is
// similar.
std::string similarWord(const std::string& word, const std::vector<std::string>& known);

}  // namespace quillon::cli
