using System;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Resources;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;

namespace Velora.Sample.Clock;

/// <summary>
/// Prints how it was launched: its id, process name and arguments, the results of the packages that
/// it uses, and the path of each loaded assembly.
/// </summary>
/// <remarks>
/// <code>
/// --exit N          exit with status N         --culture NAME    greet in that culture
/// --exit-at-once    use Environment.Exit       --load NAME       load an additional assembly
/// --throw           throw an exception         --property NAME   print a runtime property
/// --wait N          wait N seconds at the end
/// </code>
/// </remarks>
internal static class Program
{
    private static int Main(string[] arguments)
    {
        Options options = Options.Parse(arguments);
        PrintIdentity(arguments);
        PrintGreeting(options.Culture);
        PrintPackages();
        foreach (string name in options.Properties)
        {
            Print($"property {name}", AppContext.GetData(name)?.ToString() ?? "(none)");
        }
        foreach (string name in options.Load)
        {
            PrintLoaded(name);
        }
        PrintAssemblies();
        return End(options);
    }

    private static void Print(string name, string value) => Console.WriteLine($"{name}: {value}");

    private static void PrintIdentity(string[] arguments)
    {
        // The launcher passes the id in QUILLON_APP_ID. The plug-in uses its end as the process
        // name.
        Print("application", Environment.GetEnvironmentVariable("QUILLON_APP_ID") ?? "(unknown)");
        Print("process name", File.ReadAllText("/proc/self/comm").TrimEnd('\n'));
        Print("runtime", RuntimeInformation.FrameworkDescription);
        Print("base directory", AppContext.BaseDirectory);
        Print("arguments", string.Join(" ", arguments));
        Print("command line", string.Join(" ", Environment.GetCommandLineArgs()));
        Print("entry assembly", Assembly.GetEntryAssembly()?.GetName().Name ?? "(none)");
    }

    private static void PrintGreeting(string? culture)
    {
        var texts = new ResourceManager("Velora.Sample.Clock.Texts", typeof(Program).Assembly);
        CultureInfo wanted =
            culture == null ? CultureInfo.InvariantCulture : CultureInfo.GetCultureInfo(culture);
        Print("greeting", texts.GetString("Greeting", wanted) ?? "(none)");
    }

    private static void PrintPackages()
    {
        PrintOrReason("calendar week", Week);
        PrintOrReason("age of the moon", MoonAge);
    }

    // If a package is missing, prints the reason and continues.
    private static void PrintOrReason(string name, Func<string> value)
    {
        try
        {
            Print(name, value());
        }
        catch (Exception e) when (e is IOException or BadImageFormatException)
        {
            Print(name, $"unavailable ({e.Message})");
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static string Week() => Calendar.Calendar.Week(DateTime.Today);

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static string MoonAge() => $"{Moon.Moon.Age(DateTime.UtcNow)} days";

    private static void PrintLoaded(string name)
    {
        PrintOrReason($"loaded {name}", () => Assembly.Load(name).Location);
    }

    private static void PrintAssemblies()
    {
        foreach (Assembly assembly in AppDomain.CurrentDomain.GetAssemblies()
                     .Where(a => !a.IsDynamic)
                     .OrderBy(a => a.GetName().Name, StringComparer.Ordinal))
        {
            Print($"assembly {assembly.GetName().Name}", assembly.Location);
        }
    }

    private static int End(Options options)
    {
        Console.Out.Flush();
        Thread.Sleep(TimeSpan.FromSeconds(options.Wait));
        if (options.Throw)
        {
            throw new InvalidOperationException("asked to fail");
        }
        if (options.ExitAtOnce)
        {
            Environment.Exit(options.Exit);
        }
        return options.Exit;
    }
}
