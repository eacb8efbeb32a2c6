using System;
using System.Runtime.InteropServices;

// Prints which of its RID-specific files it has got.
Console.WriteLine(Selected.Asset.Name);
Console.WriteLine(typeof(Selected.Asset).Assembly.Location);
Console.WriteLine("native: " + Native.Answer());

internal static class Native
{
    [DllImport("sample_asset", EntryPoint = "sample_asset_answer")]
    internal static extern int Answer();
}
