using System;
using System.IO;
using System.Net.Sockets;
using System.Text;
using System.Threading;

namespace Velora;

/// <summary>
/// Answers on a socket of this process what its heap holds. One request and one answer per
/// connection: the line "live" gets a report after a full collection, every other line one of the
/// last collection.
/// </summary>
internal sealed class ObjectTracker
{
    private const int LongestRequest = 64;  // bytes
    private const int RequestTimeout = 5000;  // milliseconds

    private readonly Socket _listener = new(AddressFamily.Unix, SocketType.Stream, ProtocolType.Unspecified);
    private readonly string _path = $"/tmp/object-tracker-{Environment.ProcessId}.sock";

    /// <summary>Throws where the socket cannot be made.</summary>
    public void Start()
    {
        // One that is there belonged to an earlier process of this number.
        File.Delete(_path);
        _listener.Bind(new UnixDomainSocketEndPoint(_path));
        File.SetUnixFileMode(_path, UnixFileMode.UserRead | UnixFileMode.UserWrite);
        _listener.Listen();
        AppDomain.CurrentDomain.ProcessExit += (_, _) => File.Delete(_path);
        new Thread(Serve) { IsBackground = true, Name = "Object Tracker" }.Start();
    }

    private void Serve()
    {
        for (;;)
        {
            try
            {
                using Socket client = _listener.Accept();
                Answer(client);
            }
            catch (SocketException)
            {
                // That client is gone or slow; the next one gets its answer.
            }
        }
    }

    private static void Answer(Socket client)
    {
        client.ReceiveTimeout = RequestTimeout;
        client.SendTimeout = RequestTimeout;
        string report = ReadLine(client) == "live" ? HeapReport.OfLiveObjects()
                                                   : HeapReport.OfLastCollection();
        client.Send(Encoding.UTF8.GetBytes(report));
    }

    // Up to a line break, the end of the stream, or the longest request.
    private static string ReadLine(Socket client)
    {
        var line = new byte[LongestRequest];
        int length = 0;
        while (length < line.Length && Array.IndexOf(line, (byte)'\n', 0, length) < 0)
        {
            int received = client.Receive(line, length, line.Length - length, SocketFlags.None);
            if (received == 0)
            {
                break;
            }
            length += received;
        }
        return Encoding.UTF8.GetString(line, 0, length).Split('\n')[0];
    }
}
