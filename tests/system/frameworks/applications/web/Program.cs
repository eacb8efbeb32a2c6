using System;
using System.Linq;
using System.Net.Http;
using Microsoft.AspNetCore.Builder;
using Microsoft.AspNetCore.Hosting;
using Microsoft.AspNetCore.Http;
using Microsoft.AspNetCore.Mvc;
using Microsoft.Extensions.DependencyInjection;
using Microsoft.Extensions.Logging;

// A web application that requests its own page, prints it and ends.
WebApplicationBuilder builder = WebApplication.CreateBuilder(
    new WebApplicationOptions { ContentRootPath = AppContext.BaseDirectory });
builder.Logging.ClearProviders();
builder.WebHost.UseUrls("http://127.0.0.1:0");
builder.Services.AddControllers();
await using WebApplication app = builder.Build();
app.MapGet("/", () => Results.Text("hello from " + typeof(WebApplication).Assembly.Location));
await app.StartAsync();
using var client = new HttpClient();
Console.WriteLine(await client.GetStringAsync(app.Urls.First()));
Console.WriteLine("controllers: " + (typeof(ControllerBase).Assembly.GetName().Name));
await app.StopAsync();
return args.Length;
