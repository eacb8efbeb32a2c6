// Power cuts while packages are installed and removed.
#include "workstation/packages.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "device_paths.h"
#include "quillon/device/cached_lists.h"
#include "tests/system/power_cut/power_cut.h"
#include "tests/system/torture/traced_process.h"
#include "tests/unit/platform/sample_package.h"

namespace quillon::power_cut {
namespace {

namespace fs = std::filesystem;
using test::SamplePackage;
using workstation::Package;

constexpr char kRoot[] = "/opt/usr/apps/p";
constexpr char kOtherRoot[] = "/opt/share/deep/p";
constexpr char kFixedFolders[] = "/usr/share/dotnet.velora/lib:/usr/share/dotnet.velora/tvappapi";
constexpr char kOffersFolder[] =
    "[application.metadata]\n\"/velora/metadata/support-fs-external-component\" = 'any'";

struct Version {
  std::string number;
  std::string root = kRoot;
  bool offersFolder = false;
};

std::string largeContent(const Version& version) {
  std::string content;
  while (content.size() < 9'000) {
    content += version.number + " " + std::to_string(content.size()) + "\n";
  }
  return content;
}

void requireSuccess(bool succeeded) {
  if (!succeeded) {
    std::abort();
  }
}

// As `quillon package install` and `remove` do it.
template <typename Change>
void changePackages(const Change& change) {
  requireSuccess(device::removeCachedLists("/").has_value());
  requireSuccess(change().has_value());
  requireSuccess(device::removeCachedLists("/").has_value());
}

void install(const Version& version) {
  SamplePackage sample("p", version.number);
  sample.add("root = '" + version.root + "'");
  sample.file("version", version.number).file("large", largeContent(version));
  const fs::path files = sample.folder() / "files";
  fs::create_directories(files / "folder/inner");
  test::writeFile(files / "folder/inner/version", version.number);
  test::writeFile(files / "empty", "");
  fs::create_symlink("version", files / "link");
  fs::permissions(files / "version", fs::perms(0755));
  sample.add("[[application]]\nid = 'p.main'\nexec = 'version'");
  sample.add(version.offersFolder ? kOffersFolder : "");
  changePackages([&] { return sample.install(); });
}

void remove() {
  changePackages([] { return workstation::removePackage("p"); });
}

bool isComplete(const std::string& root, const Version& version) {
  const fs::path path = root;
  std::error_code error;
  return test::contentsOf(path / "version") == version.number &&
         test::contentsOf(path / "large") == largeContent(version) &&
         test::contentsOf(path / "folder/inner/version") == version.number &&
         fs::is_regular_file(path / "empty", error) && fs::is_symlink(path / "link", error) &&
         fs::status(path / "version", error).permissions() == fs::perms(0755);
}

class Packages : public PowerCut {
 protected:
  // The package before and after the work; nullopt if it is not installed.
  using Installed = std::optional<Version>;

  static constexpr const char* kNewRegistry = "/opt/usr/share/quillon/packages.db.new";

  void SetUp() override {
    PowerCut::SetUp();
    if (!IsSkipped()) {
      requireSuccess(SamplePackage("bystander").install().has_value());
    }
  }

  // `prepare` is called at last before the change.
  void cutDuringChange(const Installed& before, const Installed& after,
                       const std::function<void()>& prepare = {}) {
    if (before) {
      install(*before);
    }
    launchLists();  // writes the cached lists
    if (prepare) {
      prepare();
    }
    cutDuring(
        [&] {
          after ? install(*after) : remove();
          mark();
        },
        [&](std::size_t marks) {
          const Installed found = readInstalled(before, after);
          if (marks == 0) {
            expectFilesDuring(found, before, after);
          } else {
            EXPECT_EQ(found.has_value(), after.has_value());
            EXPECT_EQ(found ? found->number : "", after ? after->number : "");
            expectFiles(found);
          }
          expectLists(found);
          expectRecovery(found);
        });
  }

  // The installation of another package first undoes what a killed one has left.
  void cutDuringRecovery(const Version& version, const Installed& next) {
    install(version);
    killBeforeCommit(next);
    launchLists();
    cutDuring(
        [&] {
          requireSuccess(SamplePackage("other").install().has_value());
          mark();
        },
        [&](std::size_t marks) {
          const Installed found = readInstalled(version, next);
          EXPECT_TRUE(found && found->number == version.number);
          if (marks == 0) {
            expectFilesDuring(found, version, next);
          } else {
            expectFiles(found);
            EXPECT_EQ(workstation::listPackages()->size(), 3U);
          }
          expectLists(found);
          expectRecovery(found);
        });
  }

