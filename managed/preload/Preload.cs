using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Runtime.CompilerServices;
using System.Text;

namespace Velora;

/// <summary>What a prepared process runs before it knows its application.</summary>
public static class Preload
{
    /// <summary>
    /// Loads and compiles what nearly every application needs first, so that its own start finds it
    /// done. Writes nothing and throws nothing: a process without it is slower, not wrong.
    /// </summary>
    /// <remarks>The plug-in finds this method by its name and calls it without arguments.</remarks>
    public static void Init()
    {
        Try(WarmUpText);
        Try(WarmUpCollections);
        Try(WarmUpConsole);
    }

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
