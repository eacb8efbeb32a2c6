// The exported check_signature, with the key and the id at their places in a device.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>

#include "tests/support/sanitized.h"
#include "tests/support/signing_key.h"
#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char kMount[] = "/opt/usr/partner";
constexpr char kKey[] = "/usr/bin/DLLzqpartnerpub.pem";
constexpr char kSignature[] = "/opt/usr/partner/ZQPARTNERDLLSIG.sig";
constexpr char kRequest[] = "/opt/usr/partner/ZQPARTNERDLLREQ.dat";
constexpr char kInvalid[] = "6 verification fail : signature is not valid";

const std::vector<std::string> kAllowed = {"4 Signature verification OK",
                                           "4 duid comparision is success",
                                           "4 signature allow file access"};

// The plug-in's result for one of several packages on the same device.
struct Package {
  std::string name;
  bool isAllowed;
  std::vector<std::string> lines;
};
constexpr char kGood[] = "4 Signature verification OK";
constexpr char kBad[] = "6 Signature verification fail...";
constexpr char kOther[] = "6 verfication fail : duid is not valid";

// A device with the id ID1, and a package for it.
class PartnerDevice : public DeviceLaunch {
 protected:
  void SetUp() override {
    DeviceLaunch::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    putId("ID1");
    put(kKey, key().publicPem());
    put(kRequest, kText);
    put(kSignature, key().sign(kText));
  }

  static const SigningKey& key() {
    static const SigningKey made = SigningKey::rsa();
    return made;
  }
  void putId(const std::string& id) {
    put("/opt/usr/share/quillon/config/db/comss/hwduid", "string " + id);
  }
  void putDirectory(const std::string& path) {
    fs::remove(onMachine(path));
    fs::create_directories(onMachine(path));
  }
  void putFifo(const std::string& path) {
    fs::remove_all(onMachine(path));
    ASSERT_EQ(mkfifo(onMachine(path).c_str(), 0600), 0);
  }
  // Writes another package below the mount.
  void putPackage(const std::string& name, const std::string& request,
                  const std::string& signature) {
    const fs::path folder = fs::path(kMount) / name;
    put(folder / fs::path(kRequest).filename(), request);
    put(folder / fs::path(kSignature).filename(), signature);
  }
  void putSigned(const std::string& name, const std::string& request) {
    putPackage(name, request, key().sign(request));
  }

  // The path of the system's libcrypto.
  static std::string systemCrypto() { return fs::canonical(QUILLON_CRYPTO_LIBRARY); }
  // Puts the libcrypto of faulty_crypto.cc into the place of the system's library.
  void putFaultyCrypto() {
    put(systemCrypto(), test::read(QUILLON_FAULTY_CRYPTO));
    put(QUILLON_REAL_CRYPTO, test::read(systemCrypto()));
  }

  // Puts a libcrypto into that place that has another function instead of `function`.
  void putCryptoWithout(const std::string& function) {
    std::string library = test::read(QUILLON_FAULTY_CRYPTO);
    const std::string name = '\0' + function + '\0';
    for (std::size_t at = 0; (at = library.find(name, at)) != std::string::npos; ++at) {
      library[at + 1] = '_';
    }
    put(systemCrypto(), library);
  }

  DriverRun check(const std::string& mount = kMount) { return run({"check_signature=" + mount}); }

  // Checks the packages in one launch.
  void expectChecked(const std::vector<Package>& packages) {
    std::vector<std::string> steps;
    std::vector<std::string> lines;
    for (const Package& package : packages) {
      steps.push_back("check_signature=" + std::string(kMount) + "/" + package.name);
      lines.insert(lines.end(), package.lines.begin(), package.lines.end());
    }
    const DriverRun checked = run(steps);
    EXPECT_EQ(checked.lines(), lines);
    for (int n = 0; n < static_cast<int>(packages.size()); ++n) {
      EXPECT_EQ(checked.result("check_signature", n), packages[n].isAllowed) << packages[n].name;
    }
  }
  void expectRefused(const std::string& line) {
    const DriverRun checked = check();
    EXPECT_EQ(checked.result("check_signature"), false) << line;
    EXPECT_THAT(checked.lines(), ElementsAre(line, kInvalid));
  }

  static constexpr char kText[] = "ID1:20261121";
};

TEST_F(PartnerDevice, ASignedRequestForThisDeviceIsAllowed) {
  const DriverRun checked = check();
  EXPECT_EQ(checked.result("check_signature"), true);
  EXPECT_EQ(checked.lines(), kAllowed);
  EXPECT_THAT(checked.spans, Contains(HasSubstr("bool check_signature(const char*)")));
}

