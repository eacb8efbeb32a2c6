using System;
using System.Collections.Generic;
using System.Diagnostics.Tracing;
using System.Globalization;
using System.Linq;

namespace Velora;

/// <summary>Writes every garbage collection of the process to the platform log.</summary>
internal sealed class GcTracer : EventListener
{
    private const string Runtime = "Microsoft-Windows-DotNETRuntime";
    private const EventKeywords GarbageCollection = (EventKeywords)0x1;

    private readonly PluginLog _log;
    private readonly string _appId;

    // The collections that have started. All events arrive in one thread.
    private readonly Dictionary<uint, EventWrittenEventArgs> _begun = new();

    public GcTracer(PluginLog log, string appId)
    {
        _log = log;
        _appId = appId;
        // Must be the last step, because events can arrive as soon as they are enabled.
        EventSource? runtime =
            EventSource.GetSources().FirstOrDefault(source => source.Name == Runtime);
        if (runtime != null)
        {
            EnableEvents(runtime, EventLevel.Informational, GarbageCollection);
        }
    }

    protected override void OnEventWritten(EventWrittenEventArgs data)
    {
        switch (data.EventName)
        {
            case "GCStart_V2": _begun[Number(data, "Count")] = data; break;
            case "GCEnd_V1": ReportCollection(data); break;
            case "GCHeapStats_V2": ReportHeap(data); break;
        }
    }

    private void ReportCollection(EventWrittenEventArgs end)
    {
        uint count = Number(end, "Count");
        if (!_begun.Remove(count, out EventWrittenEventArgs? start))
        {
            return;
        }
        double milliseconds = (end.TimeStamp - start.TimeStamp).TotalMilliseconds;
        string reason = Reason(Number(start, "Reason"));
        Report($"collection {count}: generation {Number(start, "Depth")}, reason {reason}, {milliseconds:F3} ms");
    }

    private void ReportHeap(EventWrittenEventArgs data)
    {
        string sizes = string.Join(' ', Enumerable.Range(0, 5).Select(
            generation => Value(data, $"GenerationSize{generation}")));
        Report($"heap: generations 0 to 2, large, pinned: {sizes} bytes");
    }

    private void Report(FormattableString text) =>
        _log.Info($"[{_appId}] {text.ToString(CultureInfo.InvariantCulture)}");

    private static object? Value(EventWrittenEventArgs data, string name)
    {
        int index = data.PayloadNames?.IndexOf(name) ?? -1;
        return index < 0 ? null : data.Payload?[index];
    }

    private static uint Number(EventWrittenEventArgs data, string name) =>
        Convert.ToUInt32(Value(data, name) ?? 0u, CultureInfo.InvariantCulture);

    // The first values of the runtime's GCReason. Other values are printed as numbers.
    private static string Reason(uint reason) => reason switch
    {
        0 => "small objects",
        1 => "asked for",
        2 => "low memory",
        3 => "none",
        4 => "large objects",
        7 => "asked for, not forced",
        _ => reason.ToString(CultureInfo.InvariantCulture),
    };
}
