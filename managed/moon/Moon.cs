using System;

namespace Velora.Sample.Moon;

/// <summary>The age of the moon.</summary>
public static class Moon
{
    private const double SynodicMonth = 29.530588853;  // days
    private static readonly DateTime NewMoon = new(2000, 1, 6, 18, 14, 0, DateTimeKind.Utc);

    /// <summary>Returns the days since the last new moon, 0 to 29.</summary>
    public static int Age(DateTime utc)
    {
        double age = (utc - NewMoon).TotalDays % SynodicMonth;
        return (int)(age < 0 ? age + SynodicMonth : age);
    }
}
