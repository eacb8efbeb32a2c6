using System.Runtime.InteropServices;

namespace Corpus;

// Handlers of signals. Each action prints "ready" when the signal may come.
internal static class Signals
{
    public static int Register(string[] words)
    {
        using ManualResetEventSlim ended = new();
        PosixSignal[] signals =
            [PosixSignal.SIGHUP, PosixSignal.SIGINT, PosixSignal.SIGTERM, PosixSignal.SIGQUIT];
        List<PosixSignalRegistration> registrations = [];
        foreach (PosixSignal signal in signals)
        {
            registrations.Add(PosixSignalRegistration.Create(signal, context =>
            {
                context.Cancel = true;
                Console.WriteLine($"handled {context.Signal}");
                if (context.Signal == PosixSignal.SIGTERM)
                {
                    ended.Set();
                }
            }));
        }
        Console.WriteLine("ready");
        ended.Wait();
        registrations.ForEach(registration => registration.Dispose());
        return 5;
    }

    public static int CancelKeyPress(string[] words)
    {
        using ManualResetEventSlim pressed = new();
        Console.CancelKeyPress += (_, press) =>
        {
            press.Cancel = true;
            Console.WriteLine($"cancelled {press.SpecialKey}");
            pressed.Set();
        };
        Console.WriteLine("ready");
        pressed.Wait();
        return 6;
    }

    // Has no handler of signals. Ends if the input does.
    public static int Wait(string[] words)
    {
        AppDomain.CurrentDomain.ProcessExit += (_, _) => Console.WriteLine("ProcessExit");
        Console.WriteLine($"process {Environment.ProcessId}");
        Console.WriteLine("ready");
        while (Console.Read() >= 0)
        {
        }
        Console.WriteLine("the input has ended");
        return 0;
    }
}
