#include "plugin/src/dotnet-policy-checker/partner_signature.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <openssl/err.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "quillon_tv_plugin.h"
#include "tests/support/controlling_terminal.h"
#include "tests/support/memory_in_use.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/sanitized.h"
#include "tests/support/signing_key.h"
#include "tests/support/tree_test.h"
#include "tests/support/without_standard_input.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kNotDecoded[] = "6 Unable to decode public key from the file";
constexpr char kNoSignature[] = "6 Failed to open signature file";
constexpr char kWrongSize[] =
    "6 The signature file size is not 256 bytes, corrupted signature file";
constexpr char kNoRequest[] = "6 Failed to open original message file";
constexpr char kEmpty[] = "6 Failed to read original message file";
constexpr char kGood[] = "4 Signature verification OK";
constexpr char kBad[] = "6 Signature verification fail...";

// With a sanitizer or under emulation, tests fewer bits: every bit takes the same code path, and
// the run is slower.
const std::size_t kBitStride = isEmulated() ? 61 : isSanitized() ? 7 : 1;

// The key, request and signature of a partner. All are valid until a test changes them.
class PartnerSignatureTest : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    platform().config["db/comss/hwduid"] = "ID1";
    descriptors_ = openDescriptors();
    makeFile("key", key().publicPem());
    sign("ID1:20261121");
  }
  void TearDown() override { EXPECT_EQ(openDescriptors(), descriptors_); }

  static const SigningKey& key() {
    static const SigningKey made = SigningKey::rsa();
    return made;
  }

  void sign(const std::string& request) {
    makeFile("request", request);
    makeFile("signature", key().sign(request));
  }
  void putFifo(const std::string& name) {
    std::filesystem::remove(at(name));
    ASSERT_EQ(mkfifo(at(name).c_str(), 0600), 0);
  }
  void putDirectory(const std::string& name) {
    std::filesystem::remove(at(name));
    makeDirectory(name);
  }

  int verifySignature() {
    platform().log.clear();
    return verify_signature(at("key").c_str(), at("signature").c_str(), at("request").c_str());
  }
  int verifyDuid() {
    platform().log.clear();
    return verify_duid(at("request").c_str());
  }
  bool verifyFile() {
    platform().log.clear();
    return verify_signature_file(at("key").c_str(), at("signature").c_str(), at("request").c_str());
  }
  int verifyDuidOf(const std::string& request) {
    makeFile("request", request);
    return verifyDuid();
  }

 private:
  std::ptrdiff_t descriptors_ = 0;
};

TEST_F(PartnerSignatureTest, AGoodSignatureIsOne) {
  EXPECT_EQ(verifySignature(), 1);
  EXPECT_THAT(platform().lines(), ElementsAre(kGood));
  EXPECT_EQ(platform().log.at(1).file(), "dotnet-policy-checker.cc");
  EXPECT_EQ(platform().log.at(1).function(), "verify_signature");
}

TEST_F(PartnerSignatureTest, FunctionsAreTraced) {
  platform().trace.clear();
  EXPECT_TRUE(verifyFile());
  verify_date("x");
  int begun = 0;
  for (const std::string& entry : platform().trace) {
    for (const char* name : {"bool verify_signature_file(", "int verify_signature(",
                             "int verify_duid(", "int verify_date("}) {
      begun += entry.rfind("begin ", 0) == 0 && entry.find(name) != std::string::npos ? 1 : 0;
    }
  }
  EXPECT_EQ(begun, 5);
}

TEST_F(PartnerSignatureTest, EachMissingFileIsNamed) {
  std::filesystem::remove(at("request"));
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNoRequest));
  std::filesystem::remove(at("signature"));
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNoSignature));
  std::filesystem::remove(at("key"));
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre("6 Failed to open public key file"));
}

