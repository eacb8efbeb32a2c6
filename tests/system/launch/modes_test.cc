// Launches of every application type on the real runtime, and the services of the plug-in.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <regex>

#include "tests/support/skip.h"
#include "tests/system/launch/running_probe.h"
#include "tests/system/launch/running_zone.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr char kFrameworkFolder[] = "/usr/share/dotnet.velora/framework";
constexpr char kOwnFolder[] = "/opt/usr/apps/org.velora.sample.probe/bin";
constexpr char kDisclaimer[] = "db/menu/glade_port/homedatacontrol/defaultdisclaimeragree";

class ModesTest : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (!IsSkipped()) {
      makeDevice();
    }
  }

  std::string logFile() const { return fresh("log").string(); }
  std::vector<std::string> logged() const { return {"QUILLON_LOG=json:" + logFile()}; }
  std::string log() const { return contentOf(logFile()); }

  void setConfig(const std::string& key, const std::string& value) const {
    const CommandResult set = run({std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon", "config",
                                   "set", "--device", root(), key, value});
    ASSERT_EQ(set.status, 0) << set.err;
  }

  // Copies a TV API assembly of the application to the platform, under this file name.
  void addToPlatform(const std::string& name) const {
    fs::copy(at(std::string(kOwnFolder) + "/Velora.TV.Screen.dll"),
             at(std::string(kFrameworkFolder) + "/" + name));
  }
};

size_t count(const std::string& text, const std::string& part) {
  size_t times = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++times;
  }
  return times;
}

std::string nameOf(pid_t process) {
  return contentOf("/proc/" + std::to_string(process) + "/comm");
}

class EachType : public ModesTest, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Types, EachType,
                         ::testing::Values("inhouseapitest", "inhouse", "dotnet", "normal"),
                         [](const auto& type) { return std::string(type.param); });

TEST_P(EachType, RunsToItsEnd) {
  RunningProbe probe(root(), GetParam());
  EXPECT_EQ(probe.ask("process"), std::to_string(probe.pid())) << probe.errors();
  EXPECT_EQ(probe.ask("screen"), "3840 x 2160");
  EXPECT_EQ(nameOf(probe.pid()), "DN_sample.probe\n");
  EXPECT_EQ(probe.ask("assembly System.Private.CoreLib"),
            "/usr/share/dotnet.velora/netcoreapp/System.Private.CoreLib.dll");
  EXPECT_EQ(probe.quit(), 0);
  EXPECT_EQ(probe.errors(), "");
}

// The launcher adds these variables before the plug-in sets them, and removes one of its own.
TEST_P(EachType, GivesTheApplicationTheVariablesOfThePlugin) {
  RunningProbe probe(root(), GetParam());
  EXPECT_EQ(probe.ask("variable DOTNET_APP"), "1") << probe.errors();
  EXPECT_EQ(probe.ask("variable DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER"), "0");
  EXPECT_EQ(probe.ask("variable SSL_CERT_FILE").front(), '/');
  EXPECT_EQ(probe.ask("variable DOTNET_LTTng"), "(none)");
  EXPECT_EQ(probe.quit(), 0);
}

TEST_F(ModesTest, ADotnetApplicationRunsInsideTheZoneAndOthersDoNot) {
  const RunningZone zone(root());
  ASSERT_NE(zone.holder(), "") << zone.started().err;
  const auto mountsOf = [](const std::string& process) {
    return fs::read_symlink("/proc/" + process + "/ns/mnt");
  };
  RunningProbe inside(root(), "dotnet");
  EXPECT_EQ(inside.ask("screen"), "3840 x 2160") << inside.errors();
  EXPECT_EQ(mountsOf(std::to_string(inside.pid())), mountsOf(zone.holder()));
  EXPECT_EQ(inside.quit(), 0);
  RunningProbe outside(root(), "normal");
  EXPECT_EQ(outside.ask("screen"), "3840 x 2160") << outside.errors();
  EXPECT_NE(mountsOf(std::to_string(outside.pid())), mountsOf(zone.holder()));
}

TEST_F(ModesTest, AnApitestApplicationsOwnTvApiWinsOverThePlatforms) {
  addToPlatform("Velora.TV.Screen.dll");
  EXPECT_EQ(RunningProbe(root(), "inhouse").ask("assembly Velora.TV.Screen"),
            std::string(kFrameworkFolder) + "/Velora.TV.Screen.dll");
  EXPECT_EQ(RunningProbe(root(), "inhouseapitest").ask("assembly Velora.TV.Screen"),
            std::string(kOwnFolder) + "/Velora.TV.Screen.dll");
}

