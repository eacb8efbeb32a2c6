namespace Corpus;

// Ways to end.
internal static class Endings
{
    public static int Exit(string[] words)
    {
        Console.WriteLine("before Environment.Exit");
        Environment.Exit(int.Parse(words[0]));
        Console.WriteLine("after Environment.Exit");
        return 0;
    }

    // Main's result replaces it.
    public static int SetExitCode(string[] words)
    {
        Environment.ExitCode = int.Parse(words[0]);
        return int.Parse(words[1]);
    }

    public static int HandleProcessExit(string[] words)
    {
        AppDomain.CurrentDomain.ProcessExit +=
            (_, _) => Console.WriteLine($"ProcessExit, exit code {Environment.ExitCode}");
        return int.Parse(words[0]);
    }

    public static int Throw(string[] words)
    {
        Console.WriteLine("before the exception");
        throw new InvalidOperationException("nobody catches this");
    }

    public static int ThrowInThread(string[] words)
    {
        AppDomain.CurrentDomain.UnhandledException += (_, report) =>
            Console.WriteLine($"UnhandledException: {((Exception)report.ExceptionObject).Message}");
        Thread thread = new(() => throw new InvalidOperationException("thrown in a thread"));
        thread.Start();
        thread.Join();
        return 0;
    }

    public static int OutliveMain(string[] words)
    {
        new Thread(() =>
        {
            Thread.Sleep(300);
            Console.WriteLine("a foreground thread, after Main");
        }).Start();
        new Thread(() =>
        {
            Thread.Sleep(Timeout.Infinite);
        }) { IsBackground = true }.Start();
        Console.WriteLine("Main returns");
        return int.Parse(words[0]);
    }

    public static int ExitAfterMain(string[] words)
    {
        new Thread(() =>
        {
            Thread.Sleep(300);
            Console.WriteLine("a foreground thread exits");
            Environment.Exit(int.Parse(words[0]));
        }).Start();
        return 1;
    }

    public static int FailFast(string[] words)
    {
        Console.WriteLine("before Environment.FailFast");
        Environment.FailFast("asked to fail");
        return 0;
    }
}
