using System;
using System.Globalization;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;

// Unlike the other samples outside "Velora": what the plug-in makes of an exception depends on words
// in its text, and here the words come from the command line alone.
namespace Sample.Ending;

/// <summary>
/// Ends in the ways in which applications end. Does what its arguments say, one after the other,
/// and ends with status 0 where they leave it alive.
/// </summary>
/// <remarks>
/// <code>
/// end STATUS       end with that status        say TEXT       one line on standard error
/// throw TEXT       an exception nobody         catch-null     use a null reference and catch the
///                  catches                                    exception
/// fail-fast TEXT   Environment.FailFast        handle-term    end with status 6 at a SIGTERM
/// overflow         use up the stack            wait           print "waiting" and wait
/// native WAY       native/faults.h, in a call  at-exit WAY    the same while the process exits
/// </code>
/// </remarks>
internal static class Program
{
    private static readonly object? Nothing = null;
    private static PosixSignalRegistration? termination;

    private static int Main(string[] arguments)
    {
        for (int i = 0; i < arguments.Length; ++i)
        {
            string argument = i + 1 < arguments.Length ? arguments[i + 1] : "";
            if (arguments[i] == "end")
            {
                return int.Parse(argument, CultureInfo.InvariantCulture);
            }
            i += Do(arguments[i], argument);
        }
        return 0;
    }

    // Returns how many arguments an action took beside its name.
    private static int Do(string action, string argument)
    {
        switch (action)
        {
            case "throw": throw new InvalidOperationException(argument);
            case "fail-fast": Environment.FailFast(argument); return 1;
            case "overflow": Recurse(0); return 0;
            case "catch-null": UseNothing(); return 0;
            case "say": Console.Error.WriteLine(argument); return 1;
            case "native": Require(sample_fault(argument)); return 1;
            case "at-exit": Require(sample_fault_at_exit(argument)); return 1;
            case "handle-term": HandleTermination(); return 0;
            case "wait": Wait(); return 0;
            default: throw new ArgumentException($"no such action: {action}");
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static int Recurse(int depth) => depth < 0 ? depth : Recurse(depth + 1) + 1;

    private static void UseNothing()
    {
        try
        {
            Console.WriteLine(Nothing!.ToString());
        }
        catch (NullReferenceException)
        {
            Console.WriteLine("caught");
        }
    }

    private static void HandleTermination()
    {
        termination = PosixSignalRegistration.Create(PosixSignal.SIGTERM, _ => Environment.Exit(6));
    }

    private static void Wait()
    {
        Console.WriteLine("waiting");
        Thread.Sleep(Timeout.Infinite);
    }

    private static void Require(int result)
    {
        if (result != 0)
        {
            throw new ArgumentException("the native library knows no such way to end");
        }
    }

    [DllImport("sample_faults")]
    private static extern int sample_fault(string way);

    [DllImport("sample_faults")]
    private static extern int sample_fault_at_exit(string way);
}
