// How the validator parses requests and applies its policy.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "quillon/base/files.h"
#include "quillon/validator/decision.h"
#include "quillon/validator/policy.h"
#include "quillon/validator/request.h"
#include "quillon/validator/requester.h"
#include "tests/support/program.h"
#include "tests/support/temporary_directory.h"

namespace quillon::validator {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr char kWord[] = "RequestForDllValidation:";

std::string requestOf(const std::string& path) { return std::string(kWord) + "7:" + path; }

std::vector<std::string> pathsOf(const std::vector<Request>& requests) {
  std::vector<std::string> paths;
  for (const Request& request : requests) {
    paths.push_back(request.path);
  }
  return paths;
}

TEST(ValidatorRequest, HasAProcessAndAPath) {
  const Request request = parseRequest(requestOf("/opt/usr/a:b.dll"));
  EXPECT_EQ(request.wrong, "");
  EXPECT_EQ(request.process, 7);
  EXPECT_EQ(request.path, "/opt/usr/a:b.dll");
}

TEST(ValidatorRequest, IsStrict) {
  const std::vector<std::string> texts = {"",
                                          "7:/a",
                                          "requestForDllValidation:7:/a",
                                          kWord,
                                          std::string(kWord) + "7",
                                          std::string(kWord) + ":/a",
                                          std::string(kWord) + "x:/a",
                                          std::string(kWord) + "0:/a",
                                          std::string(kWord) + "-7:/a",
                                          std::string(kWord) + " 7:/a",
                                          std::string(kWord) + "7 :/a",
                                          std::string(kWord) + "99999999999999999999:/a",
                                          requestOf(""),
                                          requestOf("a"),
                                          requestOf("/a/../b"),
                                          requestOf("/a//b"),
                                          requestOf("/a\nb"),
                                          requestOf("/a\x1b[0m"),
                                          requestOf("/a\r")};
  for (const std::string& text : texts) {
    EXPECT_NE(parseRequest(text).wrong, "") << text;
    EXPECT_EQ(parseRequest(text).path, "") << text;
    EXPECT_EQ(parseRequest(text).isRequest, text.starts_with(kWord)) << text;
  }
}

TEST(ValidatorRequests, OfSeveralClientsComeInOneText) {
  RequestReader reader;
  EXPECT_EQ(pathsOf(reader.take(requestOf("/a") + "\n" + requestOf("/b") + "\n" + requestOf("/c"))),
            (std::vector<std::string>{"/a", "/b", "/c"}));
  EXPECT_EQ(pathsOf(reader.take(requestOf("/d"))), std::vector<std::string>{"/d"});
}

// A read of the server returns at most 1023 bytes.
TEST(ValidatorRequests, ThatReadsSplitAreReassembled) {
  const std::string first = requestOf("/" + std::string(900, 'a'));
  const std::string second = requestOf("/" + std::string(2000, 'b'));
  const std::string third = requestOf("/c");
  const std::string bytes = first + "\n" + second + "\n" + third + "\n";
  RequestReader reader;
  std::vector<Request> all;
  for (std::size_t begin = 0; begin < bytes.size(); begin += 1023) {
    std::string piece = bytes.substr(begin, 1023);
    if (piece.ends_with('\n')) {
      piece.pop_back();
    }
    for (const Request& request : reader.take(piece)) {
      all.push_back(request);
    }
  }
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].text, first);
  EXPECT_EQ(all[1].text, second);
  EXPECT_EQ(all[2].text, third);
}

TEST(ValidatorRequests, OneOfExactly1023BytesIsComplete) {
  const std::string request = requestOf("/" + std::string(1022 - requestOf("/").size(), 'a'));
  RequestReader reader;  // the server has removed the line end
  EXPECT_EQ(reader.take(request).size(), 1U);
}

TEST(ValidatorRequests, ALineBreakInAPathMakesOneMalformedRequest) {
  RequestReader reader;
  const auto requests = reader.take(requestOf("/a\nb.dll") + "\n" + requestOf("/c"));
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].text, requestOf("/a\nb.dll"));
  EXPECT_NE(requests[0].wrong, "");
  EXPECT_EQ(requests[1].path, "/c");
}

TEST(ValidatorRequests, ARequestWithoutAnEndIsDropped) {
  RequestReader reader;
  std::size_t requests = 0;
  for (int text = 0; text < 20; ++text) {
    requests += reader.take(std::string(1023, 'x')).size();
  }
  EXPECT_GE(requests, 2U);
}

// A zombie keeps its process id, but reads no answer.
TEST(ValidatorRequester, HasEndedWhenItIsExiting) {
  EXPECT_FALSE(hasEnded(getpid()));
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_NAME, ") R 1 (");
    pause();
    _exit(0);
  }
  EXPECT_FALSE(hasEnded(child));
  kill(child, SIGKILL);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(kill(child, 0), 0);
  EXPECT_TRUE(hasEnded(child));
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(hasEnded(child));
}

class ValidatorPolicy : public ::testing::Test {
 protected:
  std::string policyFile(const std::string& text) const {
    test::writeFile(at("policy.toml"), text);
    return at("policy.toml");
  }
  Policy policyOf(const std::string& text) const {
    auto policy = readPolicy(policyFile(text));
    EXPECT_TRUE(policy) << policy.error().what;
    return policy ? *policy : Policy();
  }
  std::string at(const std::string& name) const {
    return (fs::canonical(folder_.path()) / name).string();
  }

 private:
  test::TemporaryDirectory folder_;
};