TEST_F(PartnerSignatureTest, ANullPathIsAFileThatCannotBeOpened) {
  const std::string good = at("key");
  const std::string signature = at("signature");
  EXPECT_EQ(verify_signature(nullptr, signature.c_str(), nullptr), 0);
  EXPECT_EQ(verify_signature(good.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(verify_signature(good.c_str(), signature.c_str(), nullptr), 0);
  EXPECT_EQ(verify_duid(nullptr), 0);
  EXPECT_THAT(platform().lines(), ElementsAre("6 Failed to open public key file", kNoSignature,
                                              kNoRequest, kNoRequest));
}

TEST_F(PartnerSignatureTest, AFifoInAFilesPlaceIsRefusedWithoutWaiting) {
  putFifo("request");
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNoRequest));
  EXPECT_EQ(verifyDuid(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNoRequest));
  putFifo("signature");
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNoSignature));
  putFifo("key");
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre("6 Failed to open public key file"));
}

TEST_F(PartnerSignatureTest, ATerminalInAFilesPlaceDoesNotBecomeTheControllingTerminal) {
  EXPECT_EQ(controllingTerminalAfter([](const auto& path) { verify_duid(path.c_str()); }), "none");
}

TEST_F(PartnerSignatureTest, FilesMayHaveTheNumberZero) {
  const WithoutStandardInput without;
  EXPECT_EQ(verifySignature(), 1);
  EXPECT_EQ(verifyDuid(), 1);
}

TEST_F(PartnerSignatureTest, ADirectoryInAFilesPlaceCannotBeRead) {
  putDirectory("request");
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre("6 Failed to malloc original message buffer"));
  EXPECT_EQ(verifyDuid(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre("6 duid comparision is fail... ID1,"));
  putDirectory("signature");
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kWrongSize));
  putDirectory("key");
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNotDecoded));
}

TEST_F(PartnerSignatureTest, ALinkToAFileIsTheFile) {
  makeLink("link", at("request"));
  EXPECT_EQ(verify_signature(at("key").c_str(), at("signature").c_str(), at("link").c_str()), 1);
}

TEST_F(PartnerSignatureTest, ASignatureHasAtLeast256Bytes) {
  const std::string signature = contentOf(at("signature"));
  for (const std::size_t size : {0U, 1U, 255U}) {
    makeFile("signature", signature.substr(0, size));
    EXPECT_EQ(verifySignature(), 0);
    EXPECT_THAT(platform().lines(), ElementsAre(kWrongSize)) << size;
  }
}

TEST_F(PartnerSignatureTest, WhatFollowsTheFirst256BytesIsIgnored) {
  const std::string signature = contentOf(at("signature"));
  makeFile("signature", signature + std::string(44, 'x'));
  EXPECT_EQ(verifySignature(), 1);
  makeFile("signature", "x" + signature);
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kBad));
}

TEST_F(PartnerSignatureTest, EveryBitOfTheSignatureCounts) {
  const std::string good = contentOf(at("signature"));
  std::fstream file(at("signature"), std::ios::in | std::ios::out | std::ios::binary);
  const auto putByte = [&](std::size_t place, int byte) {
    file.seekp(static_cast<std::streamoff>(place)).put(static_cast<char>(byte)).flush();
  };
  for (std::size_t bit = 0; bit < good.size() * 8; bit += kBitStride) {
    putByte(bit / 8, good[bit / 8] ^ (1 << (bit % 8)));
    ASSERT_EQ(verifySignature(), 0) << bit;
    ASSERT_EQ(platform().lines(), std::vector<std::string>{kBad}) << bit;
    putByte(bit / 8, good[bit / 8]);
  }
  EXPECT_EQ(verifySignature(), 1);
}

