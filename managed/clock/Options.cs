using System;
using System.Collections.Generic;
using System.Globalization;

namespace Velora.Sample.Clock;

/// <summary>The command-line options of the sample.</summary>
internal sealed class Options
{
    /// <summary>The exit status of the application.</summary>
    public int Exit { get; private set; }

    /// <summary>Exit with Environment.Exit instead of returning from Main.</summary>
    public bool ExitAtOnce { get; private set; }

    /// <summary>Seconds to wait before the exit.</summary>
    public int Wait { get; private set; }

    /// <summary>Exit with an unhandled exception.</summary>
    public bool Throw { get; private set; }

    /// <summary>Culture of the greeting; the invariant culture if null.</summary>
    public string? Culture { get; private set; }

    /// <summary>Additional assemblies to load by name.</summary>
    public List<string> Load { get; } = new();

    /// <summary>Runtime properties to print.</summary>
    public List<string> Properties { get; } = new();

    public static Options Parse(string[] arguments)
    {
        var options = new Options();
        for (int i = 0; i < arguments.Length; ++i)
        {
            i += options.Take(arguments[i], i + 1 < arguments.Length ? arguments[i + 1] : "");
        }
        return options;
    }

    // Returns the number of values that the option uses. Other arguments are only echoed.
    private int Take(string name, string value)
    {
        switch (name)
        {
            case "--exit": Exit = int.Parse(value, CultureInfo.InvariantCulture); return 1;
            case "--exit-at-once": ExitAtOnce = true; return 0;
            case "--wait": Wait = int.Parse(value, CultureInfo.InvariantCulture); return 1;
            case "--throw": Throw = true; return 0;
            case "--culture": Culture = value; return 1;
            case "--load": Load.Add(value); return 1;
            case "--property": Properties.Add(value); return 1;
            default: return 0;
        }
    }
}