TEST_F(ModesTest, ApitestLoadsTheILAssemblyBesideItsNativeImage) {
  addToPlatform("Velora.TV.Screen.dll");
  addToPlatform("Velora.TV.Screen.ni.dll");
  fs::remove(at(std::string(kOwnFolder) + "/Velora.TV.Screen.dll"));
  EXPECT_EQ(RunningProbe(root(), "normal").ask("assembly Velora.TV.Screen"),
            std::string(kFrameworkFolder) + "/Velora.TV.Screen.ni.dll");
  EXPECT_EQ(RunningProbe(root(), "inhouseapitest").ask("assembly Velora.TV.Screen"),
            std::string(kFrameworkFolder) + "/Velora.TV.Screen.dll");
}

TEST_F(ModesTest, NormalLoadsItsDeviceApiFromTheConfiguredDirectory) {
  const std::string api = "/opt/usr/share/api";
  fs::create_directories(at(api));
  fs::rename(at(std::string(kOwnFolder) + "/Velora.TV.Screen.dll"),
             at(api + "/Velora.TV.Screen.dll"));
  setConfig("db/dotnet/velora_api_path", api);
  EXPECT_EQ(RunningProbe(root(), "normal").ask("assembly Velora.TV.Screen"),
            api + "/Velora.TV.Screen.dll");
}

TEST_F(ModesTest, TheApplicationSeesTheCertificateFile) {
  EXPECT_EQ(RunningProbe(root(), "inhouse").ask("variable SSL_CERT_FILE"),
            "/usr/share/cert/zqca.pem");
  write(at("/opt/data/cert/zqca.pem"), "");
  EXPECT_EQ(RunningProbe(root(), "inhouse").ask("variable SSL_CERT_FILE"),
            "/opt/data/cert/zqca.pem");
}

TEST_F(ModesTest, CollectionsOfAnOptedInApplicationAreTraced) {
  write(at("/opt/usr/home/owner/share/gctracer/org.velora.sample.probe.debug"), "");
  RunningProbe probe(root(), "inhouse", logged());
  const std::regex collection(
      R"(\[org\.velora\.sample\.probe\] collection [0-9]+: generation 2, reason asked for, [0-9.]+ ms)");
  EXPECT_EQ(probe.ask("collect"), "collected") << probe.errors();
  EXPECT_TRUE(eventually([&] { return std::regex_search(log(), collection); })) << log();
  EXPECT_TRUE(eventually([&] { return count(log(), "] heap: generations 0 to 2, large") > 0; }));
  EXPECT_THAT(log(), HasSubstr("\"GCTracer\""));
  EXPECT_EQ(probe.quit(), 0);
}

TEST_F(ModesTest, OtherApplicationsAreNotTraced) {
  write(at("/opt/usr/home/owner/share/gctracer/org.velora.sample.clock"), "");
  RunningProbe probe(root(), "inhouse", logged());
  EXPECT_EQ(probe.ask("collect"), "collected");
  EXPECT_EQ(probe.quit(), 0);
  EXPECT_THAT(log(), HasSubstr("IsAllowedToActivateGCTracer : false"));
  EXPECT_THAT(log(), Not(HasSubstr("\"GCTracer\"")));
}

// The answer of a process's object tracker; empty if none listens.
std::string askTracker(const fs::path& path, const std::string& request) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string answer;
  if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      send(client, request.data(), request.size(), MSG_NOSIGNAL) >= 0) {
    std::array<char, 512> part;
    for (ssize_t size; (size = recv(client, part.data(), part.size(), 0)) > 0;) {
      answer.append(part.data(), static_cast<size_t>(size));
    }
  }
  close(client);
  return answer;
}

// The bytes in live large objects.
long largeObjects(const std::string& report) {
  std::smatch match;
  return std::regex_search(report, match, std::regex("generation large: ([0-9]+) bytes in objects"))
             ? std::stol(match[1])
             : -1;
}

class ObjectTracker : public ModesTest {
 protected:
  void SetUp() override {
    ModesTest::SetUp();
    if (!IsSkipped()) {
      write(at("/opt/usr/home/owner/share/ObjectTracker/OT_Installed"), "");
    }
  }
  fs::path socketOf(const RunningProbe& probe) const {
    return at("/tmp/object-tracker-" + std::to_string(probe.pid()) + ".sock");
  }
};