TEST_F(PartnerSignatureTest, EveryByteOfTheRequestCounts) {
  const std::string good = contentOf(at("request"));
  std::vector<std::string> others = {"", good + "\n", good.substr(1), good.substr(0, 3)};
  for (std::size_t at = 0; at < good.size(); ++at) {
    others.push_back(good);
    others.back()[at] ^= 1;
  }
  for (const std::string& other : others) {
    makeFile("request", other);
    EXPECT_EQ(verifySignature(), 0) << other;
    EXPECT_EQ(platform().lines().back(), kBad);
  }
}

TEST_F(PartnerSignatureTest, AnEmptyRequestIsVerifiedAsAnEmptyMessage) {
  makeFile("request");
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kEmpty, kBad));
  sign("");
  EXPECT_EQ(verifySignature(), 1);
  EXPECT_THAT(platform().lines(), ElementsAre(kEmpty, kGood));
}

TEST_F(PartnerSignatureTest, ARequestMayBeLargeAndHoldAnyBytes) {
  constexpr std::size_t kSize = 100'000'000;
  std::string request = "ID1:";
  request.resize(kSize);
  makeFile("request", "ID1:");
  std::filesystem::resize_file(at("request"), kSize);  // a sparse file
  makeFile("signature", key().sign(request));
  EXPECT_TRUE(verifyFile());
  std::filesystem::resize_file(at("request"), kSize - 1);
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kBad));
}

TEST_F(PartnerSignatureTest, TheRequestIsFreed) {
  constexpr std::size_t kLarge = 4U << 20;
  sign("ID1:" + std::string(kLarge, 'x'));
  EXPECT_EQ(verifySignature(), 1);
  const std::size_t before = memoryInUse();
  EXPECT_EQ(verifySignature(), 1);
  EXPECT_LT(memoryInUse(), before + kLarge);
}

