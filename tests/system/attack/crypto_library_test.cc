// A library that accepts every signature must not become the verifier of partner signatures, in
// whichever way it comes into the process under the name of libcrypto.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gnu/libc-version.h>

#include <cstdlib>

#include "tests/support/signing_key.h"
#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char kMount[] = "/opt/usr/partner";
constexpr char kCheck[] = "check_signature=/opt/usr/partner";
constexpr char kRefused[] = "6 verification fail : signature is not valid";

// A device with a partner's package whose signature is not valid.
class CryptoLibraryAttack : public DeviceLaunch {
 protected:
  void SetUp() override {
    DeviceLaunch::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    put("/opt/usr/share/quillon/config/db/comss/hwduid", "string ID1");
    put("/usr/bin/DLLzqpartnerpub.pem", key_.publicPem());
    put(kMount + std::string("/ZQPARTNERDLLREQ.dat"), kRequest);
    putSignature(std::string(256, '\0'));
  }

  void putSignature(const std::string& signature) {
    put(kMount + std::string("/ZQPARTNERDLLSIG.sig"), signature);
  }

  // Expects that the steps, followed by a check, refuse the package and allow a valid one.
  void expectVerifiedAfter(std::vector<std::string> steps) {
    steps.emplace_back(kCheck);
    const DriverRun forged = run(steps);
    EXPECT_EQ(forged.result("check_signature"), false);
    EXPECT_THAT(forged.lines(), ElementsAre("6 Signature verification fail...", kRefused));
    putSignature(key_.sign(kRequest));
    EXPECT_EQ(run(steps).result("check_signature"), true);
  }

  static constexpr char kRequest[] = "ID1:20261121";
  const SigningKey key_ = SigningKey::rsa();
};

TEST_F(CryptoLibraryAttack, ALibraryOfTheApplicationIsNotTheVerifier) {
  expectVerifiedAfter({"load=" QUILLON_YES_CRYPTO});
}

// Its functions are then found before libcrypto's own, also for calls inside libcrypto.
TEST_F(CryptoLibraryAttack, ALibraryInTheGlobalScopeIsNotTheVerifier) {
  expectVerifiedAfter({"load_globally=" QUILLON_YES_CRYPTO});
}

TEST_F(CryptoLibraryAttack, ALibraryOnTheSearchPathIsNotTheVerifier) {
  setenv("LD_LIBRARY_PATH", fs::path(QUILLON_YES_CRYPTO).parent_path().c_str(), 1);
  expectVerifiedAfter({});
  unsetenv("LD_LIBRARY_PATH");
}

// A device on which no libcrypto is in the folder of the C library.
class SeparateCLibrary : public CryptoLibraryAttack {
 protected:
  void SetUp() override {
    CryptoLibraryAttack::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    Dl_info libc{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(gnu_get_libc_version), &libc), 0);
    const fs::path system = libc.dli_fname;
    put("/opt/usr/libc/libc.so.6", test::read(system));
    put("/opt/usr/plugin/plugin.so", test::read(plugin_));
    plugin_ = "/opt/usr/plugin/plugin.so";
    crypto_ = fs::path(QUILLON_YES_CRYPTO).filename();
    realCrypto_ = test::read(system.parent_path() / crypto_);
    setenv("LD_LIBRARY_PATH", ("/opt/usr/libc:" + yesFolder()).c_str(), 1);
  }
  void TearDown() override {
    unsetenv("LD_LIBRARY_PATH");
    CryptoLibraryAttack::TearDown();
  }
  static std::string yesFolder() { return fs::path(QUILLON_YES_CRYPTO).parent_path(); }

  std::string crypto_;      // the file name of libcrypto
  std::string realCrypto_;  // the content of the system's one
};

TEST_F(SeparateCLibrary, TheOneBesideThePluginIsTheVerifier) {
  put("/opt/usr/plugin/" + crypto_, realCrypto_);
  expectVerifiedAfter({"load=" QUILLON_YES_CRYPTO});
}

TEST_F(SeparateCLibrary, NoOtherOneIsTheVerifier) {
  const DriverRun checked = run({"load=" QUILLON_YES_CRYPTO, kCheck});
  EXPECT_EQ(checked.result("load"), true);
  EXPECT_EQ(checked.result("check_signature"), false);
  EXPECT_THAT(checked.lines(),
              ElementsAre(HasSubstr("6 Failed to load the crypto library: "), kRefused));
}

// dlopen(3) returns a loaded library if its name is equal to the path. The library may be in the
// same file system as the system's one, or in another.
TEST_F(CryptoLibraryAttack, ALibraryNamedAsTheSystemsPathIsRefused) {
  Dl_info libc{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(gnu_get_libc_version), &libc), 0);
  const fs::path path =
      fs::path(libc.dli_fname).parent_path() / fs::path(QUILLON_YES_CRYPTO).filename();
  std::string library = test::read(QUILLON_NAMED_CRYPTO);
  const std::size_t name = library.find(QUILLON_NAME);
  ASSERT_NE(name, std::string::npos);
  ASSERT_LT(path.string().size(), sizeof QUILLON_NAME);
  library.replace(name, path.string().size() + 1, path.c_str(), path.string().size() + 1);
  for (const fs::path& named :
       {fs::path("/opt/usr/named.so"), fs::canonical(path.parent_path()) / "named.so"}) {
    put(named, library);
    const DriverRun checked = run({"load=" + named.string(), kCheck});
    EXPECT_EQ(checked.result("load"), true);
    EXPECT_EQ(checked.result("check_signature"), false);
    EXPECT_THAT(checked.lines(),
                ElementsAre(AllOf(HasSubstr("6 Failed to load the crypto library: "),
                                  HasSubstr(path.string())),
                            kRefused));
  }
}

}  // namespace
}  // namespace quillon::test
