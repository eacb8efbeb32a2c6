// Says that it runs, and in which process; with an argument it stays until its input ends.
using System;

internal static class Program
{
    private static void Main(string[] arguments)
    {
        Console.WriteLine("ready " + Environment.ProcessId);
        if (arguments.Length > 0)
        {
            Console.In.ReadToEnd();
        }
    }
}
