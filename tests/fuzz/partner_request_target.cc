// The partner request file. A request is accepted only if its first field is this device's id.
// Input: the device's id, then the request.
#include "plugin/src/dotnet-policy-checker/partner_signature.h"
#include "tests/fuzz/memory_file.h"
#include "tests/fuzz/target.h"
#include "tests/support/recording_platform.h"

namespace {

constexpr std::size_t kDuidSize = 100;

// Up to the first NUL, like the configuration store and strcmp(3).
std::string_view upToNul(std::string_view text) { return text.substr(0, text.find('\0')); }

bool namesDevice(std::string_view request, std::string_view device) {
  const std::string_view field = request.substr(0, request.find(':'));
  return field.size() < kDuidSize && upToNul(field) == device;
}

}  // namespace

FUZZ_TARGET(partner_request) {
  Input input(bytes);
  const std::string device(upToNul(input.line()));
  quillon::test::platform().config["db/comss/hwduid"] = device;
  static MemoryFile request("");
  request.replace(input.rest());
  const bool isNamed = namesDevice(input.rest(), device);
  FUZZ_REQUIRE(verify_duid(request.path().c_str()) == (isNamed ? 1 : 0));

  const auto lines = quillon::test::platform().lines();
  FUZZ_REQUIRE(lines.size() == 1);
  const std::string refusal = "6 duid comparision is fail... " + device + ",";
  FUZZ_REQUIRE(isNamed ? lines[0] == "4 duid comparision is success"
                       : lines[0].starts_with(refusal));
  FUZZ_REQUIRE(isNamed || lines[0].size() < refusal.size() + kDuidSize);
}
