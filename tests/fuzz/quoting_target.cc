// Texts of others in messages and pages: words for a shell, and HTML. Input: the text.
#include <algorithm>

#include "quillon/base/shell_word.h"
#include "quillon/timeline/html_text.h"
#include "tests/fuzz/target.h"

namespace {

constexpr std::string_view kSpecial = "|&;<>()$`\\\"' \t\n*?[#~{}!^\r";

// The text that a shell makes of one word, see "Quoting" in sh(1). Requires that nothing outside of
// single quotes is special.
std::string unquoted(std::string_view word) {
  std::string text;
  while (!word.empty()) {
    if (word.starts_with("\\'")) {
      text += '\'';
      word.remove_prefix(2);
    } else if (word.starts_with('\'')) {
      const std::size_t end = word.find('\'', 1);
      FUZZ_REQUIRE(end != word.npos);
      text += word.substr(1, end - 1);
      word.remove_prefix(end + 1);
    } else {
      FUZZ_REQUIRE(kSpecial.find(word[0]) == kSpecial.npos);
      text += word[0];
      word.remove_prefix(1);
    }
  }
  return text;
}

}  // namespace

FUZZ_TARGET(quoting) {
  const std::string text(bytes);
  const std::string word = quillon::shellWord(text);
  FUZZ_REQUIRE(!word.empty());
  FUZZ_REQUIRE(unquoted(word) == text);

  const std::string html = quillon::timeline::escapeHtml(text);
  FUZZ_REQUIRE(html.find_first_of("<>\"'") == html.npos);
  FUZZ_REQUIRE(std::none_of(html.begin(), html.end(),
                            [](unsigned char c) { return c < 0x20 || c == 0x7f; }));
  FUZZ_REQUIRE(std::count(html.begin(), html.end(), '&') ==
               std::count_if(text.begin(), text.end(), [](char c) {
                 return std::string_view("&<>\"'").find(c) != std::string_view::npos;
               }));
}