TEST_F(PartnerDevice, ARequestForAnotherDeviceIsRefused) {
  putId("ID2");
  const DriverRun checked = check();
  EXPECT_EQ(checked.result("check_signature"), false);
  EXPECT_THAT(checked.lines(),
              ElementsAre("4 Signature verification OK", "6 duid comparision is fail... ID2,ID1",
                          "6 verfication fail : duid is not valid"));
}

TEST_F(PartnerDevice, WithoutAMountOrItsFilesNothingIsAllowed) {
  const DriverRun checked = run({"check_no_signature", "check_signature=/opt/usr",
                                 "check_signature=/nowhere", "check_signature="});
  EXPECT_EQ(checked.result("check_no_signature"), false);
  for (int n = 0; n < 3; ++n) {
    EXPECT_EQ(checked.result("check_signature", n), false);
  }
  EXPECT_THAT(checked.lines(), ElementsAre("6 Invalid mount path info..."));
  fs::remove(onMachine(kRequest));
  EXPECT_THAT(check().lines(), IsEmpty());
}

TEST_F(PartnerDevice, OnlyTheFirst256BytesOfASignatureCount) {
  const std::string good = key().sign(kText);
  constexpr char kSize[] = "6 The signature file size is not 256 bytes, corrupted signature file";
  putPackage("size-0", kText, "");
  putPackage("size-255", kText, good.substr(0, 255));
  putPackage("size-256", kText, good);
  putPackage("size-300", kText, good + std::string(44, 'x'));
  putPackage("last-bit", kText, good.substr(0, 255) + static_cast<char>(good[255] ^ 1));
  expectChecked({{"size-0", false, {kSize, kInvalid}},
                 {"size-255", false, {kSize, kInvalid}},
                 {"size-256", true, kAllowed},
                 {"size-300", true, kAllowed},
                 {"last-bit", false, {kBad, kInvalid}}});
}

TEST_F(PartnerDevice, RequestsNameTheDeviceUpToTheFirstColon) {
  using namespace std::string_literals;
  putSigned("whole", "ID1");
  putSigned("no-id", ":20261121");
  putSigned("empty", "");
  putSigned("nul-after", "ID1\0x:"s);
  putSigned("nul-before", "\0ID1:"s);
  putSigned("line-end", "ID1\n");
  putSigned("size-100", std::string(100, 'd') + ":");
  putSigned("size-1000000", std::string(1'000'000, 'd'));
  const std::string refusal = "6 duid comparision is fail... ID1,";
  const auto refused = [&](const std::string& name, const std::string& field) {
    return Package{name, false, {kGood, refusal + field, kOther}};
  };
  Package empty = refused("empty", "");
  empty.lines.insert(empty.lines.begin(), "6 Failed to read original message file");
  expectChecked({{"whole", true, kAllowed},
                 refused("no-id", ""),
                 empty,
                 {"nul-after", true, kAllowed},
                 refused("nul-before", ""),
                 refused("line-end", "ID1\n"),
                 refused("size-100", std::string(99, 'd')),
                 refused("size-1000000", std::string(99, 'd'))});
}

TEST_F(PartnerDevice, AnIdHasAtMost99Bytes) {
  const std::string longest(99, 'd');
  putId(longest);
  putSigned("size-99", longest + ":x");
  putSigned("size-100", longest + "d:x");
  expectChecked({{"size-99", true, kAllowed},
                 {"size-100",
                  false,
                  {kGood, "6 duid comparision is fail... " + longest + "," + longest, kOther}}});
}

TEST_F(PartnerDevice, ARequestMayBeLarge) {
  constexpr std::size_t kSize = 100'000'000;
  std::string request = kText;
  request.resize(kSize);
  put(kSignature, key().sign(request));
  fs::resize_file(onMachine(kRequest), kSize);  // a hole, which uses no disk space
  EXPECT_EQ(check().result("check_signature"), true);
  // A request that does not fit into memory is refused. A sanitizer would end the process before,
  // and an emulator ignores the limit.
  if (isSanitized() || isEmulated()) {
    return;
  }
  const DriverRun starved = run({"limit_memory", "check_signature=" + std::string(kMount)});
  EXPECT_EQ(starved.result("check_signature"), false);
  EXPECT_THAT(starved.lines(), ElementsAre("6 Failed to malloc original message buffer", kInvalid));
}

TEST_F(PartnerDevice, AKeyThatCannotBeUsedAllowsNothing) {
  constexpr char kNotDecoded[] = "6 Unable to decode public key from the file";
  const SigningKey large = SigningKey::rsa(4096);
  const std::vector<std::pair<std::string, std::string>> keys = {
      {SigningKey::ec().publicPem(), "6 Error Verifying Data : -1"},
      {large.publicPem(), kBad},
      {SigningKey::rsa().publicPem(), kBad},
      {"garbage", kNotDecoded},
      {key().encryptedPublicPem("secret"), kNotDecoded},
      {key().privatePem(), kNotDecoded}};
  for (const auto& [content, line] : keys) {
    put(kKey, content);
    expectRefused(line);
  }
  put(kKey, large.publicPem());
  put(kSignature, large.sign(kText));
  expectRefused(kBad);
  putDirectory(kKey);
  expectRefused(kNotDecoded);
  putFifo(kKey);
  expectRefused("6 Failed to open public key file");
  fs::remove(onMachine(kKey));
  expectRefused("6 Failed to open public key file");
}

