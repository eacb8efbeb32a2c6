using System.IO;
using System.Runtime.CompilerServices;

namespace Velora.Sample.Order;

/// <summary>A library that notes when its code runs, as the application does.</summary>
public static class Library
{
    public static readonly string Value = Write("field of the library");

    public static string Text() => "library: first";

#if OWN_INITIALIZER
#pragma warning disable CA2255 // meant for applications
    [ModuleInitializer]
    internal static void Initialize() => Write("module initializer of the library");
#endif

    private static string Write(string text)
    {
        File.AppendAllText("/tmp/order", text + "\n");
        return text;
    }
}
