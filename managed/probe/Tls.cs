using System;
using System.IO;
using System.Net;
using System.Net.Security;
using System.Net.Sockets;
using System.Security.Authentication;
using System.Security.Cryptography;
using System.Security.Cryptography.X509Certificates;
using System.Threading.Tasks;

namespace Velora.Sample.Probe;

/// <summary>A TLS server on this machine, whose certificate an authority of its own has signed.</summary>
internal static class Tls
{
    private const string Host = "localhost";

    /// <summary>Writes authority.pem, server.pem and server.key to the folder.</summary>
    public static string MakeAuthority(string folder)
    {
        DateTimeOffset start = DateTimeOffset.UtcNow.AddDays(-1);
        DateTimeOffset end = start.AddDays(7);
        using ECDsa authorityKey = ECDsa.Create(ECCurve.NamedCurves.nistP256);
        var request = new CertificateRequest("CN=Probe", authorityKey, HashAlgorithmName.SHA256);
        request.CertificateExtensions.Add(new X509BasicConstraintsExtension(true, false, 0, true));
        using X509Certificate2 authority = request.CreateSelfSigned(start, end);
        using ECDsa key = ECDsa.Create(ECCurve.NamedCurves.nistP256);
        using X509Certificate2 server = Sign(authority, key, start, end);
        string file = Path.Combine(folder, "authority.pem");
        File.WriteAllText(file, authority.ExportCertificatePem());
        File.WriteAllText(Path.Combine(folder, "server.pem"), server.ExportCertificatePem());
        File.WriteAllText(Path.Combine(folder, "server.key"), key.ExportPkcs8PrivateKeyPem());
        return file;
    }

    public static string Connect(string folder)
    {
        using X509Certificate2 certificate = X509Certificate2.CreateFromPemFile(
            Path.Combine(folder, "server.pem"), Path.Combine(folder, "server.key"));
        using var listener = new TcpListener(IPAddress.Loopback, 0);
        listener.Start();
        Task server = Task.Run(() => Serve(listener, certificate));
        using var client = new TcpClient();
        client.Connect((IPEndPoint)listener.LocalEndpoint);
        using var stream = new SslStream(client.GetStream());
        try
        {
            stream.AuthenticateAsClient(Host);
            return "trusted";
        }
        catch (AuthenticationException)
        {
            return "not trusted";
        }
    }

    private static X509Certificate2 Sign(X509Certificate2 authority, ECDsa key,
        DateTimeOffset start, DateTimeOffset end)
    {
        var request = new CertificateRequest($"CN={Host}", key, HashAlgorithmName.SHA256);
        var names = new SubjectAlternativeNameBuilder();
        names.AddDnsName(Host);
        request.CertificateExtensions.Add(names.Build());
        return request.Create(authority, start, end, new byte[] { 1 });
    }

    private static void Serve(TcpListener listener, X509Certificate2 certificate)
    {
        try
        {
            using TcpClient accepted = listener.AcceptTcpClient();
            using var stream = new SslStream(accepted.GetStream());
            stream.AuthenticateAsServer(certificate);
            stream.ReadByte(); // until the client closes the connection
        }
        catch (Exception e) when (e is AuthenticationException or IOException)
        {
            // The client has refused the certificate.
        }
    }
}