TEST_F(PartnerDevice, AnythingButARegularFileIsRefusedWithoutWaiting) {
  putFifo(kRequest);
  expectRefused("6 Failed to open original message file");
  putDirectory(kRequest);
  expectRefused("6 Failed to malloc original message buffer");
  fs::remove(onMachine(kRequest));
  put(kRequest, kText);
  putFifo(kSignature);
  expectRefused("6 Failed to open signature file");
  putDirectory(kSignature);
  expectRefused("6 The signature file size is not 256 bytes, corrupted signature file");
}

// File modes apply to the superuser, too, after plugin_before_execute has dropped the capabilities.
TEST_F(PartnerDevice, AnUnreadableFileIsRefused) {
  for (const char* path : {kRequest, kSignature, kKey}) {
    fs::permissions(onMachine(path), fs::perms::none);
    const DriverRun checked = run({"before_execute", "check_signature=" + std::string(kMount)});
    EXPECT_EQ(checked.result("check_signature"), false) << path;
    // If the package itself cannot be read, nothing is logged.
    const std::vector<std::string> lines = {"Failed to open public key file", kInvalid + 2};
    EXPECT_EQ(checked.messages(6), path == kKey ? lines : std::vector<std::string>()) << path;
    fs::permissions(onMachine(path), fs::perms::owner_read);
  }
  EXPECT_EQ(
      run({"before_execute", "check_signature=" + std::string(kMount)}).result("check_signature"),
      true);
}

// Each failure has its log line, only the result 1 means success, and the library's error queue is
// unchanged.
TEST_F(PartnerDevice, AFailureOfTheCryptoLibraryIsARefusal) {
  putFaultyCrypto();
  const std::vector<std::pair<std::string, std::string>> faults = {
      {"PEM_read_PUBKEY", "6 Unable to decode public key from the file"},
      {"EVP_get_digestbyname", "6 Failed to EVP_get_digestbyname()"},
      {"EVP_MD_CTX_new", "6 Failed to EVP_DigestInit_ex()"},
      {"EVP_DigestInit_ex=0", "6 Failed to EVP_DigestInit_ex()"},
      {"EVP_DigestInit_ex=-1", "6 Failed to EVP_DigestInit_ex()"},
      {"EVP_DigestVerifyInit=0", "6 Failed to EVP_DigestVerifyInit()"},
      {"EVP_DigestVerifyInit=-2", "6 Failed to EVP_DigestVerifyInit()"},
      {"EVP_DigestUpdate=0", "6 Failed to EVP_DigestVerifyUpdate()"},
      {"EVP_DigestUpdate=-1", "6 Failed to EVP_DigestVerifyUpdate()"},
      {"EVP_DigestVerifyFinal=0", kBad},
      {"EVP_DigestVerifyFinal=-1", "6 Error Verifying Data : -1"},
      {"EVP_DigestVerifyFinal=2", "6 Error Verifying Data : 2"},
      {"EVP_DigestVerifyFinal=257", "6 Error Verifying Data : 257"}};
  std::vector<std::string> steps;
  std::vector<std::string> lines;
  for (const auto& [fault, line] : faults) {
    steps.insert(steps.end(), {"set=QUILLON_CRYPTO_FAULT=" + fault, "crypto_error=5",
                               "check_signature=" + std::string(kMount), "crypto_errors"});
    lines.insert(lines.end(), {line, kInvalid});
  }
  const DriverRun checked = run(steps);
  EXPECT_EQ(checked.lines(), lines);
  for (int n = 0; n < static_cast<int>(faults.size()); ++n) {
    EXPECT_EQ(checked.result("check_signature", n), false) << faults[n].first;
    EXPECT_EQ(checked.result("crypto_errors", n), nlohmann::json::array({5})) << faults[n].first;
  }
  // The library works without its configuration.
  EXPECT_EQ(run({"set=QUILLON_CRYPTO_FAULT=OPENSSL_init_crypto=0",
                 "check_signature=" + std::string(kMount)})
                .result("check_signature"),
            true);
}

TEST_F(PartnerDevice, WithoutTheCryptoLibraryNothingIsAllowed) {
  put(systemCrypto(), "no library");
  const DriverRun checked = check();
  EXPECT_EQ(checked.result("check_signature"), false);
  EXPECT_THAT(checked.lines(),
              ElementsAre(StartsWith("6 Failed to load the crypto library: "), kInvalid));
}

