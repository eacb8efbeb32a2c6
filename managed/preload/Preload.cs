using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Runtime.Versioning;
using System.Text;

[assembly: SupportedOSPlatform("linux")]

namespace Velora;

/// <summary>The managed methods that the plug-in calls in the processes of applications.</summary>
/// <remarks>
/// The plug-in looks the methods up by name. They never throw: a failure makes the process slower
/// or leaves out a report, but the application still runs correctly.
/// </remarks>
public static class Preload
{
    private static GcTracer? s_tracer;

    /// <summary>
    /// Loads and compiles what nearly every application needs first, so that the application starts
    /// faster. Called before the application is known. Writes no output.
    /// </summary>
    public static void Init()
    {
        Try(WarmUpText);
        Try(WarmUpCollections);
        Try(WarmUpConsole);
    }

    /// <summary>
    /// Writes every later garbage collection to the platform log, with the tag "GCTracer".
    /// </summary>
    /// <param name="appId">The application's id, a C string in UTF-8; not kept.</param>
    public static void ActivateGCTracer(IntPtr appId) => Try(() =>
    {
        string id = Marshal.PtrToStringUTF8(appId) ?? "";
        if (s_tracer == null && PluginLog.Find() is { } log)
        {
            s_tracer = new GcTracer(log, id);
        }
    });

    /// <summary>
    /// Starts a server at "/tmp/object-tracker-PID.sock" that reports the content of the heap.
    /// </summary>
    public static void StartServerForOT() => Try(() => new ObjectTracker().Start());

    private static void Try(Action step)
    {
        try
        {
            step();
        }
        catch (Exception)
        {
            // If the application needs this step, it fails again there and is reported.
        }
    }

    private static void WarmUpText()
    {
        var text = new StringBuilder();
        text.Append(CultureInfo.InvariantCulture, $"{DateTime.UtcNow:O} {1.5:F2} {42:X8}");
        _ = Encoding.UTF8.GetString(Encoding.UTF8.GetBytes(text.ToString()));
    }

    private static void WarmUpCollections()
    {
        var names = new Dictionary<string, List<string>>(StringComparer.Ordinal)
        {
            ["preload"] = new List<string> { "a", "b" },
        };
        names["preload"].Sort(StringComparer.Ordinal);
        RuntimeHelpers.RunClassConstructor(typeof(Path).TypeHandle);
    }

    private static void WarmUpConsole()
    {
        // Only the encoding: the streams belong to the application, and descriptors 1 and 2 can be
        // replaced before it starts.
        _ = Console.OutputEncoding.GetEncoder();
    }
}
