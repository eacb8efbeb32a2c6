// The places of a device that more than one part of this system goes to. Each stands once; a place
// that one file alone knows stands in that file.
#pragma once

namespace device_paths {

// What a .NET runtime and its assemblies are found in.
inline constexpr char kManagedFolders[] = "/usr/share/dotnet.velora";
inline constexpr char kNetcoreapp[] = "/usr/share/dotnet.velora/netcoreapp";
inline constexpr char kFramework[] = "/usr/share/dotnet.velora/framework";
inline constexpr char kReferenceSuffix[] = "/ref";
inline constexpr char kPlatformLibraries[] = "/usr/share/dotnet.velora/lib";
inline constexpr char kTvAppApi[] = "/usr/share/dotnet.velora/tvappapi";
inline constexpr char kDpc[] = "/usr/share/dotnet.velora/d.pc";

// The cached lists.
inline constexpr char kCacheDirectory[] = "/opt/usr/home/owner/share/dotnet/";
inline constexpr char kTpaCacheName[] = "TPA.txt";
inline constexpr char kTpaCache[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";
inline constexpr char kCobaCacheName[] = "CoBA.txt";
inline constexpr char kCobaCache[] = "/opt/usr/home/owner/share/dotnet/CoBA.txt";

// Applications, and what their packages offer.
inline constexpr char kApplications[] = "/opt/usr/apps/";
inline constexpr char kDpcOfPackage[] = "/shared/res/d.pc/";
inline constexpr char kCobaOfPackage[] = "/shared/res/";
inline constexpr char kPlaceholderPrefix[] = "/proc/self/fd/";

// What decides about a launch.
inline constexpr char kReadOnlyFlags[] = "/etc/dotnet_flag.ini";
inline constexpr char kWritableFlags[] = "/opt/etc/dotnet_flag.ini";
inline constexpr char kPreloadList[] = "/usr/bin/dotnet_preload_so_list.txt";
inline constexpr char kObjectTracker[] = "/opt/usr/home/owner/share/ObjectTracker/OT_Installed";
inline constexpr char kReflectionEliminator[] = "/opt/usr/home/owner/share/.reflection-eliminator";
inline constexpr char kUpdatedCertificates[] = "/opt/data/cert/zqca.pem";
inline constexpr char kPlatformCertificates[] = "/usr/share/cert/zqca.pem";
inline constexpr char kApiDirectoryKey[] = "db/dotnet/velora_api_path";  // configuration store

inline constexpr char kBoostSocket[] = "/tmp/kestsock";

}  // namespace device_paths
