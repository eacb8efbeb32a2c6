using System;
using System.Globalization;
using System.Text;

namespace Velora;

/// <summary>Reports the content of the managed heap by generation.</summary>
internal static class HeapReport
{
    private static readonly CultureInfo Invariant = CultureInfo.InvariantCulture;
    private static readonly string[] Names = { "0", "1", "2", "large", "pinned" };

    /// <summary>
    /// Returns one line per generation and three lines for the whole heap. Performs a full
    /// collection first, so that the sizes are those of live objects.
    /// </summary>
    public static string OfLiveObjects()
    {
        GC.Collect();
        GC.WaitForPendingFinalizers();
        GC.Collect();
        return Of(GC.GetGCMemoryInfo(GCKind.FullBlocking));
    }

    /// <summary>
    /// Returns the same for the state after the last collection. All sizes are 0 before the first.
    /// </summary>
    public static string OfLastCollection() => Of(GC.GetGCMemoryInfo(GCKind.Any));

    private static string Of(GCMemoryInfo info)
    {
        var text = new StringBuilder();
        for (int generation = 0; generation < info.GenerationInfo.Length; ++generation)
        {
            AppendGeneration(text, generation, info.GenerationInfo[generation]);
        }
        text.Append(Invariant, $"heap: {info.HeapSizeBytes} bytes, {info.FragmentedBytes} of them free\n");
        text.Append(Invariant, $"pinned objects: {info.PinnedObjectsCount}\n");
        text.Append(Invariant, $"waiting for finalizers: {info.FinalizationPendingCount}\n");
        return text.ToString();
    }

    private static void AppendGeneration(StringBuilder text, int generation, GCGenerationInfo info)
    {
        long live = info.SizeAfterBytes - info.FragmentationAfterBytes;
        // Large and pinned objects are collected with the oldest generation.
        int collections = GC.CollectionCount(Math.Min(generation, GC.MaxGeneration));
        text.Append(Invariant, $"generation {Names[generation]}: {live} bytes in objects, ");
        text.Append(Invariant, $"{info.SizeAfterBytes} in all, {collections} collections\n");
    }
}
