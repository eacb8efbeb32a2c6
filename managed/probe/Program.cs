using System;
using System.Collections.Generic;
using System.IO;
using System.Reflection;

namespace Velora.Sample.Probe;

/// <summary>
/// An application that keeps running and answers what it is asked about its process: one line on
/// standard input, one line back. It ends at "quit" and at the end of its input.
/// </summary>
/// <remarks>
/// <code>
/// --answers FILE   answer in FILE in place of standard output
///
/// process          its id                       set NAME VALUE   set an environment variable
/// assembly NAME    load it; from which path     variable NAME    an environment variable
/// time-zone        of the local time, and its   collect          collect all garbage
///                  offset in minutes            keep BYTES       keep an array alive
/// screen           the screen's size
/// </code>
/// </remarks>
internal static class Program
{
    private static readonly List<byte[]> Kept = new();

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
            case ["collect"]:
                GC.Collect();
                return "collected";
            case ["keep", var bytes]:
                Kept.Add(new byte[int.Parse(bytes)]);
                return bytes;
            default: return "unknown question";
        }
    }

    private static string TimeZone()
    {
        TimeZoneInfo zone = TimeZoneInfo.Local;
        return $"{zone.Id} {zone.GetUtcOffset(DateTime.UnixEpoch).TotalMinutes}";
    }
}
