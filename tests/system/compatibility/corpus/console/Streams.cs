namespace Corpus;

// Standard streams.
internal static class Streams
{
    // Asks, and answers each line, until the input ends.
    public static int Converse(string[] words)
    {
        int count = 0;
        Console.Write("name? ");
        while (Console.ReadLine() is { } line)
        {
            ++count;
            Console.WriteLine($"hello {line}");
            Console.Write("name? ");
        }
        Console.WriteLine($"{count} names");
        return count;
    }

    // Copies bytes, NUL included.
    public static int Copy(string[] words)
    {
        using Stream input = Console.OpenStandardInput();
        using Stream output = Console.OpenStandardOutput();
        input.CopyTo(output);
        return 0;
    }

    public static int Progress(string[] words)
    {
        for (int percent = 0; percent <= 100; percent += 25)
        {
            Console.Write($"\r{percent} %");
        }
        Console.Write("\nbefore\0after\n");
        return 0;
    }

    public static int UseTerminal(string[] words)
    {
        Console.WriteLine($"input redirected: {Console.IsInputRedirected}");
        Console.WriteLine($"output redirected: {Console.IsOutputRedirected}");
        Console.WriteLine($"error redirected: {Console.IsErrorRedirected}");
        Console.WriteLine($"window: {Console.WindowWidth} x {Console.WindowHeight}");
        Console.ForegroundColor = ConsoleColor.Green;
        Console.WriteLine("green");
        Console.ResetColor();
        Console.Write("press a key: ");
        ConsoleKeyInfo key = Console.ReadKey(intercept: true);
        Console.WriteLine($"{key.Key} {key.Modifiers}");
        Console.Write("press an arrow: ");
        Console.WriteLine(Console.ReadKey(intercept: true).Key);
        return 0;
    }
}
