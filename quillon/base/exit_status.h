// Exit statuses of the quillon command, except those that an application returns.
// docs/exit-status.md documents them for scripts.
#pragma once

namespace quillon {

enum ExitStatus : int {
  kSuccess = 0,
  kUsage = 100,             // invalid command line
  kNoDeviceRoot = 101,      // the folder is missing or is not a device root
  kNoNamespace = 102,       // this machine does not allow a private mount namespace
  kNoPlugin = 103,          // the plug-in is missing or lacks a function
  kNotInstalled = 104,      // no such package or application
  kNoAssembly = 105,        // the executable assembly is missing
  kPathRefused = 106,       // the plug-in would refuse the executable's path (--plan)
  kPrivilegeMissing = 107,  // the plug-in would refuse the package (--plan)
  kNoRuntime = 108,         // no .NET runtime
  kRuntimeFailed = 109,     // the runtime did not start
  kUnusablePath = 110,      // a path contains ":", which separates list items
  kNotExecutable = 111,     // the runtime could not run the assembly
  kServiceFailed = 112,     // registry, configuration store or file failure
  kZoneState = 113,         // no such zone runs, or it runs already
  kNoKey = 114,             // the configuration key has no value
  kPartnerRefused = 115,    // the plug-in refuses the partner package
  kLibraryRefused = 116,    // the validator refused one of the application's assemblies
  kValidatorState = 117,    // no validator runs, it ended during the launch, or one runs already
  kLaunchPadState = 118,    // no launch pad runs, one runs already, or it ended during a launch
};

}  // namespace quillon