 private:
  // Kills an installation or removal before it replaces the registry for the last time: the files
  // have been exchanged or removed.
  static void killBeforeCommit(const Installed& next) {
    const int last = next ? 3 : 2;
    int replacements = 0;
    const auto killed = torture::follow(
        [&] { next ? install(*next) : remove(); },
        {.atEntry =
             [&](const torture::SystemCall& call) {
               const bool replaces = call.number == SYS_rename && call.textAt(0) == kNewRegistry;
               return replaces && ++replacements == last ? torture::Verdict::kill()
                                                         : torture::Verdict::run();
             },
         .atExit = {}});
    ASSERT_TRUE(killed.killed);
    ASSERT_EQ(test::contentsOf(kRoot + std::string("/version")), next ? next->number : "");
  }

  // The version that the registry has.
  static Installed readInstalled(const Installed& before, const Installed& after) {
    const auto packages = workstation::listPackages();
    EXPECT_TRUE(packages) << packages.error().what;
    const auto application = workstation::findPackageOfApplication("p.main");
    EXPECT_TRUE(application) << application.error().what;
    for (const Package& package : packages.value_or(std::vector<Package>())) {
      for (const Installed& version : {before, after}) {
        if (package.id == "p" && version && package.version == version->number) {
          EXPECT_EQ(package.rootPath, version->root);
          EXPECT_TRUE(application && *application);
          return version;
        }
      }
    }
    EXPECT_FALSE(before && after) << "the registry has neither version";
    return std::nullopt;
  }

  static void expectFiles(const Installed& found) {
    if (found) {
      EXPECT_TRUE(isComplete(found->root, *found)) << "version " << found->number;
    }
  }

  // Until the next installation, the files may be those of the version that is not registered yet,
  // or be removed. They are not a part of a version.
  static void expectFilesDuring(const Installed& found, const Installed& before,
                                const Installed& after) {
    if (!found || !fs::exists(found->root)) {
      EXPECT_FALSE(found && after) << "the files are gone";
      return;
    }
    EXPECT_TRUE((before && isComplete(found->root, *before)) ||
                (after && isComplete(found->root, *after)))
        << "the files of version " << found->number << " are incomplete";
  }

  static void expectLists(const Installed& found) {
    std::string folders = kFixedFolders;
    if (found && found->offersFolder) {
      folders += ":" + found->root + device_paths::kCobaOfPackage;
    }
    const torture::Launched launched = launchLists();
    EXPECT_EQ(launched.ending, "");
    EXPECT_EQ(launched.list, expectedAssemblies() + "\n" + folders);
  }

  // The next installation cleans up. Then files and registry match, and nothing else is left.
  static void expectRecovery(const Installed& found) {
    const auto installed = SamplePackage("other").install();
    EXPECT_TRUE(installed) << installed.error().what;
    expectFiles(found);
    std::size_t folders = 0;
    for (const char* parent : {"/opt/usr/apps", "/opt/share/deep"}) {
      std::error_code missing;
      for (const auto& entry : fs::directory_iterator(parent, missing)) {
        EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
        ++folders;
      }
    }
    EXPECT_EQ(folders, found ? 3U : 2U);
  }
};

TEST_F(Packages, OneIsInstalled) { cutDuringChange(std::nullopt, Version{"1"}); }

TEST_F(Packages, OneThatOffersAFolderIsInstalled) {
  cutDuringChange(std::nullopt, Version{"1", kRoot, true});
}

TEST_F(Packages, OneIsReplaced) { cutDuringChange(Version{"1"}, Version{"2", kRoot, true}); }

TEST_F(Packages, OneIsReplacedAtAnotherRoot) {
  cutDuringChange(Version{"1", kRoot, true}, Version{"2", kOtherRoot, true});
}

TEST_F(Packages, AKilledReplacementIsUndone) {
  cutDuringRecovery(Version{"1"}, Version{"2", kRoot, true});
}

TEST_F(Packages, AKilledRemovalIsUndone) {
  cutDuringRecovery(Version{"1", kRoot, true}, std::nullopt);
}

// Dies in a change of the registry that version 0.1.0 made: in place, with a journal.
void interruptATransaction() {
  const pid_t child = fork();
  if (child == 0) {
    sqlite3* database = nullptr;
    // A small cache: SQLite writes changed pages to the file before the transaction ends.
    requireSuccess(sqlite3_open(workstation::kRegistryPath, &database) == SQLITE_OK &&
                   sqlite3_exec(database,
                                "PRAGMA cache_size = 1; BEGIN; DELETE FROM metadata;"
                                "DELETE FROM application; DELETE FROM package;",
                                nullptr, nullptr, nullptr) == SQLITE_OK);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  ASSERT_TRUE(fs::exists(workstation::kRegistryPath + std::string("-journal")));
}

TEST_F(Packages, TheJournalOfAnEarlierVersionIsRolledBackOnce) {
  cutDuringChange(Version{"1"}, Version{"2", kRoot, true}, interruptATransaction);
}

TEST_F(Packages, OneIsRemoved) { cutDuringChange(Version{"1", kRoot, true}, std::nullopt); }

}  // namespace
}  // namespace quillon::power_cut
