// Formats messages in a signal handler, without library calls and allocations.
//
// Thread safety: all functions use only their arguments and are async-signal-safe.
#pragma once

#include <cstddef>

// Size of the longest decimal int: 10 digits, a sign and the NUL.
constexpr std::size_t kDecimalTextSize = 12;

// Writes the decimal digits of a positive `value` and a NUL into `out`, which must have room for
// kDecimalTextSize bytes. Returns the number of digits. For zero and negative values, writes an
// empty string and returns 0.
int itoaForSignalHandler(int value, char* out);

// A string of at most Size - 1 bytes. Appended text that does not fit is truncated.
template <std::size_t Size>
class BoundedString {
 public:
  void append(const char* text) {
    while (*text != '\0' && length_ + 1 < Size) {
      text_[length_++] = *text++;
    }
  }

  // Appends the number like "%d", including zero and negative values.
  void append(int value) {
    char digits[kDecimalTextSize];
    if (value > 0) {
      itoaForSignalHandler(value, digits);
      append(digits);
    } else if (value == 0) {
      append("0");
    } else {
      append("-");
      // Appends the last digit separately, because INT_MIN cannot be negated.
      itoaForSignalHandler(-(value / 10), digits);
      append(digits);
      const char last[] = {static_cast<char>('0' - value % 10), '\0'};
      append(last);
    }
  }

  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  char text_[Size] = "";  // zeros to the end, which terminate the text
  std::size_t length_ = 0;
};
