// The device paths that the launcher itself goes to. Each stands once.
#pragma once

namespace quillon::launcher::device_paths {

inline constexpr char kFramework[] = "/usr/share/dotnet.velora/netcoreapp";
inline constexpr char kTpaCache[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";
inline constexpr char kBoostSocket[] = "/tmp/kestsock";
inline constexpr char kApplications[] = "/opt/usr/apps/";
inline constexpr char kDpcOfPackage[] = "/shared/res/d.pc/";
inline constexpr char kCobaOfPackage[] = "/shared/res/";
inline constexpr char kPlaceholderPrefix[] = "/proc/self/fd/";

}  // namespace quillon::launcher::device_paths