TEST_F(PartnerDevice, AMissingCryptoLibraryIsNamedByItsPath) {
  put(systemCrypto());
  fs::remove(onMachine(systemCrypto()));
  fs::create_symlink("/nothing", onMachine(systemCrypto()));
  const std::string message = "6 Failed to load the crypto library: /";
  EXPECT_THAT(check().lines(),
              ElementsAre(AllOf(StartsWith(message), HasSubstr("/libcrypto.so")), kInvalid));
}

TEST_F(PartnerDevice, ACryptoLibraryWithoutAFunctionIsNotUsed) {
  for (const std::string function :
       {"ERR_set_mark", "ERR_pop_to_mark", "PEM_read_PUBKEY", "EVP_PKEY_free",
        "OPENSSL_init_crypto", "EVP_get_digestbyname", "EVP_MD_CTX_new", "EVP_MD_CTX_free",
        "EVP_DigestInit_ex", "EVP_DigestVerifyInit", "EVP_DigestUpdate", "EVP_DigestVerifyFinal"}) {
    putCryptoWithout(function);
    const DriverRun checked = check();
    EXPECT_EQ(checked.result("check_signature"), false) << function;
    EXPECT_THAT(checked.lines(),
                ElementsAre(AllOf(StartsWith("6 Failed to load the crypto library: "),
                                  HasSubstr("undefined symbol: " + function)),
                            kInvalid));
  }
}

// An allocation failure at any time must never turn a refusal into a success.
TEST_F(PartnerDevice, AnAllocationFailureIsNeverASuccess) {
  putFaultyCrypto();
  putPackage("bad", kText, std::string(256, 'x'));
  const std::string good = "check_signature=" + std::string(kMount);
  const std::string bad = good + "/bad";
  std::vector<std::string> steps = {good, bad};  // the first check creates what later ones reuse
  constexpr int kMoreThanACheckTakes = 50'000;
  int checks = 1;
  for (int room = 0; room < kMoreThanACheckTakes; room += 1 + room / 5, ++checks) {
    steps.insert(steps.end(), {"set=QUILLON_CRYPTO_MEMORY=" + std::to_string(room), good, bad});
  }
  steps.emplace_back("crypto_errors");
  const DriverRun checked = run(steps);
  ASSERT_EQ(checked.status, 0) << checked.output;
  int refused = 0;
  for (int n = 0; n < checks; ++n) {
    refused += checked.result("check_signature", 2 * n) == false ? 1 : 0;
    EXPECT_EQ(checked.result("check_signature", 2 * n + 1), false) << n;
  }
  EXPECT_EQ(checked.result("check_signature"), true);
  EXPECT_EQ(checked.result("check_signature", 2 * (checks - 1)), true);
  EXPECT_GT(refused, 10);
  EXPECT_EQ(checked.result("crypto_errors"), nlohmann::json::array());
}

#ifdef QUILLON_SANITIZED_LAUNCHER
TEST_F(PartnerDevice, ALauncherWithASanitizerCanCheck) {
  driver_ = QUILLON_SANITIZED_LAUNCHER;
  const DriverRun checked = check();
  EXPECT_EQ(checked.status, 0) << checked.output;
  EXPECT_EQ(checked.result("check_signature"), true);
}
#endif

TEST_F(PartnerDevice, APathOfMoreThan4095BytesIsTruncated) {
  constexpr std::size_t kLongest = 4095;
  constexpr char kNames[][15] = {"ZQPARTNERDLLRE", "ZQPARTNERDLLSI"};
  fs::rename(onMachine(kRequest), onMachine(std::string(kMount) + "/" + kNames[0]));
  fs::rename(onMachine(kSignature), onMachine(std::string(kMount) + "/" + kNames[1]));
  const std::string parent = "/opt/usr";
  const std::size_t rest = std::string("partner/").size() + 14;
  const std::string mount = parent + std::string(kLongest - parent.size() - rest, '/') + "partner";
  EXPECT_EQ(check(mount).result("check_signature"), true);
  EXPECT_EQ(check("/" + mount).result("check_signature"), false);
}

TEST_F(PartnerDevice, ASignatureOfTheOpensslCommandIsAccepted) {
  if (std::system("openssl version >/dev/null 2>&1") != 0) {
    QUILLON_SKIP("there is no openssl command");
  }
  const std::string own = onMachine("/opt/usr/private.pem");
  const std::string command =
      "openssl genrsa -out " + own + " 2048 2>/dev/null && openssl rsa -in " + own +
      " -pubout -out " + onMachine(kKey).string() + " 2>/dev/null && openssl dgst -sha256 -sign " +
      own + " -out " + onMachine(kSignature).string() + " " + onMachine(kRequest).string();
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(check().result("check_signature"), true);
}

}  // namespace
}  // namespace quillon::test
