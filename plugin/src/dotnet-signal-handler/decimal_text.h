// Numbers and texts for messages that a signal handler writes: no library call, no allocation.
//
// Thread safety: every function works on its arguments alone and is async-signal-safe.
#pragma once

#include <cstddef>

// Digits of the longest number, its sign and the NUL.
constexpr std::size_t kDecimalTextSize = 12;

// Writes the decimal digits of a positive `value` and a NUL into `out`, which has room for
// kDecimalTextSize bytes. Returns the number of digits; 0 and an empty text for zero, which has no
// digits here, and for a negative value, which has no text here.
int itoaForSignalHandler(int value, char* out);

// A text of limited size that is put together piece by piece; what does not fit is cut.
template <std::size_t Size>
class CutText {
 public:
  void append(const char* text) {
    while (*text != '\0' && length_ + 1 < Size) {
      text_[length_++] = *text++;
    }
    text_[length_] = '\0';
  }

  // As "%d" prints it, zero and negative values included.
  void append(int value) {
    char digits[kDecimalTextSize];
    if (value > 0) {
      itoaForSignalHandler(value, digits);
      append(digits);
    } else if (value == 0) {
      append("0");
    } else {
      append("-");
      // The last digit apart: the smallest value has no positive counterpart.
      itoaForSignalHandler(-(value / 10), digits);
      append(digits);
      const char last[] = {static_cast<char>('0' - value % 10), '\0'};
      append(last);
    }
  }

  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  char text_[Size] = "";
  std::size_t length_ = 0;
};
