using System;
using System.IO;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;

namespace Quillon;

/// <summary>
/// The methods that the launch pad calls in a worker process: while it prepares the process, and
/// again when it assigns an application to the process.
/// </summary>
/// <remarks>
/// The launcher looks the methods up by name. They must not throw, because the native caller cannot
/// catch managed exceptions.
/// </remarks>
public static class Launchpad
{
    private static readonly ManualResetEventSlim s_rehearsed = new();
    private static Assembly? s_application;

    /// <summary>
    /// An application that does nothing. The launch pad runs it once, on a thread of its own, so
    /// that the runtime has executed its code path to Main before the real application starts.
    /// </summary>
    /// <remarks>
    /// Does not return: when Main returns, the runtime waits for the last foreground thread, and
    /// remembers the end of that wait for the rest of the process. The real application's Main would
    /// not wait for its threads then. A background thread does not keep the process alive.
    /// </remarks>
    public static void Main()
    {
        MakeThisThreadBackground(true);
        s_rehearsed.Set();
        using var never = new ManualResetEventSlim();
        never.Wait();
    }

    /// <summary>
    /// Makes the calling thread, which will run the real application, a foreground thread. The
    /// rehearsal's thread is not the last one then when it becomes a background thread.
    /// </summary>
    public static void BeginRehearsal() => MakeThisThreadBackground(false);

    /// <summary>Waits until Main runs on its thread.</summary>
    public static void AwaitRehearsal() => s_rehearsed.Wait();

    /// <summary>
    /// Loads and compiles what nearly every application needs before its first line of output.
    /// </summary>
    /// <remarks>
    /// Keeps no state that an application could see. In particular the console is not initialized
    /// afterwards, because descriptors 0 to 2 are replaced before the application starts.
    /// </remarks>
    public static void WarmUp()
    {
        try
        {
            WriteNothing();
            ReadArguments();
        }
        catch (Exception)
        {
            // If the application needs this step, it fails again there and is reported.
        }
    }

    /// <summary>
    /// Sets the properties of the application in AppContext, and updates the runtime's copy of the
    /// environment.
    /// </summary>
    /// <param name="properties">
    /// NUL-terminated UTF-8 strings: name, value, name, value, ..., and an empty name at the end.
    /// </param>
    /// <param name="variables">
    /// The same format. A value is "=" and the value of the variable, or an empty string if the
    /// variable was removed.
    /// </param>
    /// <returns>0, or -1 on failure.</returns>
    [MethodImpl(MethodImplOptions.AggressiveOptimization)]
    public static unsafe int Assign(IntPtr properties, IntPtr variables)
    {
        try
        {
            var next = (byte*)properties;
            for (string name = Take(ref next); name.Length > 0; name = Take(ref next))
            {
                AppContext.SetData(name, Take(ref next));
            }
            next = (byte*)variables;
            for (string name = Take(ref next); name.Length > 0; name = Take(ref next))
            {
                string value = Take(ref next);
                Environment.SetEnvironmentVariable(name, value.Length > 0 ? value[1..] : null);
            }
            return 0;
        }
        catch (Exception)
        {
            return -1;
        }
    }

    /// <summary>
    /// Loads the assembly of an application, as the runtime does when it executes it: the runtime
    /// then uses this copy. Runs no code of it.
    /// </summary>
    /// <remarks>
    /// Call while no folder of APP_PATHS contains the assembly. Otherwise it would be loaded from
    /// there, and have another location than in a direct launch.
    /// </remarks>
    /// <param name="path">NUL-terminated UTF-8: the path that the launch will execute.</param>
    /// <returns>0, or -1 on failure.</returns>
    public static unsafe int LoadApplication(IntPtr path)
    {
        try
        {
            var text = (byte*)path;
            string file = Take(ref text);
            // By reflection, because a reference would load the assembly System.Runtime.Loader.
            Type contexts = typeof(object).Assembly.GetType(
                "System.Runtime.Loader.AssemblyLoadContext", true)!;
            object? context = contexts.GetProperty("Default")!.GetValue(null);
            s_application = (Assembly?)contexts.GetMethod("LoadFromAssemblyPath")!
                .Invoke(context, new object[] { file });
            return s_application?.Location == file ? 0 : -1;
        }
        catch (Exception)
        {
            return -1;
        }
    }

    /// <summary>
    /// Compiles the entry point of the loaded application, which also loads the assemblies that it
    /// refers to. Runs no type initializer, but the module initializers of these assemblies.
    /// </summary>
    /// <returns>
    /// 0, or -1 on failure. It fails if an assembly is not found: the runtime remembers that, and
    /// the application may provide the assembly later.
    /// </returns>
    public static int CompileMain()
    {
        bool isMissing = false;
        Assembly? OnMissing(object? sender, ResolveEventArgs arguments)
        {
            isMissing = true;
            return null;
        }
        AppDomain.CurrentDomain.AssemblyResolve += OnMissing;
        try
        {
            RuntimeHelpers.PrepareMethod(s_application!.EntryPoint!.MethodHandle);
            return isMissing ? -1 : 0;
        }
        catch (Exception)
        {
            return -1;
        }
        finally
        {
            AppDomain.CurrentDomain.AssemblyResolve -= OnMissing;
        }
    }

