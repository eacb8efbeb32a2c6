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
/// It finds them by their names. None throws: a process that goes without one is slower or tells
/// less, and is not wrong.
/// </remarks>
public static class Preload
{
    private static GcTracer? s_tracer;

    /// <summary>
    /// Loads and compiles what nearly every application needs first, so that its own start finds it
    /// done. For a process that does not know its application yet; writes nothing.
    /// </summary>
    public static void Init()
    {
        Try(WarmUpText);
        Try(WarmUpCollections);
        Try(WarmUpConsole);
    }

    /// <summary>
    /// Reports every garbage collection from here on to the platform log, under the tag "GCTracer".
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
    /// Answers from here on what the heap holds, at "/tmp/object-tracker-PID.sock".
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
            // What fails here fails again, and is reported, where the application needs it.
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
        // The encoding only: the streams belong to the application, and descriptors 1 and 2 may
        // lead elsewhere by the time it starts.
        _ = Console.OutputEncoding.GetEncoder();
    }
}
