// As Hello, with 200 assemblies of its own, of which it has used one by its first output.
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
