// The dynamic symbol table of the built plug-in: the symbols that it defines and those that it
// needs.
#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

using Names = std::set<std::string>;

std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

Names matchesOf(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  Names names;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
       ++match) {
    names.insert((*match)[1]);
  }
  return names;
}

// Returns a header without comments and preprocessor lines.
std::string codeOf(const std::filesystem::path& file) {
  return std::regex_replace(contentOf(file), std::regex("/\\*[^]*?\\*/|#.*"), "");
}

// Returns the output of a command with a file as its argument; default: the plug-in.
std::string told(const std::string& command, const std::string& file = QUILLON_PLUGIN) {
  const std::unique_ptr<FILE, int (*)(FILE*)> output(popen((command + " " + file).c_str(), "r"),
                                                     pclose);
  std::string text;
  for (int c; (c = fgetc(output.get())) != EOF;) {
    text += static_cast<char>(c);
  }
  return text;
}

// Returns the names that nm prints with `option`, without versions.
Names symbols(const std::string& option, const std::string& file = QUILLON_PLUGIN) {
  const std::string text = told(std::string(QUILLON_NM) + " -D --format=posix " + option, file);
  return matchesOf("\n" + text, "\n([^ @]+)");
}

// Joins the names with line ends.
std::string toText(const Names& names) {
  std::string text;
  for (const std::string& name : names) {
    text += name + "\n";
  }
  return text;
}

// Returns the functions and extern variables that a C header declares.
Names declaredIn(const std::filesystem::path& header) {
  const std::string text = codeOf(header);
  Names names = matchesOf(text, "\\b([a-z_]+[a-z_0-9]*)\\(");
  names.merge(matchesOf(text, "\\bextern bool (\\w+);"));
  for (const char* word : {"__attribute__", "format", "visibility"}) {
    names.erase(word);
  }
  return names;
}

// Returns the names that belong to the platform's services.
Names symbolsOfThePlatform(const Names& all) {
  const std::regex services(
      "__dlog_.*|trace_(begin|end)|(app_info|package_info|pkgmgr|pkgmgrinfo|aul|smack|vconf)_.*");
  Names names;
  for (const std::string& name : all) {
    if (std::regex_match(name, services)) {
      names.insert(name);
    }
  }
  return names;
}

TEST(ExportedSymbols, AreThoseOfThePublicHeader) {
  const Names defined = symbols("--defined-only");
  EXPECT_EQ(defined, declaredIn(QUILLON_HEADER));
  EXPECT_EQ(defined.count("checkOnTerminate"), 1U);
  EXPECT_EQ(defined.count("plugin_initialize"), 1U);
}

TEST(ExportedSymbols, AreThoseOfTheVersionScript) {
  const std::string text = codeOf(QUILLON_VERSION_SCRIPT);
  EXPECT_EQ(symbols("--defined-only"), matchesOf(text, "\\b(\\w+);"));
}

// A preloaded library must be able to replace each of them.
TEST(ExportedSymbols, ThePlatformIsReachedThroughTheSymbolTable) {
  const Names defined = symbols("--defined-only");
  Names platform;
  for (const auto& header : std::filesystem::directory_iterator(QUILLON_PLATFORM_HEADERS)) {
    platform.merge(declaredIn(header.path()));
  }
  for (const std::string& name : platform) {
    EXPECT_EQ(defined.count(name), 0U) << name;
  }
}

// The plug-in uses exactly these functions of the platform.
TEST(ExportedSymbols, ThePlatformFunctionsInUseAreUndefined) {
  const Names expected = {
      "__dlog_print",
      "trace_begin",
      "trace_end",
      "app_info_create",
      "app_info_destroy",
      "app_info_foreach_metadata",
      "app_info_get_package",
      "app_info_metadata_filter_add",
      "app_info_metadata_filter_create",
      "app_info_metadata_filter_destroy",
      "app_info_metadata_filter_foreach",
      "aul_app_get_pkgid_bypid",
      "package_info_create",
      "package_info_foreach_app_from_package",
      "package_info_foreach_privilege_info",
      "pkgmgr_installer_info_get_target_uid",
      "pkgmgrinfo_appinfo_destroy_appinfo",
      "pkgmgrinfo_appinfo_get_appinfo",
      "pkgmgrinfo_appinfo_get_exec",
      "pkgmgrinfo_appinfo_get_metadata_value",
      "pkgmgrinfo_pkginfo_destroy_pkginfo",
      "pkgmgrinfo_pkginfo_get_mainappid",
      "pkgmgrinfo_pkginfo_get_pkginfo",
      "pkgmgrinfo_pkginfo_get_root_path",
      "pkgmgrinfo_pkginfo_get_usr_pkginfo",
      "smack_getlabel",
      "smack_lgetlabel",
      "smack_lsetlabel",
      "smack_setlabel",
      "vconf_get_str",
      "vconf_ignore_key_changed",
      "vconf_keynode_get_int",
      "vconf_notify_key_changed",
  };
  EXPECT_EQ(symbolsOfThePlatform(symbols("--undefined-only")), expected);
}

