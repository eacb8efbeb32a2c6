#include "quillon/host/runtime/hresult.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace quillon::host {
namespace {

struct Meaning {
  uint32_t code;
  std::string_view text;
};

constexpr std::array kMeanings = {
    Meaning{0x80004001, "not implemented"},
    Meaning{0x80004005, "the runtime gave no further cause"},
    Meaning{0x80070002, "file not found"},
    Meaning{0x80070003, "path not found"},
    Meaning{0x80070005, "access denied"},
    Meaning{0x80070008, "not enough memory or descriptors"},
    Meaning{0x8007000b, "not a valid assembly, or built for another processor"},
    Meaning{0x8007000e, "not enough memory"},
    Meaning{0x80070057, "an argument or path list is not valid"},
    Meaning{0x8007045a, "initialisation of a library failed"},
    Meaning{0x80131018, "the file is a module, not an assembly"},
    Meaning{0x8013101b, "built for a newer runtime"},
    Meaning{0x80131022, "the runtime has not been started"},
    Meaning{0x80131040, "the assembly found has another version or key than the one wanted"},
    Meaning{0x80131047, "not a valid assembly name"},
    Meaning{0x8013110e, "no entry point"},
    Meaning{0x80131500, "an exception"},
    Meaning{0x80131506, "internal error of the runtime"},
    Meaning{0x80131513, "no such method"},
    Meaning{0x80131522, "no such type"},
    Meaning{0x80131523, "no such entry point"},
    Meaning{0x80131524, "a native library could not be loaded"},
    Meaning{0x80131534, "a type initialiser failed"},
    Meaning{0x80131621, "the assembly could not be loaded"},
    Meaning{0x8013141d, "the assembly's strong name is not valid"},
};

}  // namespace

std::string describeHresult(int status) {
  const auto code = static_cast<uint32_t>(status);
  char number[16];
  std::snprintf(number, sizeof number, "0x%08x", code);
  const auto meaning = std::find_if(kMeanings.begin(), kMeanings.end(),
                                    [code](const Meaning& m) { return m.code == code; });
  if (meaning == kMeanings.end()) {
    return number;
  }
  return std::string(number) + " (" + std::string(meaning->text) + ")";
}

}  // namespace quillon::host
