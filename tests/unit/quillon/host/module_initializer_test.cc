#include "quillon/host/assemblies/module_initializer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace quillon::host {
namespace {

constexpr size_t kStart = 0x200;  // of the only section
constexpr unsigned long kAddress = 0x2000;
constexpr size_t kRoot = kStart + 0x60;  // of the metadata

std::string little(unsigned long number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes += static_cast<char>(number >> (8 * i));
  }
  return bytes;
}

void put(std::string& image, size_t offset, const std::string& bytes) {
  image.replace(offset, bytes.size(), bytes);
}

// The stream of tables (ECMA-335 II.24.2.6): one module, two types and methods. The first type has
// the first `ofModule` of the methods. `names` has each method's offset in the names.
std::string tables(const std::vector<unsigned long>& names, unsigned long ofModule) {
  std::string bytes(6, '\0');
  bytes += little(0, 1) + little(1, 1) + little(0x45, 8) + little(0, 8);
  bytes += little(1, 4) + little(2, 4) + little(names.size(), 4);
  bytes += std::string(10, '\0');  // the module
  for (const unsigned long firstMethod : {1UL, 1 + ofModule}) {
    bytes += std::string(12, '\0') + little(firstMethod, 2);
  }
  for (const unsigned long name : names) {
    bytes += std::string(8, '\0') + little(name, 2) + std::string(4, '\0');
  }
  return bytes;
}

// An assembly whose names are ".cctor" at 1 and "Main" at 8.
std::string assembly(const std::vector<unsigned long>& names, unsigned long ofModule) {
  constexpr size_t kPe = 0x80;
  constexpr size_t kOptional = kPe + 24;
  std::string bytes(kStart + 0x200, '\0');
  put(bytes, 0, "MZ");
  put(bytes, 0x3c, little(kPe, 4));
  put(bytes, kPe, "PE");
  put(bytes, kPe + 6, little(1, 2));
  put(bytes, kPe + 20, little(0xf0, 2));
  put(bytes, kOptional, little(0x10b, 2));
  put(bytes, kOptional + 96 + 14 * 8, little(kAddress, 4));
  put(bytes, kOptional + 0xf0 + 12, little(kAddress, 4) + little(0x200, 4) + little(kStart, 4));
  put(bytes, kStart + 8, little(kAddress + kRoot - kStart, 4));
  const std::string stream = tables(names, ofModule);
  std::string root = "BSJB" + little(1, 2) + little(1, 2) + little(0, 4) + little(4, 4) + "v4";
  root.resize(20, '\0');
  root += little(0, 2) + little(2, 2);
  root += little(0x50, 4) + little(stream.size(), 4) + std::string("#~\0\0", 4);
  root += little(0x30 + 0x10, 4) + little(0x10, 4) + std::string("#Strings\0\0\0\0", 12);
  root.resize(0x40, '\0');
  root += std::string("\0.cctor\0Main\0", 13);
  root.resize(0x50, '\0');
  put(bytes, kRoot, root + stream);
  return bytes;
}

bool hasOne(const std::string& image) { return hasModuleInitializer(std::string_view(image)); }

TEST(ModuleInitializer, IsATypeInitializerOfTheFirstType) {
  EXPECT_TRUE(hasOne(assembly({1, 8}, 1)));
  EXPECT_TRUE(hasOne(assembly({8, 1, 8}, 2)));
  EXPECT_FALSE(hasOne(assembly({8, 1}, 1))) << "the second type's";
  EXPECT_FALSE(hasOne(assembly({1, 8}, 0)));
  EXPECT_FALSE(hasOne(assembly({8}, 0)));
}

TEST(ModuleInitializer, IsAssumedIfTheMetadataCannotBeRead) {
  const std::string whole = assembly({8, 8}, 1);
  ASSERT_FALSE(hasOne(whole));
  for (const size_t field : {kRoot, kRoot + 12, kRoot + 0x50 + 8}) {
    std::string damaged = whole;
    put(damaged, field, "\xff\xff\xff\xff");
    EXPECT_TRUE(hasOne(damaged)) << field;
  }
  const size_t end = kRoot + 0x50 + tables({8, 8}, 1).size() - 14 - 6;
  for (size_t size = kStart + 8 + 4; size < end; ++size) {
    EXPECT_TRUE(hasOne(whole.substr(0, size))) << size;
  }
}

TEST(ModuleInitializer, IsAbsentFromOtherFiles) {
  EXPECT_FALSE(hasOne(""));
  EXPECT_FALSE(
      hasOne("\x7f"
             "ELF and what follows it, for some bytes more than sixty-four of them"));
}

TEST(ModuleInitializer, ReadsWithinBoundsWhateverTheNumbers) {
  const std::string whole = assembly({8, 8}, 1);
  for (size_t at = 0; at + 4 <= whole.size(); ++at) {
    std::string modified = whole;
    put(modified, at, "\xff\xff\xff\xff");
    (void)hasOne(modified);  // the address sanitizer reports a read out of bounds
  }
}

TEST(ModuleInitializer, IsReadFromAFile) {
  const test::TemporaryDirectory folder;
  const std::filesystem::path file = folder.path() / "App.dll";
  EXPECT_TRUE(hasModuleInitializer(file));
  std::ofstream(file, std::ios::binary) << assembly({8}, 1);
  EXPECT_FALSE(hasModuleInitializer(file));
  std::ofstream(file, std::ios::binary) << assembly({1}, 1);
  EXPECT_TRUE(hasModuleInitializer(file));
}

}  // namespace
}  // namespace quillon::host
