using System;
using System.Reflection;
using System.Runtime.Loader;

// Loads the plug-in that the argument names, with the dependencies that its own dependency file
// names, and prints what it says.
var context = new PluginContext(args[0]);
Assembly plugin = context.LoadFromAssemblyPath(args[0]);
Console.WriteLine(plugin.GetType("Greeter.Entry")!.GetMethod("Greet")!.Invoke(null, null));

internal sealed class PluginContext : AssemblyLoadContext
{
    private readonly AssemblyDependencyResolver _resolver;

    public PluginContext(string path) : base("plug-in") => _resolver = new(path);

    protected override Assembly? Load(AssemblyName name)
    {
        string? path = _resolver.ResolveAssemblyToPath(name);
        return path is null ? null : LoadFromAssemblyPath(path);
    }

    protected override IntPtr LoadUnmanagedDll(string name)
    {
        string? path = _resolver.ResolveUnmanagedDllToPath(name);
        return path is null ? IntPtr.Zero : LoadUnmanagedDllFromPath(path);
    }
}
