// A background service. It works a few turns and stops, or waits for a signal if an argument says so.
using Corpus;

HostApplicationBuilder builder = Host.CreateApplicationBuilder(args);
builder.Services.AddHostedService<Worker>();
builder.Services.AddSingleton(new Waiting(args.Contains("--wait")));
builder.Logging.ClearProviders().AddConsole();
await builder.Build().RunAsync();

namespace Corpus
{
    internal sealed record Waiting(bool ForSignal);

    internal sealed class Worker(IHostApplicationLifetime lifetime, IConfiguration configuration,
                                 ILogger<Worker> log, Waiting waiting) : BackgroundService
    {
        protected override async Task ExecuteAsync(CancellationToken stopping)
        {
            for (int turn = 0; turn < configuration.GetValue("Work:Turns", 1); ++turn)
            {
                log.LogInformation("turn {Turn}", turn);
                await Task.Delay(10, stopping);
            }
            if (waiting.ForSignal)
            {
                Console.WriteLine("ready");
                await Task.Delay(Timeout.Infinite, stopping);
            }
            lifetime.StopApplication();
        }

        public override async Task StopAsync(CancellationToken cancellation)
        {
            await base.StopAsync(cancellation);
            log.LogInformation("stopped");
        }
    }
}
