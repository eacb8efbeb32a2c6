using System;
using System.IO;
using System.Net.Sockets;
using System.Text;
using System.Threading;

namespace Velora;

/// <summary>
/// A server that reports the content of the heap of this process on a Unix socket. Each connection
/// carries one request and one answer: for the line "live" a report after a full collection, for
/// any other line a report of the last collection.
/// </summary>
internal sealed class ObjectTracker
{
    private const int MaxRequest = 64;       // bytes
    private const int RequestTimeout = 5000;  // milliseconds

    private readonly Socket _listener = new(AddressFamily.Unix, SocketType.Stream, ProtocolType.Unspecified);
    private readonly string _path = $"/tmp/object-tracker-{Environment.ProcessId}.sock";

    /// <summary>Throws if the socket cannot be created.</summary>
    public void Start()
    {
        // An existing file belonged to an earlier process with the same id.
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
                // This client has disconnected or is too slow. Continue with the next client.
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

    // Reads until a line break, the end of the stream, or the maximum request size.
    private static string ReadLine(Socket client)
    {
        var line = new byte[MaxRequest];
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
