using System;
using System.IO;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Text;

namespace Quillon;

/// <summary>
/// What the launch pad calls in a process that it prepares, and in it again when the process gets
/// its application.
/// </summary>
/// <remarks>
/// The names are the launcher's: it finds the methods by them. None may throw, since nobody could
/// catch it.
/// </remarks>
public static class Launchpad
{
    /// <summary>
    /// An application that does nothing: run once, it takes the runtime's way to Main for the first
    /// time.
    /// </summary>
    public static void Main()
    {
    }

    /// <summary>
    /// Loads and compiles what nearly every application needs before its first line of output.
    /// </summary>
    /// <remarks>
    /// Leaves nothing behind that an application could see: no stream of the console is kept, since
    /// descriptors 0 to 2 are not the application's yet and the terminal's state may be another one.
    /// </remarks>
    public static void WarmUp()
    {
        try
        {
            WriteNothing();
            ReadArguments();
        }
        catch (Exception)
        {
            // What fails here fails again, and is reported, where the application needs it.
        }
    }

    /// <summary>
    /// Gives AppContext the properties that belong to the application, and the runtime's copy of
    /// the environment what changed since it was made.
    /// </summary>
    /// <param name="properties">
    /// UTF-8 texts with a zero byte behind each: name, value, name, value, and an empty name.
    /// </param>
    /// <param name="variables">
    /// The same; a value is "=" and the variable's value, or nothing for one that is gone.
    /// </param>
    /// <returns>0, or -1 where the runtime refuses.</returns>
    public static unsafe int Assign(IntPtr properties, IntPtr variables)
    {
        try
        {
            var next = (byte*)properties;
            for (string name = Take(ref next); name.Length > 0; name = Take(ref next))
            {
                AppContext.SetData(name, Take(ref next));
            }
            next = (byte*)variables;
            for (string name = Take(ref next); name.Length > 0; name = Take(ref next))
            {
                string value = Take(ref next);
                Environment.SetEnvironmentVariable(name, value.Length > 0 ? value[1..] : null);
            }
            return 0;
        }
        catch (Exception)
        {
            return -1;
        }
    }

    private static unsafe string Take(ref byte* next)
    {
        ReadOnlySpan<byte> bytes = MemoryMarshal.CreateReadOnlySpanFromNullTerminated(next);
        next += bytes.Length + 1;
        return Encoding.UTF8.GetString(bytes);
    }

    // The way of Console.WriteLine, through a stream of its own that is closed again.
    private static void WriteNothing()
    {
        RuntimeHelpers.RunClassConstructor(typeof(Console).TypeHandle);
        using Stream output = Console.OpenStandardOutput();
        using var writer = new StreamWriter(output, Encoding.Default, 256) { AutoFlush = true };
        using TextWriter synchronized = TextWriter.Synchronized(writer);
        synchronized.Write("");
        synchronized.Flush();
        output.Write(ReadOnlySpan<byte>.Empty);
    }

    private static void ReadArguments()
    {
        _ = Environment.NewLine;
        _ = string.Join(' ', new[] { "a", "b" });
        _ = $"{1}: {"text"}";
    }
}
