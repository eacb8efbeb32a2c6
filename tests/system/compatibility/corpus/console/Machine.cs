using System.Diagnostics;
using System.Net;
using System.Net.Sockets;
using System.Text;

namespace Corpus;

// What the application uses of the machine.
internal static class Machine
{
    // Files below the home directory: a settings file, data of the application, and a cache.
    public static int UseHome(string[] words)
    {
        Dictionary<string, Environment.SpecialFolder> folders = new()
        {
            ["settings"] = Environment.SpecialFolder.ApplicationData,
            ["data"] = Environment.SpecialFolder.LocalApplicationData,
            ["profile"] = Environment.SpecialFolder.UserProfile,
        };
        foreach ((string name, Environment.SpecialFolder folder) in folders)
        {
            string path = Environment.GetFolderPath(folder, Environment.SpecialFolderOption.Create);
            string file = Path.Combine(path, "corpus", name + ".txt");
            Directory.CreateDirectory(Path.GetDirectoryName(file)!);
            File.WriteAllText(file, $"the {name} are kept");
            Console.WriteLine(File.ReadAllText(file));
        }
        return 0;
    }

    public static int RunChild(string[] words)
    {
        ProcessStartInfo start = new("/bin/sh") { RedirectStandardOutput = true };
        start.ArgumentList.Add("-c");
        start.ArgumentList.Add("echo from the child; exit 3");
        using Process child = Process.Start(start)!;
        Console.Write(child.StandardOutput.ReadToEnd());
        child.WaitForExit();
        Console.WriteLine($"the child ended with {child.ExitCode}");
        return 0;
    }

    // A request to a server of its own, on the loopback interface.
    public static int UseHttp(string[] words)
    {
        using TcpListener listener = new(IPAddress.Loopback, 0);
        listener.Start();
        Task answering = Answer(listener);
        using HttpClient client = new();
        int port = ((IPEndPoint)listener.LocalEndpoint).Port;
        using HttpResponseMessage answer =
            client.GetAsync($"http://127.0.0.1:{port}/greeting").GetAwaiter().GetResult();
        answering.GetAwaiter().GetResult();
        Console.WriteLine((int)answer.StatusCode);
        Console.WriteLine(answer.Content.ReadAsStringAsync().GetAwaiter().GetResult());
        return 0;
    }

    private static async Task Answer(TcpListener listener)
    {
        using TcpClient peer = await listener.AcceptTcpClientAsync();
        using NetworkStream stream = peer.GetStream();
        using StreamReader request = new(stream, Encoding.ASCII, leaveOpen: true);
        string first = (await request.ReadLineAsync())!;
        while (!string.IsNullOrEmpty(await request.ReadLineAsync()))
        {
        }
        string text = $"you asked: {first}";
        string head = $"HTTP/1.1 200 OK\r\nContent-Length: {text.Length}\r\nConnection: close\r\n\r\n";
        await stream.WriteAsync(Encoding.ASCII.GetBytes(head + text));
    }
}
