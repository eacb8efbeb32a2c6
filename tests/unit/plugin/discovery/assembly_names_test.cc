#include <gtest/gtest.h>

#include "plugin/src/plugin-util/assembly_discovery.h"

namespace {

TEST(AssemblyNames, ManagedAssembliesEndInDllOrExe) {
  for (const char* name : {"A.dll", "B.DLL", "C.Exe", "/d/e.exe", ".dll"}) {
    EXPECT_TRUE(isManagedAssembly(name)) << name;
  }
  for (const char* name : {"D.txt", "E.so", "A.ni", "F.ni.dll", "F.NI.EXE", "dll", "A.dll.config",
                           "A_dll", "", "exe"}) {
    EXPECT_FALSE(isManagedAssembly(name)) << name;
  }
}

TEST(AssemblyNames, NativeImagesAreRecognizedByPosition) {
  for (const char* name : {"x.ni.dll", "x.ni.exe", "x.NI.abc", "F.ni.dll", ".ni.dll", "x.nI.123"}) {
    EXPECT_TRUE(isNativeImage(name)) << name;
  }
  for (const char* name : {"A.ni", "abc.ni.x", "ni.dll", "x.ni", "x.ni.dl", "x.no.dll", ""}) {
    EXPECT_FALSE(isNativeImage(name)) << name;
  }
}

TEST(AssemblyNames, KeyIsTheNameWithoutExtensionAndImageSuffix) {
  EXPECT_EQ(getAssemblyNameFromPath("/a/b/System.Linq.dll"), "System.Linq");
  EXPECT_EQ(getAssemblyNameFromPath("/a/b/System.Linq.ni.dll"), "System.Linq");
  EXPECT_EQ(getAssemblyNameFromPath("A.NI.dll"), "A.NI");
  EXPECT_EQ(getAssemblyNameFromPath("A.ni.ni.dll"), "A.ni");
  EXPECT_EQ(getAssemblyNameFromPath("x.ni"), "x");
  EXPECT_EQ(getAssemblyNameFromPath("Foo"), "Foo");
  EXPECT_EQ(getAssemblyNameFromPath("/dir.with.dots/Foo"), "Foo");
  EXPECT_EQ(getAssemblyNameFromPath(".ni.dll"), ".ni");  // too short to be stripped
  EXPECT_EQ(getAssemblyNameFromPath(""), "");
}

TEST(AssemblyNames, StrippingIgnoresCase) {
  EXPECT_EQ(stripNiDLL("/a/A.ni.dll"), "/a/A");
  EXPECT_EQ(stripNiDLL("A.NI.EXE"), "A");
  EXPECT_EQ(stripNiDLL("A.dll"), "A");
  EXPECT_EQ(stripNiDLL("A.dll.dll"), "A.dll");
  EXPECT_EQ(stripNiDLL("A.ni.ni.dll"), "A.ni");
  EXPECT_EQ(stripNiDLL("Ab.Ni"), "Ab");
  EXPECT_EQ(stripNiDLL("A.so"), "A.so");
}

TEST(AssemblyNames, StrippingLeavesShortTextsAlone) {
  for (const char* name : {".dll", "a.ni", ".ni", "x", ""}) {
    EXPECT_EQ(stripNiDLL(name), name);
  }
}

}  // namespace
