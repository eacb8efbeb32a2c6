#include "quillon/host/assemblies/assembly_image.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>

#include "quillon/base/files.h"
#include "quillon/host/assemblies/image_reader.h"

namespace quillon::host {
namespace {

constexpr std::string_view kNotAnAssembly = "it is not an assembly";
constexpr std::string_view kNative = "it holds native code, not an assembly";
constexpr std::string_view kNoEntryPoint = "it has no entry point";

// Offsets in the CLI header (ECMA-335 II.25.3.3).
constexpr size_t kCliFlags = 16;
constexpr size_t kCliEntryPoint = 20;
constexpr size_t kCliManagedNativeHeader = 64;
constexpr uint32_t kNativeEntryPoint = 0x10;

std::string_view errorOf(const ImageBytes& image) {
  const auto pe = peHeader(image);
  if (!pe) {
    return kNotAnAssembly;
  }
  const auto header = cliHeader(image, *pe);
  if (!header) {
    return kNative;
  }
  const auto flags = image.at<uint32_t>(*header + kCliFlags);
  const auto entryPoint = image.at<uint32_t>(*header + kCliEntryPoint);
  if (!flags || !entryPoint) {
    return kNotAnAssembly;
  }
  if ((*flags & kNativeEntryPoint) != 0) {
    return kNative;
  }
  return *entryPoint == 0 ? kNoEntryPoint : std::string_view();
}

bool isReadyToRun(const ImageBytes& image) {
  const auto pe = peHeader(image);
  const auto header = pe ? cliHeader(image, *pe) : std::nullopt;
  return header && image.at<uint32_t>(*header + kCliManagedNativeHeader).value_or(0) != 0;
}

std::string errorOfFile(const std::filesystem::path& path) {
  const RegularFile file = openRegularFile(path, kMaxAssemblySize);
  if (!file.descriptor) {
    return "it cannot be read: " + fileErrorText(errno, kMaxAssemblySize);
  }
  ImageFile image(file);
  return std::string(errorOf(image.bytes()));
}

// Whether the bytes of the file from `offset` on begin with `bytes`.
bool hasBytesAt(const RegularFile& file, off_t offset, std::string_view bytes) {
  std::array<char, 16> start;
  return bytes.size() <= start.size() &&
         pread(file.descriptor.get(), start.data(), bytes.size(), offset) ==
             static_cast<ssize_t>(bytes.size()) &&
         std::string_view(start.data(), bytes.size()) == bytes;
}

bool isProgram(const RegularFile& file) {
  return hasBytesAt(file, 0,
                    "\x7f"
                    "ELF");
}

// Whether a native program contains the assemblies of its application. The program that the SDK
// makes for an application has a mark, and before it the offset of the assemblies, or 0
// (bundle_marker.cpp of the public runtime).
bool isSingleFile(const RegularFile& file) {
  constexpr std::string_view kMark =
      "\x8b\x12\x02\xb9\x6a\x61\x20\x38\x72\x7b\x93\x02\x14\xd7\xa0\x32"
      "\x13\xf5\xb9\xe6\xef\xae\x33\x18\xee\x3b\x2d\xce\x24\xb3\x6a\xae";
  constexpr std::string_view kNoOffset{"\0\0\0\0\0\0\0\0", 8};
  constexpr off_t kMaxOffset = off_t{32} << 20;  // of the mark in the programs of any SDK
  std::array<char, 64 << 10> part;
  constexpr auto kStep = static_cast<off_t>(part.size() - kMark.size());
  for (off_t start = 0; start < kMaxOffset; start += kStep) {
    const ssize_t length = pread(file.descriptor.get(), part.data(), part.size(), start);
    if (length < static_cast<ssize_t>(kMark.size())) {
      return false;
    }
    const size_t found = std::string_view(part.data(), static_cast<size_t>(length)).find(kMark);
    if (found != std::string_view::npos) {
      const off_t mark = start + static_cast<off_t>(found);
      return !hasBytesAt(file, mark - static_cast<off_t>(kNoOffset.size()), kNoOffset);
    }
  }
  return false;
}

// The remedy for a native program in the place of an assembly; empty for any other file.
std::string remedyForProgram(const std::filesystem::path& path) {
  const RegularFile file = openRegularFile(path, kMaxAssemblySize);
  if (!file.descriptor || !isProgram(file)) {
    return {};
  }
  std::error_code ignored;
  const std::string assembly = path.string() + ".dll";
  if (std::filesystem::exists(assembly, ignored)) {
    return "name the assembly that this program starts: '" + assembly + "'";
  }
  if (isSingleFile(file)) {
    return "it is a single-file application: publish it with -p:PublishSingleFile=false, and name "
           "its NAME.dll";
  }
  return {};
}

}  // namespace

std::string_view imageError(std::string_view image) { return errorOf(bytesOf(image)); }

bool hasReadyToRunCode(std::string_view image) { return isReadyToRun(bytesOf(image)); }

bool hasReadyToRunCode(const std::filesystem::path& path) {
  const RegularFile file = openRegularFile(path, kMaxAssemblySize);
  if (!file.descriptor) {
    return false;
  }
  ImageFile image(file);
  return isReadyToRun(image.bytes());
}

bool isSingleFileProgram(const std::filesystem::path& path) {
  const RegularFile file = openRegularFile(path, kMaxAssemblySize);
  return file.descriptor && isProgram(file) && isSingleFile(file);
}

Expected<void> requireExecutableAssembly(const std::filesystem::path& file) {
  const std::string error = errorOfFile(file);
  if (error.empty()) {
    return {};
  }
  const std::string remedy = remedyForProgram(file);
  const std::string what = "the runtime cannot run '" + file.string() + "': ";
  if (!remedy.empty()) {
    return fail(what + "it is a native program, not an assembly", remedy);
  }
  return fail(what + error, "name an assembly built as an application (OutputType Exe)");
}

}  // namespace quillon::host
