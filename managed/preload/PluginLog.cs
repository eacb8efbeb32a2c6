using System;
using System.IO;
using System.Runtime.InteropServices;

namespace Velora;

/// <summary>Writes to the platform log through the plug-in that this process has loaded.</summary>
internal sealed unsafe class PluginLog
{
    private const string PluginName = "libquillon-tv-plugin.so";

    // The plug-in frees the string, so it must be allocated with malloc.
    private readonly delegate* unmanaged<IntPtr, void> _printInfo;

    private PluginLog(IntPtr printInfo) =>
        _printInfo = (delegate* unmanaged<IntPtr, void>)printInfo;

    /// <summary>Returns null if no plug-in is loaded or if it has no such function.</summary>
    public static PluginLog? Find()
    {
        string? path = LoadedPluginPath();
        return path != null && NativeLibrary.TryLoad(path, out IntPtr plugin) &&
               NativeLibrary.TryGetExport(plugin, "print_log_info", out IntPtr printInfo)
            ? new PluginLog(printInfo)
            : null;
    }

    public void Info(string text) => _printInfo(Marshal.StringToCoTaskMemUTF8(text));

    // The launcher loads the plug-in with RTLD_LOCAL, so its functions are found through its path.
    // Loading the same path again returns the same library.
    private static string? LoadedPluginPath()
    {
        foreach (string line in File.ReadLines("/proc/self/maps"))
        {
            int path = line.IndexOf('/');
            if (path >= 0 && line.EndsWith("/" + PluginName, StringComparison.Ordinal))
            {
                return line[path..];
            }
        }
        return null;
    }
}
