#include "plugin/src/plugin-util/assembly_discovery.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

#include "tests/support/tree_test.h"
#include "util/zq_utils/directory_walk.h"
#include "util/zq_utils/paths.h"

using quillon::test::platform;
using quillon::test::TreeTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

namespace {

using Texts = std::vector<std::string>;

class Discovery : public TreeTest {
 protected:
  // Returns the list for folders of the test, appended to `before`.
  std::string discover(const Texts& folders, const std::string& before = "") const {
    Texts directories;
    for (const std::string& folder : folders) {
      directories.push_back(at(folder));
    }
    std::string list = before;
    addAssembliesFromDirectories(directories, list);
    return list;
  }
  Texts pieces(const std::string& list) const {
    Texts result;
    splitPath(list, result);
    return result;
  }
  // Returns the names in a directory in the order of readdir(3).
  Texts listing(const std::string& folder) const {
    Texts names;
    scanFilesInDirectory(
        at(folder), [&](const std::string&, const char* name) { names.emplace_back(name); }, 0);
    return names;
  }
};

TEST_F(Discovery, FirstDirectoryOfANameWins) {
  makeFile("d1/A.dll");
  makeFile("d2/A.dll");
  EXPECT_EQ(discover({"d1", "d2"}), at("d1/A.dll"));
  EXPECT_EQ(discover({"d2", "d1"}), at("d2/A.dll"));
}

TEST_F(Discovery, ImageReplacesTheFileBesideIt) {
  makeFile("d1/A.dll");
  makeFile("d1/A.ni.dll");
  EXPECT_EQ(discover({"d1"}), at("d1/A.ni.dll"));
}

// Depending on the file system, a directory lists its entries by age or by a hash of the name. With
// pairs created in both orders and under many names, each of the two files is listed first in some
// pair.
TEST_F(Discovery, ImageReplacesTheFileWhicheverIsListedFirst) {
  for (int i = 0; i < 64; ++i) {
    const std::string name = "d1/N" + std::to_string(i);
    const bool imageFirst = i % 2 != 0;
    makeFile(name + (imageFirst ? ".ni.dll" : ".dll"));
    makeFile(name + (imageFirst ? ".dll" : ".ni.dll"));
  }
  const Texts names = listing("d1");
  const auto imagesFirst = std::count_if(names.begin(), names.end(), [&](const std::string& name) {
    const auto plain =
        std::find(names.begin(), names.end(), getAssemblyNameFromPath(name) + ".dll");
    return name.ends_with(".ni.dll") && &name < &*plain;
  });
  EXPECT_GT(imagesFirst, 0);
  EXPECT_LT(imagesFirst, 64);
  const Texts list = pieces(discover({"d1"}));
  EXPECT_EQ(list.size(), 64U);
  for (const std::string& path : list) {
    EXPECT_TRUE(path.ends_with(".ni.dll")) << path;
  }
}

TEST_F(Discovery, ImageTakesThePositionOfTheFileThatItReplaces) {
  for (const char* name : {"A.dll", "A.ni.dll", "B.dll", "C.dll", "C.ni.dll", "D.dll"}) {
    makeFile(std::string("d1/") + name);
  }
  Texts expected;
  for (const std::string& name : listing("d1")) {
    const std::string key = getAssemblyNameFromPath(name);
    if (std::find(expected.begin(), expected.end(), key) == expected.end()) {
      expected.push_back(key);
    }
  }
  Texts keys;
  for (const std::string& path : pieces(discover({"d1"}))) {
    keys.push_back(getAssemblyNameFromPath(path));
  }
  EXPECT_EQ(keys, expected);
}

TEST_F(Discovery, ImageElsewhereDisplacesNothing) {
  makeFile("d1/A.dll");
  makeFile("d2/A.ni.dll");
  EXPECT_EQ(discover({"d1", "d2"}), at("d1/A.dll"));
  EXPECT_EQ(discover({"d2", "d1"}), at("d2/A.ni.dll"));
}

// A directory with two different paths counts as two directories, because the paths are compared as
// strings.
TEST_F(Discovery, DirectoriesAreComparedAsStrings) {
  makeFile("d1/A.dll");
  EXPECT_EQ(discover({"d1"}), at("d1/A.dll"));
  makeLink("link", "d1");
  makeFile("d1/B.ni.dll");
  std::string list;
  addAssembliesFromDirectories({at("link"), at("d1")}, list);
  EXPECT_THAT(pieces(list), UnorderedElementsAre(at("link/A.dll"), at("link/B.ni.dll")));
}

TEST_F(Discovery, OfTwoImagesTheFirstStays) {
  makeFile("d1/A.ni.dll");
  makeFile("d2/A.ni.dll");
  makeFile("d2/A.dll");
  EXPECT_EQ(discover({"d1", "d2"}), at("d1/A.ni.dll"));
}

TEST_F(Discovery, OfTwoImagesInOneDirectoryTheFirstListedStays) {
  makeFile("d1/A.ni.dll");
  makeFile("d1/A.ni.exe");
  EXPECT_EQ(discover({"d1"}), at("d1/" + listing("d1").front()));
}

TEST_F(Discovery, TakesAssembliesAndImagesOnly) {
  for (const char* name : {"B.DLL", "C.Exe", "D.txt", "E.so", "F.ni.dll", "A.ni", "abc.ni.x",
                           "x.NI.abc", "A.deps.json"}) {
    makeFile(std::string("d1/") + name);
  }
  EXPECT_THAT(pieces(discover({"d1"})), UnorderedElementsAre(at("d1/B.DLL"), at("d1/C.Exe"),
                                                             at("d1/F.ni.dll"), at("d1/x.NI.abc")));
}

TEST_F(Discovery, NamesThatDifferInCaseAreTwo) {
  makeFile("d1/A.dll");
  makeFile("d1/a.dll");
  EXPECT_EQ(pieces(discover({"d1"})).size(), 2U);
}

TEST_F(Discovery, LinksCountButPipesAndDirectoriesDoNot) {
  makeLink("d1/L.dll", "nowhere");
  makeDirectory("d1/Directory.dll");
  makeFile("d1/sub/Below.dll");
  ASSERT_EQ(mkfifo(at("d1/Pipe.dll").c_str(), 0600), 0);
  EXPECT_EQ(discover({"d1"}), at("d1/L.dll"));
}

TEST_F(Discovery, SkipsWhatCannotBeOpened) {
  makeFile("d1/A.dll");
  makeFile("file");
  EXPECT_EQ(discover({"missing", "file", "d1"}), at("d1/A.dll"));
  std::string list;
  addAssembliesFromDirectories({"", at("d1")}, list);
  EXPECT_EQ(list, at("d1/A.dll"));
  EXPECT_TRUE(platform().lines().empty());
}

TEST_F(Discovery, JoinsOntoTheListWithOneColon) {
  makeFile("d1/A.dll");
  makeFile("d2/B.dll");
  const std::string both = at("d1/A.dll") + ":" + at("d2/B.dll");
  EXPECT_EQ(discover({"d1", "d2"}), both);
  EXPECT_EQ(discover({"d1", "d2"}, "x"), "x:" + both);
  EXPECT_EQ(discover({"d1", "d2"}, "x:"), "x:" + both);
}

TEST_F(Discovery, LooksForNoDuplicatesInTheListBefore) {
  makeFile("d1/A.dll");
  EXPECT_EQ(discover({"d1"}, at("d1/A.dll")), at("d1/A.dll") + ":" + at("d1/A.dll"));
}

TEST_F(Discovery, WithoutAssembliesTakesOneColonAway) {
  makeDirectory("d1");
  EXPECT_EQ(discover({"d1"}, "x:"), "x");
  EXPECT_EQ(discover({"d1"}, "x::"), "x:");
  EXPECT_EQ(discover({"d1"}, "x"), "x");
  EXPECT_EQ(discover({"d1"}, ""), "");
  EXPECT_EQ(discover({}, "x:"), "x");
}

TEST_F(Discovery, KeepsNamesWithColonsAndLineBreaksAsTheyAre) {
  makeFile("d1/A:B\n.dll");
  EXPECT_EQ(discover({"d1"}), at("d1/A:B\n.dll"));
}

TEST_F(Discovery, FindsEveryNameOfLargeDirectories) {
  std::set<std::string> expected;
  for (int i = 0; i < 3000; ++i) {
    expected.insert(makeFile("d" + std::to_string(i % 3) + "/Assembly.Number." + std::to_string(i) +
                             ".With.A.Name.Of.Some.Length.dll"));
  }
  const Texts found = pieces(discover({"d0", "d1", "d2"}));
  EXPECT_EQ(found.size(), expected.size());
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), expected);
}

TEST_F(Discovery, IsTraced) {
  discover({});
  EXPECT_THAT(platform().trace,
              ElementsAre(HasSubstr(") void addAssembliesFromDirectories("), "end"));
  EXPECT_EQ(platform().log[0].message().rfind(" +DotNETLog:plugin-util.cc(", 0), 0U);
}

TEST_F(Discovery, DirectoryListBecomesAbsolutePaths) {
  const std::string real = getAbsolutePath(makeDirectory("real"));
  makeLink("link", "real");
  Texts directories{"before"};
  addPlatformAssembliesPaths(at("link") + "::" + at("missing") + ":" + at("real/.") + ":",
                             directories);
  EXPECT_THAT(directories, ElementsAre("before", real, "", "", real));
}

}  // namespace
