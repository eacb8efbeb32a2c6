#include "quillon/host/assemblies/assembly_image.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "quillon/base/files.h"
#include "tests/support/temporary_directory.h"

namespace quillon::host {
namespace {

using ::testing::HasSubstr;

void put(std::string& image, size_t offset, unsigned long number, int size) {
  for (int i = 0; i < size; ++i) {
    image[offset + i] = static_cast<char>(number >> (8 * i));
  }
}

// The smallest image that the check accepts: one section, which contains the CLI header.
std::string image(unsigned long entryPoint, unsigned long flags = 1, bool is64 = false) {
  constexpr size_t kPe = 0x80;
  constexpr size_t kOptionalSize = 0xf0;
  constexpr size_t kData = 0x200;
  std::string bytes(0x300, '\0');
  bytes.replace(0, 2, "MZ");
  put(bytes, 0x3c, kPe, 4);
  bytes.replace(kPe, 2, "PE");
  put(bytes, kPe + 6, 1, 2);
  put(bytes, kPe + 20, kOptionalSize, 2);
  put(bytes, kPe + 24, is64 ? 0x20b : 0x10b, 2);
  put(bytes, kPe + 24 + (is64 ? 112 : 96) + 14 * 8, 0x2008, 4);
  const size_t section = kPe + 24 + kOptionalSize;
  put(bytes, section + 12, 0x2000, 4);
  put(bytes, section + 16, 0x100, 4);
  put(bytes, section + 20, kData, 4);
  put(bytes, kData + 8 + 16, flags, 4);
  put(bytes, kData + 8 + 20, entryPoint, 4);
  return bytes;
}

TEST(AssemblyImage, IsExecutableWithAManagedEntryPoint) {
  EXPECT_EQ(imageError(image(0x06000001)), "");
  EXPECT_EQ(imageError(image(0x06000001, 1, true)), "");
}

TEST(AssemblyImage, NeedsAnEntryPoint) { EXPECT_EQ(imageError(image(0)), "it has no entry point"); }

TEST(AssemblyImage, RejectsNativeImages) {
  EXPECT_EQ(imageError(image(0x06000001, 0x10)), "it holds native code, not an assembly");
  std::string noCli = image(0x06000001);
  put(noCli, 0x80 + 24 + 96 + 14 * 8, 0, 4);
  EXPECT_EQ(imageError(noCli), "it holds native code, not an assembly");
}

TEST(AssemblyImage, RejectsOtherBytes) {
  EXPECT_EQ(imageError(""), "it is not an assembly");
  EXPECT_EQ(imageError("MZ"), "it is not an assembly");
  EXPECT_EQ(imageError("\x7f"
                       "ELF and what follows it, for some bytes more than sixty-four of them"),
            "it is not an assembly");
}

TEST(AssemblyImage, RejectsTruncatedImages) {
  const std::string whole = image(0x06000001);
  constexpr size_t kEndOfEntryPoint = 0x200 + 8 + 24;
  for (size_t size = 0; size < kEndOfEntryPoint; ++size) {
    EXPECT_NE(imageError(std::string(whole, 0, size)), "") << size;
  }
}

TEST(AssemblyImage, ReadsWithinBoundsWhateverTheNumbers) {
  const std::string whole = image(0x06000001);
  for (size_t at = 0; at + 4 <= whole.size(); ++at) {
    std::string modified = whole;
    put(modified, at, 0xffffffff, 4);
    (void)imageError(modified);  // the address sanitizer reports a read out of bounds
  }
}

TEST(AssemblyImage, HasReadyToRunCodeIfItHasAReadyToRunHeader) {
  constexpr size_t kManagedNativeHeader = 0x200 + 8 + 64;
  std::string compiled = image(0x06000001);
  EXPECT_FALSE(hasReadyToRunCode(std::string_view(compiled)));
  put(compiled, kManagedNativeHeader, 0x2060, 4);
  EXPECT_TRUE(hasReadyToRunCode(std::string_view(compiled)));
  for (size_t size = 0; size < kManagedNativeHeader + 4; ++size) {
    EXPECT_FALSE(hasReadyToRunCode(std::string_view(compiled).substr(0, size))) << size;
  }
  EXPECT_FALSE(hasReadyToRunCode(std::filesystem::path("/nonexistent/App.dll")));
}

// An image with `size` bytes between its section table and the section.
std::string imageWithGap(size_t size) {
  std::string bytes = image(0x06000001);
  bytes.insert(0x200, size, '\0');
  put(bytes, 0x80 + 24 + 0xf0 + 20, 0x200 + size, 4);
  return bytes;
}

TEST(AssemblyImage, IsReadFromAFileInParts) {
  const test::TemporaryDirectory folder;
  const std::filesystem::path file = folder.path() / "App.dll";
  for (const size_t gap : {0, 3500, 3564, 3572, 100'000}) {
    const std::string bytes = imageWithGap(gap);
    ASSERT_EQ(imageError(bytes), "") << gap;
    std::ofstream(file, std::ios::binary) << bytes;
    EXPECT_TRUE(requireExecutableAssembly(file).has_value()) << gap;
    std::ofstream(file, std::ios::binary) << bytes.substr(0, 0x200 + gap + 8 + 20);
    EXPECT_FALSE(requireExecutableAssembly(file).has_value()) << gap;
  }
}

TEST(AssemblyImage, FailureNamesAFileAboveTheLimit) {
  const test::TemporaryDirectory folder;
  const std::filesystem::path file = folder.path() / "App.dll";
  std::ofstream(file, std::ios::binary) << image(0x06000001);
  std::filesystem::resize_file(file, kMaxAssemblySize);
  EXPECT_TRUE(requireExecutableAssembly(file).has_value());
  std::filesystem::resize_file(file, kMaxAssemblySize + 1);
  const auto checked = requireExecutableAssembly(file);
  ASSERT_FALSE(checked.has_value());
  EXPECT_THAT(checked.error().what, HasSubstr("it cannot be read: larger than 256 MiB"));
  EXPECT_FALSE(hasReadyToRunCode(file));
}

TEST(AssemblyImage, FailureNamesAFileThatCannotBeRead) {
  const auto checked = requireExecutableAssembly("/nonexistent/App.dll");
  ASSERT_FALSE(checked.has_value());
  EXPECT_THAT(checked.error().what, HasSubstr("'/nonexistent/App.dll': it cannot be read"));
}

}  // namespace
}  // namespace quillon::host
