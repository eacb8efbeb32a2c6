#include "plugin/src/dotnet-signal-handler/decimal_text.h"

int itoaForSignalHandler(int value, char* out) {
  int digits = 0;
  for (int rest = value; rest > 0; rest /= 10) {
    ++digits;
  }
  out[digits] = '\0';
  for (int i = digits; i > 0; value /= 10) {
    out[--i] = static_cast<char>('0' + value % 10);
  }
  return digits;
}