TEST_F(ObjectTracker, ReportsTheSizesOfTheHeap) {
  RunningProbe probe(root(), "inhouse");
  const std::string before = askTracker(socketOf(probe), "live\n");
  for (const char* line : {"generation 0: ", "generation 1: ", "generation 2: ",
                           "generation large: ", "generation pinned: ", "heap: "}) {
    EXPECT_THAT(before, HasSubstr(line));
  }
  constexpr long kKept = 50'000'000;
  probe.ask("keep " + std::to_string(kKept));
  const long grown = largeObjects(askTracker(socketOf(probe), "live\n")) - largeObjects(before);
  EXPECT_GE(grown, kKept);
  EXPECT_LT(grown, kKept + 1'000'000);
  EXPECT_EQ(probe.quit(), 0);
  EXPECT_FALSE(fs::exists(socketOf(probe)));
}

TEST_F(ObjectTracker, OutlivesItsClients) {
  RunningProbe probe(root(), "inhouse");
  EXPECT_NE(askTracker(socketOf(probe), std::string(1000, 'x')), "");
  askTracker(socketOf(probe), "\n");
  EXPECT_THAT(askTracker(socketOf(probe), "live\n"), StartsWith("generation 0: "));
}

TEST_F(ModesTest, WithoutItsMarkerThereIsNoObjectTracker) {
  RunningProbe probe(root(), "inhouse");
  EXPECT_FALSE(fs::exists(at("/tmp/object-tracker-" + std::to_string(probe.pid()) + ".sock")));
  EXPECT_EQ(probe.quit(), 0);
}

std::string labelOf(const fs::path& path) {
  std::array<char, 256> label{};
  const ssize_t size = getxattr(path.c_str(), "security.SMACK64", label.data(), label.size());
  return size < 0 ? std::strerror(errno) : std::string(label.data(), static_cast<size_t>(size));
}

TEST_F(ModesTest, TheDebuggerPipesOfTheRuntimeHaveTheLabelForAll) {
  if (geteuid() != 0) {
    QUILLON_SKIP("labels are set by root only");
  }
  RunningProbe probe(root(), "normal");
  const std::string prefix = "clr-debug-pipe-" + std::to_string(probe.pid()) + "-";
  std::vector<std::string> labels;
  for (const auto& entry : fs::directory_iterator(at("/tmp"))) {
    if (entry.path().filename().string().rfind(prefix, 0) == 0) {
      labels.push_back(labelOf(entry.path()));
    }
  }
  EXPECT_THAT(labels, SizeIs(2));
  EXPECT_THAT(labels, Each("*"));
}

TEST_F(ModesTest, ConsentClearsTheTimeZoneCacheOnce) {
  RunningProbe probe(root(), "inhouse", logged());
  probe.ask("set TZ Asia/Tokyo");
  ASSERT_EQ(probe.ask("time-zone"), "Asia/Tokyo 540") << probe.errors();
  probe.ask("set TZ Europe/Madrid");
  EXPECT_EQ(probe.ask("time-zone"), "Asia/Tokyo 540") << "the runtime keeps its time zone";

  setConfig(kDisclaimer, "0");
  const std::string noticed = std::string(kDisclaimer) + " = 0";
  EXPECT_TRUE(eventually([&] { return count(log(), noticed) == 1; })) << log();
  EXPECT_EQ(probe.ask("time-zone"), "Asia/Tokyo 540");

  setConfig(kDisclaimer, "1");
  EXPECT_TRUE(eventually([&] { return probe.ask("time-zone") == "Europe/Madrid 60"; }));
  EXPECT_TRUE(eventually([&] { return count(log(), "end clearCacheFunction") == 1; }));

  probe.ask("set TZ Asia/Tokyo");
  setConfig(kDisclaimer, "0");
  setConfig(kDisclaimer, "1");
  // No event shows that nothing happens. Half a second is much longer than a notice takes.
  usleep(500'000);
  EXPECT_EQ(probe.ask("time-zone"), "Europe/Madrid 60");
  EXPECT_EQ(probe.quit(), 0);
  EXPECT_EQ(count(log(), "start clearCacheFunction"), 1u);
  EXPECT_EQ(count(log(), "ClearTimeZoneCacheDataCB\\u001b"), 2u);
}

}  // namespace
}  // namespace quillon::test
