// The device paths that the launcher itself goes to. Each stands once.
#pragma once

namespace quillon::launcher::device_paths {

inline constexpr char kFramework[] = "/usr/share/dotnet.velora/netcoreapp";
inline constexpr char kManagedFolders[] = "/usr/share/dotnet.velora";
inline constexpr char kTpaCache[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";
inline constexpr char kBoostSocket[] = "/tmp/kestsock";
inline constexpr char kApplications[] = "/opt/usr/apps/";
inline constexpr char kDpcOfPackage[] = "/shared/res/d.pc/";
inline constexpr char kCobaOfPackage[] = "/shared/res/";
inline constexpr char kPreloadList[] = "/usr/bin/dotnet_preload_so_list.txt";
inline constexpr char kReadOnlyFlags[] = "/etc/dotnet_flag.ini";
inline constexpr char kWritableFlags[] = "/opt/etc/dotnet_flag.ini";
inline constexpr char kObjectTracker[] = "/opt/usr/home/owner/share/ObjectTracker/OT_Installed";
inline constexpr char kReflectionEliminator[] = "/opt/usr/home/owner/share/.reflection-eliminator";
inline constexpr char kApiDirectoryKey[] = "db/dotnet/velora_api_path";  // configuration store
inline constexpr char kPlaceholderPrefix[] = "/proc/self/fd/";

}  // namespace quillon::launcher::device_paths
