#include "quillon/host/assemblies/module_initializer.h"

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <utility>

#include "quillon/base/files.h"
#include "quillon/host/assemblies/image_reader.h"

namespace quillon::host {
namespace {

constexpr std::string_view kTypeInitializer{".cctor\0", 7};

// Offsets of ECMA-335 II.24.2.1, II.24.2.2 and II.24.2.6.
constexpr size_t kCliMetadata = 8;
constexpr std::string_view kSignature = "BSJB";
constexpr size_t kVersionLength = 12;
constexpr size_t kVersion = 16;
constexpr size_t kMaxStreams = 16;
constexpr size_t kHeapSizes = 6;
constexpr size_t kValidTables = 8;
constexpr size_t kRowCounts = 24;
constexpr unsigned kTables = 64;

// Numbers of tables (ECMA-335 II.22).
enum Table : uint8_t {
  kModule = 0x00,
  kTypeRef = 0x01,
  kTypeDef = 0x02,
  kFieldPtr = 0x03,
  kField = 0x04,
  kMethodPtr = 0x05,
  kMethodDef = 0x06,
  kParam = 0x08,
  kModuleRef = 0x1a,
  kTypeSpec = 0x1b,
  kAssemblyRef = 0x23,
};

// The tables of an assembly's metadata up to that of the methods.
class Metadata {
 public:
  // Returns nullopt if they cannot be read.
  static std::optional<Metadata> read(const ImageBytes& image, size_t root);

  // The rows of MethodDef that belong to the first type, <Module>: from, up to.
  [[nodiscard]] std::optional<std::pair<uint32_t, uint32_t>> methodsOfModule() const;
  // Whether a row of MethodDef is a type initializer.
  [[nodiscard]] std::optional<bool> isTypeInitializer(uint32_t row) const;

 private:
  explicit Metadata(const ImageBytes& image) : image_(image) {}
  bool findStreams(size_t root);
  bool readRowCounts();

  [[nodiscard]] size_t heapIndex(unsigned bit) const { return (heapSizes_ & 1U << bit) ? 4 : 2; }
  [[nodiscard]] size_t text() const { return heapIndex(0); }
  [[nodiscard]] size_t guid() const { return heapIndex(1); }
  [[nodiscard]] size_t blob() const { return heapIndex(2); }
  [[nodiscard]] size_t index(Table table) const { return rows_[table] < 1U << 16 ? 2 : 4; }
  // Of a coded index with two bits for the table (ECMA-335 II.24.2.6).
  [[nodiscard]] size_t index(std::initializer_list<Table> tables) const;
  [[nodiscard]] size_t sizeOfRow(Table table) const;
  [[nodiscard]] size_t offsetOfRow(Table table, uint32_t row) const;
  [[nodiscard]] std::optional<uint32_t> number(size_t offset, size_t size) const;
  [[nodiscard]] std::optional<uint32_t> firstMethodOfType(uint32_t row) const;

