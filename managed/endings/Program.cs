using System;
using System.Collections.Generic;
using System.Globalization;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;
using System.Threading.Tasks;

// Unlike the other samples, not in the namespace "Velora": the plug-in searches the text of an
// exception for keywords, and here only the command line may supply them.
namespace Sample.Ending;

/// <summary>
/// Ends in the different ways in which applications end. Performs the actions of its arguments in
/// order. If no action ends the process, it exits with status 0.
/// </summary>
/// <remarks>
/// <code>
/// end STATUS       exit with that status      say TEXT       write a line to standard error
/// throw TEXT       throw an unhandled         catch-null     use a null reference and catch the
///                  exception                                 exception
/// fail-fast TEXT   Environment.FailFast       handle-term    exit with status 6 on SIGTERM
/// overflow         overflow the stack         wait           print "waiting" and wait
/// native WAY       call sample_fault          at-exit WAY    call sample_fault in an exit handler
///                  (native/faults.h)
/// host             print "waiting", and return from Main when SIGTERM has come
/// null             use a null reference          exit STATUS      Environment.Exit
/// huge-array       create an array that no       out-of-memory    create objects until the memory
///                  memory could hold                              is used up
/// native-in-malloc WAY, native-in-reader WAY, native-at-full-pipe WAY
///                  call the function of native/moments.h
/// </code>
/// The actions that follow one of these words are performed at another moment:
/// <code>
/// thread           in another thread, while Main waits for its end
/// after-main       in a handler of ProcessExit, after Main has returned
/// after-exit       in a handler of ProcessExit, during Environment.Exit
/// </code>
/// Further actions leave something to do after Main has returned:
/// <code>
/// late TEXT        a foreground thread prints that later
/// late-end STATUS  a foreground thread exits with that status later
/// late-throw TEXT  a foreground thread throws an exception later
/// background       a background thread runs on
/// await TEXT       print that after an await, as an asynchronous Main does
/// on-exit TEXT     print that when the process exits
/// on-unhandled TEXT print that after an unhandled exception
/// finalize TEXT    print that when an object is finalized
/// </code>
/// </remarks>
internal static class Program
{
    private static readonly object? Nothing = null;
    private static PosixSignalRegistration? termination;
    private static object? kept;

    // By then Main has returned.
    private static readonly TimeSpan SomeTime = TimeSpan.FromMilliseconds(300);

    private static int Main(string[] arguments) => Perform(arguments);

    private static int Perform(string[] arguments)
    {
        for (int i = 0; i < arguments.Length; ++i)
        {
            string[] rest = arguments[(i + 1)..];
            string argument = rest.Length > 0 ? rest[0] : "";
            switch (arguments[i])
            {
                case "end": return Number(argument);
                case "thread": return PerformInThread(rest);
                case "after-main": PerformOnExit(rest); return 0;
                case "after-exit": PerformOnExit(rest); Environment.Exit(0); return 0;
                default: i += Do(arguments[i], argument); break;
            }
        }
        return 0;
    }

    private static int PerformInThread(string[] actions)
    {
        int status = 0;
        var thread = new Thread(() => status = Perform(actions));
        thread.Start();
        thread.Join();
        return status;
    }

    private static void PerformOnExit(string[] actions)
    {
        AppDomain.CurrentDomain.ProcessExit += (_, _) => Environment.ExitCode = Perform(actions);
    }

    // Returns the number of arguments that the action uses.
    private static int Do(string action, string argument)
    {
        switch (action)
        {
            case "throw": throw new InvalidOperationException(argument);
            case "fail-fast": Environment.FailFast(argument); return 1;
            case "overflow": Recurse(0); return 0;
            case "catch-null": CatchNullReference(); return 0;
            case "say": Console.Error.WriteLine(argument); return 1;
            case "native": Require(sample_fault(argument)); return 1;
            case "at-exit": Require(sample_fault_at_exit(argument)); return 1;
            case "handle-term": HandleTermination(); return 0;
            case "wait": Wait(); return 0;
            case "null": UseNothing(); return 0;
            case "exit": Environment.Exit(Number(argument)); return 1;
            default: return DoAtMoment(action, argument);
        }
    }

    private static int DoAtMoment(string action, string argument)
    {
        switch (action)
        {
            case "native-in-malloc": sample_fault_in_malloc(argument); return 1;
            case "native-in-reader": sample_fault_in_reader(argument); return 1;
            case "native-at-full-pipe": sample_fault_at_full_pipe(argument); return 1;
            case "huge-array": kept = new Huge[int.MaxValue]; return 0;
            case "out-of-memory": UseUpMemory(); return 0;
            default: return DoAfterMain(action, argument);
        }
    }

    private static int DoAfterMain(string action, string argument)
    {
        switch (action)
        {
            case "host": Host(); return 0;
            case "late": Later(() => Console.WriteLine(argument)); return 1;
            case "late-end": Later(() => Environment.Exit(Number(argument))); return 1;
            case "late-throw": Later(() => throw new InvalidOperationException(argument)); return 1;
            case "background": StayInBackground(); return 0;
            case "await": PrintLater(argument).GetAwaiter().GetResult(); return 1;
            case "on-exit":
                AppDomain.CurrentDomain.ProcessExit += (_, _) => Console.WriteLine(argument);
                return 1;
            case "on-unhandled":
                AppDomain.CurrentDomain.UnhandledException += (_, _) => Console.WriteLine(argument);
                return 1;
            case "finalize": kept = new Finalized(argument); return 1;
            default: throw new ArgumentException($"no such action: {action}");
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static int Recurse(int depth) => depth < 0 ? depth : Recurse(depth + 1) + 1;

    private static void UseNothing() => Console.WriteLine(Nothing!.ToString());

    private static void CatchNullReference()
    {
        try
        {
            UseNothing();
        }
        catch (NullReferenceException)
        {
            Console.WriteLine("caught");
        }
    }

    private static void UseUpMemory()
    {
        const int Block = 1 << 20;
        Require(sample_limit_memory(64 * Block));
        var blocks = new List<byte[]>();
        kept = blocks;
        while (true)
        {
            blocks.Add(new byte[Block]);
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

    // What a host does that runs until it is asked to stop.
    private static void Host()
    {
        using var stop = new ManualResetEventSlim();
        using var registration = PosixSignalRegistration.Create(PosixSignal.SIGTERM, context =>
        {
            context.Cancel = true;
            stop.Set();
        });
        Console.WriteLine("waiting");
        stop.Wait();
        Console.WriteLine("stopped");
    }

    private static void Later(Action action)
    {
        new Thread(() =>
        {
            Thread.Sleep(SomeTime);
            action();
        }).Start();
    }

    private static void StayInBackground()
    {
        new Thread(() => Thread.Sleep(Timeout.Infinite)) { IsBackground = true }.Start();
    }

    private static int Number(string text) => int.Parse(text, CultureInfo.InvariantCulture);

    private static async Task PrintLater(string text)
    {
        await Task.Delay(SomeTime);
        Console.WriteLine(text);
    }

    [StructLayout(LayoutKind.Sequential, Size = 60_000)]
    private struct Huge;

    private sealed class Finalized(string text)
    {
        ~Finalized() => Console.WriteLine(text);
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

    [DllImport("sample_faults")]
    private static extern void sample_fault_in_malloc(string way);

    [DllImport("sample_faults")]
    private static extern void sample_fault_in_reader(string way);

    [DllImport("sample_faults")]
    private static extern void sample_fault_at_full_pipe(string way);

    [DllImport("sample_faults")]
    private static extern int sample_limit_memory(ulong further);
}
