// Reads the headers of an image (PE/COFF with a CLI header, ECMA-335 II.25), in memory or in a
// file. The bytes may be any: every read is checked against the end.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "quillon/base/files.h"

namespace quillon::host {

// Little-endian numbers of an image.
class ImageBytes {
 public:
  // Returns `size` bytes of an image, or fewer at its end. They are valid until the next call.
  using Reader = std::function<std::string_view(size_t offset, size_t size)>;

  explicit ImageBytes(Reader reader) : read_(std::move(reader)) {}

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

// `image` must outlive the result.
ImageBytes bytesOf(std::string_view image);

// Reads a file in parts, because only a small part of an image is needed. The first part usually
// contains all headers.
class ImageFile {
 public:
  // `file` must outlive this object.
  explicit ImageFile(const RegularFile& file) : file_(file.descriptor.get()) { load(0); }

  // This object must outlive the result.
  ImageBytes bytes() {
    return ImageBytes([this](size_t offset, size_t size) { return at(offset, size); });
  }

 private:
  std::string_view at(size_t offset, size_t size);
  void load(size_t offset);

  int file_;
  std::array<char, 4096> part_;
  size_t start_ = 0;
  size_t length_ = 0;
};

// The offset of the PE header; nullopt if the bytes are not an image.
std::optional<size_t> peHeader(const ImageBytes& image);

// The offset of the CLI header; nullopt if the image has none.
std::optional<size_t> cliHeader(const ImageBytes& image, size_t pe);

// The offset in the file of a relative virtual address, by the section table.
std::optional<size_t> offsetOf(const ImageBytes& image, size_t pe, uint32_t address);

}  // namespace quillon::host
