// An application whose first argument names what it does. What it prints is the same at every run.
namespace Corpus;

internal static class Program
{
    private static readonly Dictionary<string, Func<string[], int>> Actions = new()
    {
        ["greet"] = Greet,
        ["self"] = Self.Describe,
        ["return"] = words => int.Parse(words[0]),
        ["exit"] = Endings.Exit,
        ["exit-code"] = Endings.SetExitCode,
        ["exit-event"] = Endings.HandleProcessExit,
        ["throw"] = Endings.Throw,
        ["throw-late"] = Endings.ThrowInThread,
        ["late"] = Endings.OutliveMain,
        ["late-exit"] = Endings.ExitAfterMain,
        ["fail-fast"] = Endings.FailFast,
        ["converse"] = Streams.Converse,
        ["copy"] = Streams.Copy,
        ["progress"] = Streams.Progress,
        ["terminal"] = Streams.UseTerminal,
        ["texts"] = Cultures.PrintTexts,
        ["cultures"] = Cultures.Print,
        ["signals"] = Signals.Register,
        ["cancel"] = Signals.CancelKeyPress,
        ["wait"] = Signals.Wait,
        ["home"] = Machine.UseHome,
        ["child"] = Machine.RunChild,
        ["http"] = Machine.UseHttp,
        ["framework"] = Framework.Use,
    };

    private static int Main(string[] words)
    {
        if (words.Length == 0 || !Actions.TryGetValue(words[0], out Func<string[], int>? action))
        {
            Console.Error.WriteLine("usage: Corpus.Console " + string.Join("|", Actions.Keys));
            return 2;
        }
        return action(words[1..]);
    }

    private static int Greet(string[] words)
    {
        Console.WriteLine("Hello, World!");
        foreach (string word in words)
        {
            Console.WriteLine($"[{word}]");
        }
        Console.Error.WriteLine("to standard error");
        return 0;
    }
}
