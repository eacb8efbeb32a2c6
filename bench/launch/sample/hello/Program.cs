// Prints "ready" and its process id. With an argument, it waits until its input ends.
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
