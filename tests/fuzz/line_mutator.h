// Mutations of inputs that consist of lines, which know the lines of the input's format. A mutation
// of single bytes rarely makes another valid manifest or message. These do so most of the time.
//
// A target has them if its folder has a file FAMILY.grammar, named as the target up to the first
// "_". Each line of that file is one that an input can contain.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::fuzz {

// All lines, without line feeds. An empty text has none.
std::vector<std::string> linesOf(std::string_view text);

// Returns the input after some random changes: a line of the grammar is inserted, a line is
// removed, repeated or moved, or its value is replaced by that of another line. A value begins
// after the first "=" of the line, or else at its first space. The result depends only on the
// arguments.
std::string mutateLines(std::string_view input, const std::vector<std::string>& grammar,
                        std::uint32_t seed);

}  // namespace quillon::fuzz
