using System.Reflection;
using System.Runtime.InteropServices;

namespace Corpus;

// What the application learns about itself.
internal static class Self
{
    public static int Describe(string[] words)
    {
        Assembly entry = Assembly.GetEntryAssembly()!;
        Console.WriteLine($"entry assembly: {entry.GetName().Name}");
        Console.WriteLine($"location: {Path.GetFileName(entry.Location)}");
        Console.WriteLine($"location exists: {File.Exists(entry.Location)}");
        Console.WriteLine($"friendly name: {AppDomain.CurrentDomain.FriendlyName}");
        Console.WriteLine($"framework of the build: {AppContext.TargetFrameworkName}");
        Console.WriteLine($"framework: {RuntimeInformation.FrameworkDescription}");
        Console.WriteLine($"runtime identifier: {RuntimeInformation.RuntimeIdentifier}");
        string[] all = Environment.GetCommandLineArgs();
        Console.WriteLine($"command line: {Path.GetFileName(all[0])}|{string.Join('|', all[1..])}");
        string own = Path.Combine(AppContext.BaseDirectory, "Corpus.Console.dll");
        Console.WriteLine($"base directory holds the assembly: {File.Exists(own)}");
        Console.WriteLine($"current directory: {Environment.CurrentDirectory}");
        Console.WriteLine($"domain's base is the same: {SameBase()}");
        Console.WriteLine($"server garbage collection: {System.Runtime.GCSettings.IsServerGC}");
        Console.WriteLine($"variable: {Environment.GetEnvironmentVariable("CORPUS_VARIABLE")}");
        return 0;
    }

    private static bool SameBase() =>
        AppDomain.CurrentDomain.BaseDirectory == AppContext.BaseDirectory;
}