    /// <summary>Lists the files of the loaded assemblies.</summary>
    /// <param name="buffer">
    /// Receives NUL-terminated UTF-8 strings, and an empty one at the end.
    /// </param>
    /// <param name="size">The size of the buffer in bytes.</param>
    /// <returns>0, or -1 on failure, for example if the buffer is too small.</returns>
    public static int LoadedFiles(IntPtr buffer, int size)
    {
        try
        {
            var list = new StringBuilder();
            foreach (Assembly assembly in AppDomain.CurrentDomain.GetAssemblies())
            {
                if (!assembly.IsDynamic && assembly.Location.Length > 0)
                {
                    list.Append(assembly.Location).Append('\0');
                }
            }
            byte[] bytes = Encoding.UTF8.GetBytes(list.Append('\0').ToString());
            if (bytes.Length > size)
            {
                return -1;
            }
            Marshal.Copy(bytes, 0, buffer, bytes.Length);
            return 0;
        }
        catch (Exception)
        {
            return -1;
        }
    }

    [MethodImpl(MethodImplOptions.AggressiveOptimization)]
    private static unsafe string Take(ref byte* next)
    {
        ReadOnlySpan<byte> bytes = MemoryMarshal.CreateReadOnlySpanFromNullTerminated(next);
        next += bytes.Length + 1;
        return Encoding.UTF8.GetString(bytes);
    }

    // Executes the code path of Console.WriteLine with a stream of its own, which is closed again.
    //
    // At its first write, the runtime initializes the console: it saves for the rest of the process
    // which descriptors are terminals, and the terminal's settings. So the native part is postponed
    // to the application's first write, and the managed part is undone. It consists of static
    // fields, one of which is the event AppContext.UnhandledException.
    private static void WriteNothing()
    {
        var process = new StaticState(typeof(AppContext));
        var console = new StaticState(typeof(Console));
        var platform = new StaticState(typeof(Console).Assembly.GetType("System.ConsolePal", true)!);
        PostponeTerminalSetup(1);
        try
        {
            using Stream output = Console.OpenStandardOutput();
            output.Write(ReadOnlySpan<byte>.Empty);
            if (!console.Holds(Console.Out)) // created just now
            {
                CloseStreamOf(Console.Out);
            }
            using var nowhere = new StreamWriter(Stream.Null) { AutoFlush = true };
            Console.SetOut(nowhere);
            Console.WriteLine("");
        }
        finally
        {
            process.Restore();
            console.Restore();
            platform.Restore();
            PostponeTerminalSetup(0);
        }
    }

    // Otherwise the collector closes it, during the application.
    private static void CloseStreamOf(TextWriter console)
    {
        FieldInfo? inner =
            console.GetType().GetField("_out", BindingFlags.Instance | BindingFlags.NonPublic);
        (inner?.GetValue(console) as StreamWriter)?.BaseStream.Dispose();
    }

    // The launcher implements it. Throws in a runtime whose console it does not know, in which the
    // first write takes longer.
    [DllImport("Quillon.Launchpad")]
    private static extern void PostponeTerminalSetup(int value);

    // The values of the static fields of a type, without those that cannot change.
    private readonly struct StaticState
    {
        private readonly FieldInfo[] _fields;
        private readonly object?[] _values;

        public StaticState(Type type)
        {
            _fields = Array.FindAll(type.GetFields(BindingFlags.Static |
                BindingFlags.Public | BindingFlags.NonPublic | BindingFlags.DeclaredOnly),
                field => !field.IsLiteral && !field.IsInitOnly);
            _values = Array.ConvertAll(_fields, field => field.GetValue(null));
        }

        public bool Holds(object value) => Array.IndexOf(_values, value) >= 0;

        public void Restore()
        {
            for (int i = 0; i < _fields.Length; ++i)
            {
                _fields[i].SetValue(null, _values[i]);
            }
        }
    }

    // By reflection, because a reference to Thread loads the assembly System.Threading.Thread, which
    // an application could see.
    private static void MakeThisThreadBackground(bool value)
    {
        Type thread = typeof(object).Assembly.GetType("System.Threading.Thread", true)!;
        object? current = thread.GetProperty("CurrentThread")!.GetValue(null);
        thread.GetProperty("IsBackground")!.SetValue(current, value);
    }

    private static void ReadArguments()
    {
        _ = Environment.NewLine;
        _ = string.Join(' ', new[] { "a", "b" });
        _ = $"{1}: {"text"}";
    }
}
