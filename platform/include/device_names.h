// Names, keys and markers that more than one part of the system uses. Each text is defined once.
// Device paths are in device_paths.h.
#pragma once

// Privileges and metadata keys. The build defines the namespaces QUILLON_PRIVILEGE_NAMESPACE and
// QUILLON_METADATA_NAMESPACE.
#define QUILLON_PLATFORM_PRIVILEGE \
  QUILLON_PRIVILEGE_NAMESPACE "/privilege/internal/default/platform"
#define QUILLON_APPDEBUG_PRIVILEGE QUILLON_PRIVILEGE_NAMESPACE "/privilege/internal/appdebugging"
#define QUILLON_REQUIRED_PACKAGES_KEY QUILLON_METADATA_NAMESPACE "/tv/metadata/d.pc/required"

namespace device_names {

// Application types. A type selects the first of these words that it contains; "inhouseapitest" is
// tested first because it contains "inhouse".
inline constexpr char kInhouseApitestType[] = "inhouseapitest";
inline constexpr char kInhouseType[] = "inhouse";
inline constexpr char kDotnetType[] = "dotnet";
inline constexpr char kNormalType[] = "normal";

// The environment variables that plugin_initialize sets. The launcher adds them before.
inline constexpr char kApplicationVariable[] = "DOTNET_APP";
inline constexpr char kSocketsHandlerVariable[] = "DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER";
inline constexpr char kCertificatesVariable[] = "SSL_CERT_FILE";

// Separates the package ids in the value of QUILLON_REQUIRED_PACKAGES_KEY.
inline constexpr char kRequiredPackagesSeparator = ';';

// A complete cached list is kCacheStartMarker + payload + kCacheEndMarker.
inline constexpr char kCacheStartMarker[] = "[START]";
inline constexpr char kCacheEndMarker[] = "[END]";

// The security zone of applications.
inline constexpr char kAppZone[] = "appzone";

// The threads that read the captured standard output and standard error.
inline constexpr char kStdoutReader[] = "Stdout Thread";
inline constexpr char kStderrReader[] = "Stderr Thread";

// The debugger pipes of a process are named kDebuggerPipePrefix + process id + "-" + suffix.
inline constexpr char kDebuggerPipePrefix[] = "clr-debug-pipe-";

// A validation request is kValidationKeyword + process id + ":" + path + newline. An answer that
// contains kValidationRefusal refuses the library.
inline constexpr char kValidationKeyword[] = "RequestForDllValidation:";
inline constexpr char kValidationRefusal[] = "FAIL";

}  // namespace device_names
