// The device paths that more than one room of the plug-in names. Each stands once.
#pragma once

namespace device_paths {

inline constexpr char kCacheDirectory[] = "/opt/usr/home/owner/share/dotnet/";
inline constexpr char kTpaCacheName[] = "TPA.txt";
inline constexpr char kTpaCache[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";
inline constexpr char kCobaCacheName[] = "CoBA.txt";
inline constexpr char kCobaCache[] = "/opt/usr/home/owner/share/dotnet/CoBA.txt";

inline constexpr char kNetcoreapp[] = "/usr/share/dotnet.velora/netcoreapp";
inline constexpr char kReflectionEliminator[] = "/opt/usr/home/owner/share/.reflection-eliminator";
inline constexpr char kFramework[] = "/usr/share/dotnet.velora/framework";
inline constexpr char kReferenceSuffix[] = "/ref";
inline constexpr char kPlatformLibraries[] = "/usr/share/dotnet.velora/lib";
inline constexpr char kTvAppApi[] = "/usr/share/dotnet.velora/tvappapi";
inline constexpr char kDpc[] = "/usr/share/dotnet.velora/d.pc";

}  // namespace device_paths
