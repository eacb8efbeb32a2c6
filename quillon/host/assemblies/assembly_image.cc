#include "quillon/host/assemblies/assembly_image.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "quillon/base/files.h"

namespace quillon::host {
namespace {

constexpr std::string_view kNotAnAssembly = "it is not an assembly";
constexpr std::string_view kNative = "it holds native code, not an assembly";
constexpr std::string_view kNoEntryPoint = "it has no entry point";

// Offsets and sizes of ECMA-335 II.25.2 and II.25.3.
constexpr size_t kPeOffsetField = 0x3c;
constexpr std::string_view kDosSignature = "MZ";
constexpr std::string_view kPeSignature{"PE\0\0", 4};
constexpr size_t kSectionCountField = 6;
constexpr size_t kOptionalSizeField = 20;
constexpr size_t kOptionalHeader = 24;
constexpr uint16_t kPe32Plus = 0x20b;
constexpr size_t kDirectories32 = 96;
constexpr size_t kDirectories64 = 112;
constexpr size_t kCliDirectory = 14;
constexpr size_t kDirectorySize = 8;
constexpr size_t kSectionSize = 40;
constexpr size_t kCliFlags = 16;
constexpr size_t kCliEntryPoint = 20;
constexpr size_t kCliManagedNativeHeader = 64;
constexpr uint32_t kNativeEntryPoint = 0x10;

// Returns `size` bytes of an image, or fewer at its end. They are valid until the next call.
using Reader = std::function<std::string_view(size_t offset, size_t size)>;

Reader readerOf(std::string_view image) {
  return [image](size_t offset, size_t size) {
    return image.substr(std::min(offset, image.size()), size);
  };
}

// Reads a file in parts, because only a few hundred bytes of an image are needed. The first part
// usually contains them all.
class ImageFile {
 public:
  explicit ImageFile(const RegularFile& file) : file_(file.descriptor.get()) { load(0); }

  std::string_view at(size_t offset, size_t size) {
    if (offset < start_ || offset + size > start_ + length_) {
      load(offset);
    }
    const std::string_view part(part_.data(), length_);
    return part.substr(std::min(offset - start_, length_), size);
  }

 private:
  void load(size_t offset) {
    const ssize_t length = pread(file_, part_.data(), part_.size(), static_cast<off_t>(offset));
    start_ = offset;
    length_ = length < 0 ? 0 : static_cast<size_t>(length);
  }

  int file_;
  std::array<char, 4096> part_;
  size_t start_ = 0;
  size_t length_ = 0;
};

// Reads little-endian numbers with bounds checks.
class Bytes {
 public:
  explicit Bytes(Reader reader) : read_(std::move(reader)) {}

  template <typename Number>
  std::optional<Number> at(size_t offset) const {
    const std::string_view bytes = read_(offset, sizeof(Number));
    if (bytes.size() < sizeof(Number)) {
      return std::nullopt;
    }
    Number number = 0;
    for (size_t i = sizeof(Number); i > 0; --i) {
      number = static_cast<Number>(number << 8 | static_cast<unsigned char>(bytes[i - 1]));
    }
    return number;
  }

  bool hasTextAt(size_t offset, std::string_view text) const {
    return read_(offset, text.size()) == text;
  }

 private:
  Reader read_;
};

// The offset in the file of a relative virtual address, by the section table.
std::optional<size_t> offsetOf(const Bytes& image, size_t pe, uint32_t address) {
  const size_t sections =
      pe + kOptionalHeader + image.at<uint16_t>(pe + kOptionalSizeField).value_or(0);
  const size_t count = image.at<uint16_t>(pe + kSectionCountField).value_or(0);
  for (size_t i = 0; i < count; ++i) {
    const size_t section = sections + i * kSectionSize;
    const auto start = image.at<uint32_t>(section + 12);
    const auto size = image.at<uint32_t>(section + 16);
    const auto offset = image.at<uint32_t>(section + 20);
    if (!start || !size || !offset) {
      return std::nullopt;
    }
    if (address >= *start && address - *start < *size) {
      return size_t{*offset} + (address - *start);
    }
  }
  return std::nullopt;
}

// The offset of the CLI header; empty if the image has none.
std::optional<size_t> cliHeader(const Bytes& image, size_t pe) {
  const auto magic = image.at<uint16_t>(pe + kOptionalHeader);
  if (!magic) {
    return std::nullopt;
  }
  const size_t directories = *magic == kPe32Plus ? kDirectories64 : kDirectories32;
  const auto address =
      image.at<uint32_t>(pe + kOptionalHeader + directories + kCliDirectory * kDirectorySize);
  if (!address || *address == 0) {
    return std::nullopt;
  }
  return offsetOf(image, pe, *address);
}

// The offset of the PE header; empty if the bytes are not an image.
std::optional<size_t> peHeader(const Bytes& image) {
  const auto pe = image.at<uint32_t>(kPeOffsetField);
  if (!image.hasTextAt(0, kDosSignature) || !pe || !image.hasTextAt(*pe, kPeSignature)) {
    return std::nullopt;
  }
  return *pe;
}

std::string_view errorOf(const Bytes& image) {
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

bool isReadyToRun(const Bytes& image) {
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
  return std::string(errorOf(Bytes(std::bind_front(&ImageFile::at, &image))));
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

std::string_view imageError(std::string_view image) { return errorOf(Bytes(readerOf(image))); }

bool hasReadyToRunCode(std::string_view image) { return isReadyToRun(Bytes(readerOf(image))); }

bool hasReadyToRunCode(const std::filesystem::path& path) {
  const RegularFile file = openRegularFile(path, kMaxAssemblySize);
  if (!file.descriptor) {
    return false;
  }
  ImageFile image(file);
  return isReadyToRun(Bytes(std::bind_front(&ImageFile::at, &image)));
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