  const ImageBytes& image_;
  size_t tables_ = 0;   // offset of the stream of the tables
  size_t strings_ = 0;  // offset of the stream of the names
  size_t firstRow_ = 0;
  uint8_t heapSizes_ = 0;
  std::array<uint32_t, kTables> rows_{};
};

std::optional<Metadata> Metadata::read(const ImageBytes& image, size_t root) {
  Metadata metadata(image);
  if (!metadata.findStreams(root) || !metadata.readRowCounts()) {
    return std::nullopt;
  }
  return metadata;
}

bool Metadata::findStreams(size_t root) {
  const auto versionLength = image_.at<uint32_t>(root + kVersionLength);
  if (!image_.hasTextAt(root, kSignature) || !versionLength) {
    return false;
  }
  size_t header = root + kVersion + *versionLength;
  const size_t count = image_.at<uint16_t>(header + 2).value_or(0);
  header += 4;
  for (size_t i = 0; i < count && i < kMaxStreams; ++i) {
    const size_t start = root + image_.at<uint32_t>(header).value_or(0);
    const size_t name = header + 8;
    if (image_.hasTextAt(name, std::string_view("#~\0", 3))) {
      tables_ = start;
    } else if (image_.hasTextAt(name, std::string_view("#Strings\0", 9))) {
      strings_ = start;
    }
    size_t length = 0;
    while (length < 32 && image_.at<uint8_t>(name + length).value_or(0) != 0) {
      ++length;
    }
    header = name + (length / 4 + 1) * 4;  // the name has one to four zero bytes at its end
  }
  return tables_ != 0 && strings_ != 0;
}

bool Metadata::readRowCounts() {
  const auto heapSizes = image_.at<uint8_t>(tables_ + kHeapSizes);
  const auto valid = image_.at<uint64_t>(tables_ + kValidTables);
  if (!heapSizes || !valid) {
    return false;
  }
  heapSizes_ = *heapSizes;
  size_t offset = tables_ + kRowCounts;
  for (unsigned table = 0; table < kTables; ++table) {
    if ((*valid >> table & 1) == 0) {
      continue;
    }
    const auto rows = image_.at<uint32_t>(offset);
    if (!rows) {
      return false;
    }
    rows_.at(table) = *rows;
    offset += sizeof *rows;
  }
  firstRow_ = offset;
  // No compiler writes these, which would change the numbers of methods.
  return rows_[kFieldPtr] == 0 && rows_[kMethodPtr] == 0;
}

size_t Metadata::index(std::initializer_list<Table> tables) const {
  for (const Table table : tables) {
    if (rows_[table] >= 1U << 14) {
      return 4;
    }
  }
  return 2;
}

// Of the tables up to that of the methods. readRowCounts() has refused all that are not here.
size_t Metadata::sizeOfRow(Table table) const {
  switch (table) {
    case kModule:
      return 2 + text() + 3 * guid();
    case kTypeRef:
      return index({kModule, kModuleRef, kAssemblyRef, kTypeRef}) + 2 * text();
    case kTypeDef:
      return 4 + 2 * text() + index({kTypeDef, kTypeRef, kTypeSpec}) + index(kField) +
             index(kMethodDef);
    case kField:
      return 2 + text() + blob();
    case kMethodDef:
      return 8 + text() + blob() + index(kParam);
    default:
      return 0;
  }
}

// row  the first one is 1
size_t Metadata::offsetOfRow(Table table, uint32_t row) const {
  size_t offset = firstRow_;
  for (uint8_t before = 0; before < table; ++before) {
    const auto each = static_cast<Table>(before);
    offset += sizeOfRow(each) * rows_[each];
  }
  return offset + sizeOfRow(table) * (row - 1);
}

std::optional<uint32_t> Metadata::number(size_t offset, size_t size) const {
  if (size == 4) {
    return image_.at<uint32_t>(offset);
  }
  return image_.at<uint16_t>(offset);
}

std::optional<uint32_t> Metadata::firstMethodOfType(uint32_t row) const {
  const size_t size = index(kMethodDef);
  return number(offsetOfRow(kTypeDef, row + 1) - size, size);
}

std::optional<std::pair<uint32_t, uint32_t>> Metadata::methodsOfModule() const {
  if (rows_[kTypeDef] == 0) {
    return std::nullopt;
  }
  const auto first = firstMethodOfType(1);
  const auto end = rows_[kTypeDef] > 1 ? firstMethodOfType(2) : rows_[kMethodDef] + 1;
  if (!first || !end || *first == 0 || *end > rows_[kMethodDef] + 1) {
    return std::nullopt;
  }
  return std::pair(*first, *end);
}

std::optional<bool> Metadata::isTypeInitializer(uint32_t row) const {
  constexpr size_t kName = 8;
  const auto name = number(offsetOfRow(kMethodDef, row) + kName, text());
  if (!name) {
    return std::nullopt;
  }
  return image_.hasTextAt(strings_ + *name, kTypeInitializer);
}

bool mayHaveInitializer(const ImageBytes& image) {
  const auto pe = peHeader(image);
  const auto header = pe ? cliHeader(image, *pe) : std::nullopt;
  if (!header) {
    return false;
  }
  const auto address = image.at<uint32_t>(*header + kCliMetadata);
  const auto root = address ? offsetOf(image, *pe, *address) : std::nullopt;
  const auto metadata = root ? Metadata::read(image, *root) : std::nullopt;
  const auto methods = metadata ? metadata->methodsOfModule() : std::nullopt;
  if (!methods) {
    return true;
  }
  for (uint32_t row = methods->first; row < methods->second; ++row) {
    if (metadata->isTypeInitializer(row).value_or(true)) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool hasModuleInitializer(std::string_view image) { return mayHaveInitializer(bytesOf(image)); }

bool hasModuleInitializer(const std::filesystem::path& path) {
  const RegularFile file = openRegularFile(path, kMaxAssemblySize);
  if (!file.descriptor) {
    return true;
  }
  ImageFile image(file);
  return mayHaveInitializer(image.bytes());
}

}  // namespace quillon::host
