using System;
using System.Globalization;

namespace Velora.Sample.Calendar;

/// <summary>A calendar that other applications share.</summary>
public static class Calendar
{
    /// <summary>The ISO 8601 week of a date, for example "2024-W09".</summary>
    public static string Week(DateTime date) =>
        string.Create(CultureInfo.InvariantCulture,
                      $"{ISOWeek.GetYear(date):D4}-W{ISOWeek.GetWeekOfYear(date):D2}");

    internal static void Main() => Console.WriteLine(Week(DateTime.Today));
}
