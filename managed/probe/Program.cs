using System;
using System.Collections.Generic;
using System.IO;
using System.IO.MemoryMappedFiles;
using System.Reflection;
using System.Threading;

namespace Velora.Sample.Probe;

/// <summary>
/// An application that answers queries about its process: it reads one query per line from standard
/// input and writes one line per answer. It exits on "quit" and at the end of the input.
/// </summary>
/// <remarks>
/// <code>
/// --answers FILE   write the answers to FILE instead of standard output
///
/// process          print the process id         set NAME VALUE   set an environment variable
/// assembly NAME    load an assembly and print   variable NAME    print an environment variable
///                  its path                     collect          collect all garbage
/// time-zone        print the local time zone    keep BYTES       keep an array alive
///                  and its offset in minutes    screen           print the screen size
/// directory        print the working directory  folder NAME      print a special folder
/// console          print what the streams are   key              print the next key
/// colour TEXT      print a text in red          create FILE      create an empty file
/// authority FOLDER make a certificate authority in a folder, with the certificate of a server
/// tls FOLDER       connect to that server, and print whether the runtime trusts it
/// map FILE BYTES   map a file, touch the pages of its first bytes, and print their sum
/// </code>
/// </remarks>
internal static class Program
{
    private static readonly List<object> Kept = new();

    private static int Main(string[] arguments)
    {
        using TextWriter answers = arguments is ["--answers", var file]
            ? new StreamWriter(file) { AutoFlush = true }
            : Console.Out;
        answers.WriteLine("ready");
        while (Console.In.ReadLine() is { } question && question != "quit")
        {
            answers.WriteLine(AnswerOrReason(question.Split(' ')));
            answers.Flush();
        }
        return 0;
    }

    private static string AnswerOrReason(string[] words)
    {
        try
        {
            return Answer(words);
        }
        catch (Exception e)
        {
            return $"failed: {e.Message.ReplaceLineEndings(" ")}";
        }
    }

    private static string Answer(string[] words)
    {
        switch (words)
        {
            case ["process"]: return Environment.ProcessId.ToString();
            case ["assembly", var name]: return Assembly.Load(name).Location;
            case ["screen"]: return $"{TV.Screen.Size.Width} x {TV.Screen.Size.Height}";
            case ["time-zone"]: return TimeZone();
            case ["variable", var name]: return Environment.GetEnvironmentVariable(name) ?? "(none)";
            case ["set", var name, var value]:
                Environment.SetEnvironmentVariable(name, value);
                return value;
            case ["directory"]: return Environment.CurrentDirectory;
            case ["folder", var name]:
                return Environment.GetFolderPath(Enum.Parse<Environment.SpecialFolder>(name));
            case ["create", var file]:
                File.Create(file).Dispose();
                return file;
            case ["authority", var folder]: return Tls.MakeAuthority(folder);
            case ["tls", var folder]: return Tls.Connect(folder);
            case ["console"]: return ConsoleState();
            case ["key"]: return NextKey();
            case ["colour", var text]:
                Console.ForegroundColor = ConsoleColor.Red;
                Console.Write(text);
                Console.ResetColor();
                return text;
            case ["clear"]:
                Console.Clear();
                return "cleared";
            case ["error", var text]:
                Console.Error.Write(text);
                return text;
            case ["interrupt"]: return AwaitInterrupt();
            case ["handlers"]: return UnhandledExceptionHandlers().ToString();
            case ["collect"]:
                GC.Collect();
                return "collected";
            case ["keep", var bytes]:
                Kept.Add(new byte[int.Parse(bytes)]);
                return bytes;
            case ["map", var file, var bytes]: return Map(file, long.Parse(bytes));
            default: return "unknown question";
        }
    }

    private static string ConsoleState() =>
        $"redirected: input {Console.IsInputRedirected}, output {Console.IsOutputRedirected}, " +
        $"error {Console.IsErrorRedirected}; width {Console.WindowWidth}";

    private static string NextKey()
    {
        ConsoleKeyInfo key = Console.ReadKey(intercept: true);
        return $"{key.Key} {(int)key.KeyChar} {key.Modifiers}";
    }

    private static string AwaitInterrupt()
    {
        using var pressed = new ManualResetEventSlim();
        ConsoleCancelEventHandler handler = (_, key) =>
        {
            key.Cancel = true;
            pressed.Set();
        };
        Console.CancelKeyPress += handler;
        Console.Write("waiting for an interrupt");
        pressed.Wait();
        Console.CancelKeyPress -= handler;
        return "interrupted";
    }

    // The console adds one when it is initialized.
    private static int UnhandledExceptionHandlers()
    {
        FieldInfo? handlers = typeof(AppContext).GetField("UnhandledException",
            BindingFlags.Static | BindingFlags.NonPublic);
        return (handlers?.GetValue(null) as Delegate)?.GetInvocationList().Length ?? 0;
    }

    private static string Map(string file, long bytes)
    {
        MemoryMappedViewAccessor view = MemoryMappedFile
            .CreateFromFile(file, FileMode.Open, null, 0, MemoryMappedFileAccess.Read)
            .CreateViewAccessor(0, 0, MemoryMappedFileAccess.Read);
        Kept.Add(view);
        long sum = 0;
        for (long at = 0; at < bytes; at += Environment.SystemPageSize)
        {
            sum += view.ReadByte(at);
        }
        return sum.ToString();
    }

    private static string TimeZone()
    {
        TimeZoneInfo zone = TimeZoneInfo.Local;
        return $"{zone.Id} {zone.GetUtcOffset(DateTime.UnixEpoch).TotalMinutes}";
    }
}