TEST(ExportedSymbols, TheKernelIsReachedThroughTheSymbolTable) {
  const Names undefined = symbols("--undefined-only");
  for (const char* name :
       {"prctl", "sync", "fsync", "rename", "access", "realpath", "exit", "mkfifo", "fopen"}) {
    EXPECT_EQ(undefined.count(name), 1U) << name;
  }
}

// The signal handlers of the plug-in must not run the dynamic linker, and must stay mapped.
TEST(ExportedSymbols, EverythingIsBoundAtTheStartAndStaysLoaded) {
  const std::string dynamic = told(std::string(QUILLON_READELF) + " -d");
  EXPECT_EQ(matchesOf(dynamic, "FLAGS_1.*(NOW)").size(), 1U) << dynamic;
  EXPECT_EQ(matchesOf(dynamic, "FLAGS_1.*(NODELETE)").size(), 1U) << dynamic;
}

// Trace spans are named after functions, as people search for them: "void* stdOutRedirect(void*)".
// clang spells them otherwise: "void *stdOutRedirect(void *)".
#ifndef __clang__
TEST(TraceNames, ContainNoUnnamedNamespace) {
  const std::string constants = told(std::string(QUILLON_READELF) + " -p .rodata");
  EXPECT_NE(constants.find("void* stdOutRedirect(void*)"), std::string::npos);
  EXPECT_EQ(matchesOf(constants, "\\] +(.*\\{anonymous\\}.*)"), Names());
}
#endif

// The program and the platform link the C++ library statically. They must not export its symbols:
// the runtime and the plug-in, which are loaded later, must find those of the shared library, and
// only one unwinder.
TEST(ExportedSymbols, TheProgramAndThePlatformShowNothingOfTheCxxLibrary) {
  for (const char* file : {QUILLON_PROGRAM, QUILLON_PLATFORM}) {
    const std::string dynamic = told(std::string(QUILLON_READELF) + " -d", file);
    if (dynamic.find("[libstdc++.so") != std::string::npos) {
      GTEST_SKIP() << file << " is linked with the shared one: no archive, or sanitizers";
    }
    EXPECT_NE(dynamic.find("[libgcc_s.so.1]"), std::string::npos) << file;
    EXPECT_EQ(
        matchesOf(
            toText(symbols("--defined-only", file)),
            "(?:^|\n)(_ZN?K?S[a-z]\\w*|_ZT.N?S[a-z]\\w*|_Zn\\w*|_Zd\\w*|__cxa_\\w*|_Unwind\\w*)"),
        Names())
        << file;
  }
}

// Every launch loads the libraries that the plug-in needs.
TEST(ExportedSymbols, ThePluginNeedsFewLibraries) {
  const Names needed =
      matchesOf(told(std::string(QUILLON_READELF) + " -d"), "\\(NEEDED\\).*\\[lib([a-z_+-]+)");
  EXPECT_THAT(needed, ::testing::Contains("quillon-platform"));
  EXPECT_THAT(needed, ::testing::Not(::testing::Contains("boost_filesystem")));
  EXPECT_THAT(needed, ::testing::Not(::testing::Contains("crypto")));
}

// The zone library is loaded by name when an application needs it.
TEST(ExportedSymbols, NoZoneFunctionIsNeededToLoadThePlugin) {
  for (const std::string& name : symbols("--undefined-only")) {
    EXPECT_NE(name.rfind("zone_", 0), 0U) << name;
  }
}

}  // namespace