TEST_F(ValidatorPolicy, NamesFileLineKeyAndRemedy) {
  struct Mistake {
    std::string text;
    std::string what;
    std::string remedy;
  };
  const std::vector<Mistake> mistakes = {
      {"", "policy.toml:1: key 'default' is missing", "\"allow\" or \"deny\""},
      {"default = \"maybe\"", ":1: key 'default' is neither", "\"allow\" or \"deny\""},
      {"default = true", ":1: key 'default' is neither", "\"allow\" or \"deny\""},
      {"default = \"deny\"\nallow = []", ":2: key 'allow' is unknown", "allow-sha256"},
      {"default = \"deny\"\nallow-paths = \"/a\"", ":2: key 'allow-paths' is not a list", "\"/opt"},
      {"default = \"deny\"\nallow-paths = [\n 1]", ":3: key 'allow-paths' contains a value", "\"/"},
      {"default = \"deny\"\ndeny-paths = [\"a\"]", ":2: key 'deny-paths' contains 'a'", "\"/opt"},
      {"default = \"deny\"\ndeny-paths = [\"/a/../b\"]", "contains '/a/../b'", "\"/opt"},
      {"default = \"deny\"\nallow-sha256 = [\"12\"]", ":2: key 'allow-sha256' contains '12'",
       "sha256sum"},
      {"default = \"deny\"\nallow-sha256 = [\"" + std::string(64, 'g') + "\"]", "contains 'ggg",
       "sha256sum"},
      {"default = ", ":1: invalid TOML", "correct it there"},
  };
  for (const Mistake& mistake : mistakes) {
    const auto policy = readPolicy(policyFile(mistake.text));
    ASSERT_FALSE(policy) << mistake.text;
    EXPECT_THAT(policy.error().what, AllOf(HasSubstr("policy.toml:"), HasSubstr(mistake.what)));
    EXPECT_THAT(policy.error().remedy, HasSubstr(mistake.remedy));
  }
}

TEST_F(ValidatorPolicy, ThatCannotBeReadIsNamed) {
  for (const std::string& name : {at("none.toml"), at("")}) {
    const auto policy = readPolicy(name);
    ASSERT_FALSE(policy);
    EXPECT_THAT(policy.error().what, HasSubstr("cannot read the policy '" + name));
  }
}

// open(2) of a FIFO waits for a writer.
TEST_F(ValidatorPolicy, ThatIsAFifoIsRefused) {
  ASSERT_EQ(mkfifo(at("policy.toml").c_str(), 0600), 0);
  const auto policy = readPolicy(at("policy.toml"));
  ASSERT_FALSE(policy);
  EXPECT_THAT(policy.error().what, HasSubstr("not a regular file"));
}

TEST_F(ValidatorPolicy, DefaultAppliesIfNoOtherRuleMatches) {
  test::writeFile(at("a.dll"), "abc");
  EXPECT_TRUE(decide(policyOf("default = \"allow\""), at("a.dll")).allowed);
  const Decision denied = decide(policyOf("default = \"deny\""), at("a.dll"));
  EXPECT_FALSE(denied.allowed);
  // FIPS 180-2, appendix B.1.
  EXPECT_THAT(denied.reason,
              HasSubstr("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
}

TEST_F(ValidatorPolicy, PathsAreWholeComponents) {
  for (const char* name : {"app", "app/a.dll", "apple.dll"}) {
    if (std::string(name) != "app") {
      fs::create_directories(fs::path(at(name)).parent_path());
      test::writeFile(at(name), "x");
    }
  }
  for (const char* end : {"", "/"}) {
    const Policy policy =
        policyOf("default = \"deny\"\nallow-paths = [\"" + at("app") + end + "\"]");
    EXPECT_TRUE(decide(policy, at("app/a.dll")).allowed);
    EXPECT_FALSE(decide(policy, at("apple.dll")).allowed);
  }
  EXPECT_TRUE(
      decide(policyOf("default = \"deny\"\nallow-paths = [\"/\"]"), at("apple.dll")).allowed);
}

TEST_F(ValidatorPolicy, DeniedPathsComeFirstThenDigests) {
  test::writeFile(at("a.dll"), "abc");
  const std::string digest =
      "allow-sha256 = [\"BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD\"]\n";
  EXPECT_TRUE(decide(policyOf("default = \"deny\"\n" + digest), at("a.dll")).allowed);
  const std::string denied = "deny-paths = [\"" + at("a.dll") + "\"]\n";
  EXPECT_FALSE(decide(policyOf("default = \"allow\"\n" + digest + denied), at("a.dll")).allowed);
  test::writeFile(at("a.dll"), "abd");
  EXPECT_FALSE(decide(policyOf("default = \"deny\"\n" + digest), at("a.dll")).allowed);
}

TEST_F(ValidatorPolicy, DeniesFilesThatAreUnreadableOrHaveAnotherCanonicalPath) {
  const Policy policy = policyOf("default = \"allow\"");
  test::writeFile(at("a.dll"), "x");
  fs::create_symlink("a.dll", at("link.dll"));
  fs::create_directory(at("folder"));
  EXPECT_FALSE(decide(policy, at("link.dll")).allowed);
  EXPECT_FALSE(decide(policy, at("folder")).allowed);
  EXPECT_FALSE(decide(policy, at("none.dll")).allowed);
  EXPECT_TRUE(decide(policy, at("a.dll")).allowed);
}

TEST_F(ValidatorPolicy, DeniesFilesAboveTheLimit) {
  const Policy policy = policyOf("default = \"allow\"");
  test::writeFile(at("a.dll"), "x");
  fs::resize_file(at("a.dll"), kMaxAssemblySize + 1);
  const Decision denied = decide(policy, at("a.dll"));
  EXPECT_FALSE(denied.allowed);
  EXPECT_THAT(denied.reason, HasSubstr("larger than 256 MiB"));
}

}  // namespace
}  // namespace quillon::validator