TEST_F(PartnerSignatureTest, ABrokenKeyFileIsRefused) {
  const std::string good = key().publicPem();
  const std::string base64 = "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8A";
  const std::vector<std::string> broken = {
      "",
      "garbage",
      std::string(100'000, '\0'),
      good.substr(0, good.size() / 2),
      "-----BEGIN PUBLIC KEY-----\n-----END PUBLIC KEY-----\n",
      "-----BEGIN PUBLIC KEY-----\n" + base64 + "\n-----END PUBLIC KEY-----\n",
      key().privatePem(),
      key().encryptedPrivatePem("secret"),
      key().encryptedPublicPem("secret"),
      key().encryptedPublicPem(""),
  };
  for (const std::string& content : broken) {
    makeFile("key", content);
    EXPECT_EQ(verifySignature(), 0) << content;
    EXPECT_THAT(platform().lines(), ElementsAre(kNotDecoded)) << content;
  }
}

// If there is no terminal, the library would read the pass phrase from standard input.
TEST_F(PartnerSignatureTest, NobodyIsAskedForThePassPhraseOfAKey) {
  makeFile("key", key().encryptedPublicPem("secret"));
  makeFile("answer", "secret\n");
  const auto askAndVerify = [this] {
    setsid();
    dup2(open(at("answer").c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    _exit(verifySignature());
  };
  EXPECT_EXIT(askAndVerify(), ::testing::ExitedWithCode(0), "^$");
}

TEST_F(PartnerSignatureTest, AKeyOfAnotherKindVerifiesNothing) {
  const std::string request = contentOf(at("request"));
  const SigningKey large = SigningKey::rsa(4096);
  const SigningKey curve = SigningKey::ec();
  const SigningKey edwards = SigningKey::ed25519();
  const std::vector<std::pair<const SigningKey*, std::string>> keys = {
      {&large, kBad},
      {&curve, "6 Error Verifying Data : -1"},
      {&edwards, "6 Failed to EVP_DigestVerifyInit()"}};
  for (const auto& [other, line] : keys) {
    makeFile("key", other->publicPem());
    std::string signature = other->sign(request);
    signature.resize(std::max<std::size_t>(signature.size(), 256));
    for (const std::string& bytes : {signature, key().sign(request), std::string(256, '\0')}) {
      makeFile("signature", bytes);
      EXPECT_EQ(verifySignature(), 0);
      EXPECT_THAT(platform().lines(), ElementsAre(line));
    }
  }
}

TEST_F(PartnerSignatureTest, AnotherKeyOfTheSameKindVerifiesNothing) {
  makeFile("key", SigningKey::rsa().publicPem());
  EXPECT_EQ(verifySignature(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kBad));
}

TEST_F(PartnerSignatureTest, TheCryptoErrorQueueStaysAsItWasFound) {
  const std::vector<std::string> keys = {key().publicPem(), "garbage", SigningKey::ec().publicPem(),
                                         SigningKey::ed25519().publicPem(),
                                         key().encryptedPublicPem("secret")};
  std::vector<unsigned long> codes;
  for (int reason = 101; reason < 110; ++reason) {
    codes.push_back(ERR_PACK(ERR_LIB_USER, 0, reason));
  }
  for (const bool filled : {false, true}) {
    for (const std::string& content : keys) {
      makeFile("key", content);
      makeFile("signature", std::string(256, 'x'));
      ERR_clear_error();
      const std::vector<unsigned long> before = filled ? codes : std::vector<unsigned long>();
      for (const unsigned long code : before) {
        ERR_raise(ERR_LIB_USER, ERR_GET_REASON(code));
      }
      EXPECT_EQ(verifySignature(), 0);
      std::vector<unsigned long> after;
      for (unsigned long code; (code = ERR_get_error()) != 0;) {
        after.push_back(code);
      }
      EXPECT_EQ(after, before) << content;
    }
  }
}

TEST_F(PartnerSignatureTest, TheFirstFieldIsTheDeviceId) {
  for (const char* request : {"ID1", "ID1:", "ID1:20261121", "ID1::x", "ID1:\n\n"}) {
    EXPECT_EQ(verifyDuidOf(request), 1) << request;
    EXPECT_THAT(platform().lines(), ElementsAre("4 duid comparision is success"));
    EXPECT_EQ(platform().log.at(1).function(), "verify_duid");
  }
}

TEST_F(PartnerSignatureTest, TheDeviceIdIsComparedByteForByte) {
  const std::vector<std::pair<std::string, std::string>> others = {
      {"ID2:x", "ID2"}, {"id1:x", "id1"},   {"ID1 :x", "ID1 "},  {" ID1:x", " ID1"},
      {"ID:1", "ID"},   {"ID1\n", "ID1\n"}, {"ID1\n:", "ID1\n"}, {"", ""},
      {":ID1", ""},     {"ID11", "ID11"}};
  for (const auto& [request, field] : others) {
    EXPECT_EQ(verifyDuidOf(request), 0) << request;
    EXPECT_THAT(platform().lines(), ElementsAre("6 duid comparision is fail... ID1," + field));
  }
}

TEST_F(PartnerSignatureTest, AFieldOf99BytesIsTheLongest) {
  const std::string longest(99, 'd');
  platform().config["db/comss/hwduid"] = longest;
  EXPECT_EQ(verifyDuidOf(longest), 1);
  EXPECT_EQ(verifyDuidOf(longest + ":x"), 1);
  for (const std::size_t size : {100U, 101U, 1'000'000U}) {
    for (const char* rest : {"", ":x"}) {
      EXPECT_EQ(verifyDuidOf(std::string(size, 'd') + rest), 0) << size;
      EXPECT_THAT(platform().lines(),
                  ElementsAre("6 duid comparision is fail... " + longest + "," + longest));
    }
  }
}

TEST_F(PartnerSignatureTest, ADeviceIdOf100BytesMatchesNothing) {
  platform().config["db/comss/hwduid"] = std::string(100, 'd');
  EXPECT_EQ(verifyDuidOf(std::string(100, 'd')), 0);
  EXPECT_EQ(verifyDuidOf(std::string(99, 'd')), 0);
}

TEST_F(PartnerSignatureTest, TheDeviceIdEndsAtANul) {
  using namespace std::string_literals;
  EXPECT_EQ(verifyDuidOf("ID1\0x:"s), 1);
  EXPECT_EQ(verifyDuidOf("ID\0"
                         "1:"s),
            0);
  EXPECT_EQ(verifyDuidOf("\0ID1:"s), 0);
  EXPECT_EQ(verifyDuidOf("ID1"s + std::string(96, '\0') + ":"), 1);
  EXPECT_EQ(verifyDuidOf("ID1"s + std::string(97, '\0') + ":"), 0);
}

TEST_F(PartnerSignatureTest, WithoutADeviceIdNothingIsRead) {
  platform().config.clear();
  EXPECT_EQ(verifyDuid(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNoRequest));
  EXPECT_THAT(platform().calls, ElementsAre("vconf_get_str(db/comss/hwduid)"));
}

TEST_F(PartnerSignatureTest, AMissingRequestIsAnError) {
  std::filesystem::remove(at("request"));
  EXPECT_EQ(verifyDuid(), 0);
  EXPECT_THAT(platform().lines(), ElementsAre(kNoRequest));
}

TEST_F(PartnerSignatureTest, ADateIsNotLookedAt) {
  EXPECT_EQ(verify_date("/nowhere"), 1);
  EXPECT_EQ(verify_date(nullptr), 1);
  EXPECT_THAT(platform().lines(), IsEmpty());
}

TEST_F(PartnerSignatureTest, AllChecksTogetherAllowAccess) {
  EXPECT_TRUE(verifyFile());
  EXPECT_THAT(platform().lines(),
              ElementsAre(kGood, "4 duid comparision is success", "4 signature allow file access"));
  EXPECT_EQ(platform().log.at(0).colour(), "\x1b[90m");
}

TEST_F(PartnerSignatureTest, TheFirstFailureEndsTheChecks) {
  sign("ID2:20261121");
  EXPECT_FALSE(verifyFile());
  EXPECT_THAT(platform().lines(), ElementsAre(kGood, "6 duid comparision is fail... ID1,ID2",
                                              "6 verfication fail : duid is not valid"));
  makeFile("signature", std::string(256, 'x'));
  platform().calls.clear();
  EXPECT_FALSE(verifyFile());
  EXPECT_THAT(platform().lines(),
              ElementsAre(kBad, "6 verification fail : signature is not valid"));
  EXPECT_THAT(platform().calls, IsEmpty());
}

TEST_F(PartnerSignatureTest, NothingIsKeptBetweenCalls) {
  EXPECT_TRUE(verifyFile());
  platform().config["db/comss/hwduid"] = "ID2";
  EXPECT_FALSE(verifyFile());
  sign("ID2");
  EXPECT_TRUE(verifyFile());
  makeFile("key", SigningKey::rsa().publicPem());
  EXPECT_FALSE(verifyFile());
}

TEST_F(PartnerSignatureTest, AMountPathIsNeeded) {
  EXPECT_FALSE(check_signature(nullptr));
  EXPECT_THAT(platform().lines(), ElementsAre("6 Invalid mount path info..."));
}

TEST_F(PartnerSignatureTest, AMountThatLacksAFileIsRefusedWithoutAMessage) {
  EXPECT_FALSE(check_signature(at("nowhere").c_str()));
  makeFile("mount/ZQPARTNERDLLSIG.sig");
  EXPECT_FALSE(check_signature(at("mount").c_str()));
  std::filesystem::rename(at("mount/ZQPARTNERDLLSIG.sig"), at("mount/ZQPARTNERDLLREQ.dat"));
  EXPECT_FALSE(check_signature(at("mount").c_str()));
  EXPECT_THAT(platform().lines(), IsEmpty());
}

}  // namespace
}  // namespace quillon::test
