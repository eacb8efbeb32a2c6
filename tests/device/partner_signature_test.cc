// The exported check_signature, with the key and the id where a device has them.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>

#include "tests/device/device_fixture.h"
#include "tests/support/signing_key.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kMount[] = "/opt/usr/partner";
constexpr char kKey[] = "/usr/bin/DLLzqpartnerpub.pem";
constexpr char kSignature[] = "/opt/usr/partner/ZQPARTNERDLLSIG.sig";
constexpr char kRequest[] = "/opt/usr/partner/ZQPARTNERDLLREQ.dat";
constexpr char kInvalid[] = "6 verification fail : signature is not valid";

// A device whose id is ID1, and a package for it.
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
  DriverRun check(const std::string& mount = kMount) { return run({"check_signature=" + mount}); }

  static constexpr char kText[] = "ID1:20261121";
};

TEST_F(PartnerDevice, ASignedRequestForThisDeviceIsAllowed) {
  const DriverRun checked = check();
  EXPECT_EQ(checked.result("check_signature"), true);
  EXPECT_THAT(checked.lines(),
              ElementsAre("4 Signature verification OK", "4 duid comparision is success",
                          "4 signature allow file access"));
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

TEST_F(PartnerDevice, AKeyThatCannotBeUsedAllowsNothing) {
  putDirectory(kKey);
  EXPECT_THAT(check().lines(),
              ElementsAre("6 Unable to decode public key from the file", kInvalid));
  fs::remove(onMachine(kKey));
  ASSERT_EQ(mkfifo(onMachine(kKey).c_str(), 0600), 0);
  EXPECT_THAT(check().lines(), ElementsAre("6 Failed to open public key file", kInvalid));
  fs::remove(onMachine(kKey));
  EXPECT_THAT(check().lines(), ElementsAre("6 Failed to open public key file", kInvalid));
}

TEST_F(PartnerDevice, AFifoInAFilesPlaceIsRefusedWithoutWaiting) {
  for (const char* path : {kRequest, kSignature}) {
    fs::remove(onMachine(path));
    ASSERT_EQ(mkfifo(onMachine(path).c_str(), 0600), 0);
    const DriverRun checked = check();
    EXPECT_EQ(checked.result("check_signature"), false);
    EXPECT_THAT(checked.messages(6), Contains(kInvalid + 2));
  }
}

TEST_F(PartnerDevice, APathOfMoreThan4095BytesIsCut) {
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

TEST_F(PartnerDevice, ASignatureOfTheOpensslCommandIsTaken) {
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
