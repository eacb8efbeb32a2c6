// Loads a plug-in with its dependencies into a load context of its own, as the documentation of
// AssemblyDependencyResolver shows it.
using System.Reflection;
using System.Runtime.Loader;
using Corpus;

string path = Path.Combine(AppContext.BaseDirectory, "greeter", "Corpus.Greeter.dll");
PluginContext context = new(path);
Assembly plugin = context.LoadFromAssemblyName(new AssemblyName("Corpus.Greeter"));
Type greeter = plugin.GetType("Corpus.Greeter")!;
Console.WriteLine(greeter.GetMethod("Greet")!.Invoke(null, ["World"]));
Console.WriteLine($"plug-in: {greeter.GetMethod("SerializerVersion")!.Invoke(null, null)}");
Console.WriteLine($"host: {typeof(Newtonsoft.Json.JsonConvert).Assembly.GetName().Version}");
Console.WriteLine($"unknown assembly: [{context.Resolve("There.Is.None")}]");
context.Unload();

namespace Corpus
{
    internal sealed class PluginContext(string path) : AssemblyLoadContext(isCollectible: true)
    {
        private readonly AssemblyDependencyResolver resolver = new(path);

        public string? Resolve(string name) => resolver.ResolveAssemblyToPath(new AssemblyName(name));

        protected override Assembly? Load(AssemblyName name) =>
            resolver.ResolveAssemblyToPath(name) is { } found ? LoadFromAssemblyPath(found) : null;

        protected override IntPtr LoadUnmanagedDll(string name) =>
            resolver.ResolveUnmanagedDllToPath(name) is { } found
                ? LoadUnmanagedDllFromPath(found)
                : IntPtr.Zero;
    }
}
