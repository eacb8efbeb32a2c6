// Fixed device paths that more than one part of the system uses. Each path is defined once. A path
// that only one source file uses is defined in that file. Names, keys and markers are in
// device_names.h.
#pragma once

namespace device_paths {

// The .NET runtime and the platform's assemblies.
inline constexpr char kManagedFolders[] = "/usr/share/dotnet.velora";
inline constexpr char kNetcoreapp[] = "/usr/share/dotnet.velora/netcoreapp";
inline constexpr char kFramework[] = "/usr/share/dotnet.velora/framework";
inline constexpr char kPreload[] = "/usr/share/dotnet.velora/framework/Preload.dll";
inline constexpr char kReferenceSuffix[] = "/ref";
inline constexpr char kPlatformLibraries[] = "/usr/share/dotnet.velora/lib";
inline constexpr char kTvAppApi[] = "/usr/share/dotnet.velora/tvappapi";
inline constexpr char kDpc[] = "/usr/share/dotnet.velora/d.pc";

// The cached assembly and directory lists.
inline constexpr char kCacheDirectory[] = "/opt/usr/home/owner/share/dotnet/";
inline constexpr char kTpaCacheName[] = "TPA.txt";
inline constexpr char kTpaCache[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";
inline constexpr char kCobaCacheName[] = "CoBA.txt";
inline constexpr char kCobaCache[] = "/opt/usr/home/owner/share/dotnet/CoBA.txt";

// Applications, and the directories that their packages share with other applications.
inline constexpr char kApplications[] = "/opt/usr/apps/";
inline constexpr char kDpcOfPackage[] = "/shared/res/d.pc/";
inline constexpr char kCobaOfPackage[] = "/shared/res/";

// An executable may be launched if its resolved path begins with one of these prefixes. They are
// tested in this order.
inline constexpr const char* kExecutablePrefixes[] = {"/usr/", "/opt/usr/", "/opt/share/"};

// A placeholder descriptor is opened on kPlaceholderTarget. Its path is kPlaceholderPrefix followed
// by its number.
inline constexpr char kPlaceholderTarget[] = "/proc/self";
inline constexpr char kPlaceholderPrefix[] = "/proc/self/fd/";

// Files and settings that control a launch.
inline constexpr char kReadOnlyFlags[] = "/etc/dotnet_flag.ini";
inline constexpr char kWritableFlags[] = "/opt/etc/dotnet_flag.ini";
inline constexpr char kPreloadList[] = "/usr/bin/dotnet_preload_so_list.txt";
inline constexpr char kObjectTracker[] = "/opt/usr/home/owner/share/ObjectTracker/OT_Installed";
inline constexpr char kReflectionEliminator[] = "/opt/usr/home/owner/share/.reflection-eliminator";
inline constexpr char kUpdatedCertificates[] = "/opt/data/cert/zqca.pem";
inline constexpr char kPlatformCertificates[] = "/usr/share/cert/zqca.pem";
inline constexpr char kApiDirectoryKey[] = "db/dotnet/velora_api_path";  // configuration store

// Root of the application zone. Visible only outside the zone.
inline constexpr char kAppZoneRoot[] = "/zone/appzone";

// Socket of the launch-boost daemon.
inline constexpr char kBoostSocket[] = "/tmp/kestsock";

}  // namespace device_paths
