// Like Hello, with 200 own assemblies. It uses one of them before its first output.
using System;

internal static class Program
{
    private static void Main(string[] arguments)
    {
        bool right = Velora.Bench.Library100.Library.Number() == 100;
        Console.WriteLine((right ? "ready " : "wrong ") + Environment.ProcessId);
        if (arguments.Length > 0)
        {
            Console.In.ReadToEnd();
        }
    }
}
