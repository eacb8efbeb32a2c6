#include "quillon/host/assemblies/image_reader.h"

#include <unistd.h>

#include <algorithm>

namespace quillon::host {
namespace {

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

}  // namespace

ImageBytes bytesOf(std::string_view image) {
  return ImageBytes([image](size_t offset, size_t size) {
    return image.substr(std::min(offset, image.size()), size);
  });
}

std::string_view ImageFile::at(size_t offset, size_t size) {
  if (offset < start_ || offset + size > start_ + length_) {
    load(offset);
  }
  const std::string_view part(part_.data(), length_);
  return part.substr(std::min(offset - start_, length_), size);
}

void ImageFile::load(size_t offset) {
  const ssize_t length = pread(file_, part_.data(), part_.size(), static_cast<off_t>(offset));
  start_ = offset;
  length_ = length < 0 ? 0 : static_cast<size_t>(length);
}

std::optional<size_t> offsetOf(const ImageBytes& image, size_t pe, uint32_t address) {
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

std::optional<size_t> cliHeader(const ImageBytes& image, size_t pe) {
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

std::optional<size_t> peHeader(const ImageBytes& image) {
  const auto pe = image.at<uint32_t>(kPeOffsetField);
  if (!image.hasTextAt(0, kDosSignature) || !pe || !image.hasTextAt(*pe, kPeSignature)) {
    return std::nullopt;
  }
  return *pe;
}

}  // namespace quillon::host
