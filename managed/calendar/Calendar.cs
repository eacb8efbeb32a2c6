using System;
using System.Globalization;

namespace Velora.Sample.Calendar;

/// <summary>A calendar that is shared with other applications.</summary>
public static class Calendar
{
    /// <summary>Returns the ISO 8601 week of a date, for example "2024-W09".</summary>
    public static string Week(DateTime date) =>
        string.Create(CultureInfo.InvariantCulture,
                      $"{ISOWeek.GetYear(date):D4}-W{ISOWeek.GetWeekOfYear(date):D2}");

    internal static void Main() => Console.WriteLine(Week(DateTime.Today));
}
