using System;
using System.IO;
using System.Runtime.CompilerServices;

namespace Velora.Sample.Order;

/// <summary>
/// Applications that note the order in which their code runs, in the file /tmp/order of the device:
/// static fields with and without a type initializer, and module initializers.
/// </summary>
/// <remarks>
/// <code>
/// SampleOrder         uses a library without a module initializer
/// SampleInitializer   has a module initializer
/// SampleEarlyUser     uses a library with a module initializer
/// </code>
/// </remarks>
internal static class Program
{
    private static readonly string Own = Note.Write("field of Program");

#if OWN_INITIALIZER
    [ModuleInitializer]
    internal static void Initialize() => Note.Write("module initializer");
#endif

    private static int Main()
    {
        Note.Write("Main");
        for (int i = 0; i < 2; ++i)
        {
            Note.Write($"{Own}, {Relaxed.Value}, {Precise.Value}");
            Note.Write($"{Generic<string>.Value}, {Generic<int>.Value}");
        }
#if USES_LIBRARY
        Note.Write($"{Library.Value}, {Library.Text()}");
#endif
        Console.WriteLine("version: first");
        return 0;
    }
}

internal static class Note
{
    public static string Write(string text)
    {
        File.AppendAllText("/tmp/order", text + "\n");
        return text;
    }
}

internal static class Relaxed
{
    public static readonly string Value = Note.Write("field without a type initializer");
}

internal static class Precise
{
    public static readonly string Value;

    static Precise() => Value = Note.Write("type initializer");
}

internal static class Generic<T>
{
    public static readonly string Value = Note.Write($"field for {typeof(T).Name}");
}
