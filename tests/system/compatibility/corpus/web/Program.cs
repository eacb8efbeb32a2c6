// A web application that asks itself for its pages and ends.
using System.Net.Http.Json;
using Microsoft.AspNetCore.Hosting.Server;
using Microsoft.AspNetCore.Hosting.Server.Features;

WebApplicationBuilder builder = WebApplication.CreateBuilder(args);
builder.WebHost.UseUrls("http://127.0.0.1:0");
WebApplication app = builder.Build();
app.UseStaticFiles();
app.MapGet("/", (IConfiguration configuration) => configuration["Greeting"]);
app.MapGet("/forecast/{days}", (int days) => Enumerable.Range(1, days).Select(day => new { day }));
app.MapPost("/echo", async (HttpRequest request) =>
    await new StreamReader(request.Body).ReadToEndAsync());
await app.StartAsync();

IServerAddressesFeature addresses =
    app.Services.GetRequiredService<IServer>().Features.Get<IServerAddressesFeature>()!;
using HttpClient client = new() { BaseAddress = new Uri(addresses.Addresses.First()) };
Console.WriteLine(await client.GetStringAsync("/"));
Console.WriteLine(await client.GetStringAsync("/forecast/2"));
HttpResponseMessage echo = await client.PostAsync("/echo", new StringContent("echoed"));
Console.WriteLine(await echo.Content.ReadAsStringAsync());
Console.Write(await client.GetStringAsync("/static.txt"));
Console.WriteLine((int)(await client.GetAsync("/missing")).StatusCode);
await app.StopAsync();
