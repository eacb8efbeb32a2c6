#include <gtest/gtest.h>
#include <malloc.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "quillon_tv_plugin.h"
#include "util/log/log.h"

namespace {

std::string format(const char* text, std::vector<const char*> args, int size) {
  const std::unique_ptr<char[]> result(my_strinf_format(text, args.data(), size));
  return result.get();
}

TEST(Format, ReplacesPlaceholdersByTheirArguments) {
  EXPECT_EQ(format("a{0}b{1}", {"X", "YY"}, 100), "aXbYY");
  EXPECT_EQ(format("{1}{0}", {"p", "q"}, 100), "qp");
  EXPECT_EQ(format("{0}{0}", {"p"}, 100), "pp");
  EXPECT_EQ(format("plain", {}, 100), "plain");
  EXPECT_EQ(format("}a}", {}, 100), "}a}");
}

TEST(Format, IsEmptyWithoutFormatOrRoom) {
  const char* const* nothing = nullptr;
  EXPECT_EQ(
      std::unique_ptr<char[]>(my_strinf_format("", const_cast<const char**>(nothing), 100))[0],
      '\0');
  for (const int size : {1, 0, -1, INT_MIN}) {
    EXPECT_EQ(format("abc{0}", {"x"}, size), "") << size;
  }
}

TEST(Format, NullTextsCountAsEmpty) {
  EXPECT_EQ(format(nullptr, {"x"}, 100), "");
  EXPECT_EQ(format("a{0}b{1}", {nullptr, "x"}, 100), "abx");
  const std::unique_ptr<char[]> withoutArguments(my_strinf_format("a{0}b", nullptr, 100));
  EXPECT_STREQ(withoutArguments.get(), "ab");
}

TEST(Format, StopsAtTheRoomBetweenSteps) {
  EXPECT_EQ(format("abcdef", {}, 4), "abc");
  EXPECT_EQ(format("abcdef", {}, 2), "a");
  EXPECT_EQ(format("abcdef", {}, 7), "abcdef");
}

TEST(Format, CopiesAnArgumentCompletelyBeyondTheLimit) {
  const std::string longText(5000, 'x');
  EXPECT_EQ(format("a{0}bc", {longText.c_str()}, 4), "a" + longText);
  EXPECT_EQ(format("abc{0}", {longText.c_str()}, 4), "abc");
}

// The caller may use as many bytes as it asks for, and at least those of the text.
TEST(Format, HasRoomForTheTextAndForWhatWasAskedFor) {
  const char* none[] = {nullptr};
  const std::unique_ptr<char[]> large(my_strinf_format("x", none, 1000));
  EXPECT_GE(malloc_usable_size(large.get()), 1000U);
  for (std::size_t length = 1; length <= 100; ++length) {
    const std::string text(length, 'x');
    const char* args[] = {text.c_str()};
    const std::unique_ptr<char[]> small(my_strinf_format("{0}", args, 2));
    EXPECT_GT(malloc_usable_size(small.get()), length);
  }
}

TEST(Format, PlaceholderWithoutClosingBraceEndsTheWalk) {
  EXPECT_EQ(format("ab{0", {"x"}, 100), "ab");
  EXPECT_EQ(format("{", {"x"}, 100), "");
}

TEST(Format, IndexIsReadAsANumberInBaseTen) {
  EXPECT_EQ(format("{01}", {"p", "q"}, 100), "q");
  EXPECT_EQ(format("{ 1x}", {"p", "q"}, 100), "q");
  EXPECT_EQ(format("{}{x}", {"p"}, 100), "pp");
  const std::vector<const char*> twelve = {"a", "b", "c", "d", "e", "f",
                                           "g", "h", "i", "j", "k", "l"};
  EXPECT_EQ(format("{10}{9}", twelve, 100), "kj");
}

TEST(Format, StaysWithinItsBuffersForEveryIndex) {
  EXPECT_EQ(format("a{-1}b", {"x"}, 100), "ab");
  EXPECT_EQ(format("a{99999999999999999999999999999999999999999999999}b", {"x"}, 100), "ab");
  EXPECT_EQ(format("a{4294967296}b", {"x"}, 100), "ab") << "0 as a number of 32 bits";
  EXPECT_EQ(format(("{" + std::string(28, '0') + "1}").c_str(), {"p", "q"}, 100), "q");
  EXPECT_EQ(format(("{" + std::string(29, '0') + "1}").c_str(), {"p", "q"}, 100), "p");
  EXPECT_EQ(format(("{" + std::string(4000, '0') + "}").c_str(), {"p"}, 100), "p");
}

TEST(Format, ExportedTwinGivesTheSame) {
  const char* args[] = {"X", "YY"};
  const std::unique_ptr<char[]> result(string_format_test("a{0}b{1}", args, 100));
  EXPECT_STREQ(result.get(), "aXbYY");
}

}  // namespace
