using System.Linq.Expressions;
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.Loader;
using System.Security.Cryptography;
using System.Text;
using System.Text.Json;
using System.Text.RegularExpressions;
using System.Xml.Linq;

namespace Corpus;

// Parts of the framework that generate code, load native libraries or look for assemblies.
internal static class Framework
{
    private sealed record Point(int X, int Y);

    public static int Use(string[] words)
    {
        Console.WriteLine(JsonSerializer.Serialize(new Point(1, 2)));
        Console.WriteLine(JsonSerializer.Deserialize<Point>("{\"X\":3,\"Y\":4}"));
        Console.WriteLine(Regex.Replace("a1b22", @"\d+", "#", RegexOptions.Compiled));
        Expression<Func<int, int>> square = x => x * x;
        Console.WriteLine(square.Compile()(12));
        dynamic number = 20;
        Console.WriteLine(number + 1);
        Console.WriteLine(XDocument.Parse("<a><b c='d'/></a>").Root!.Element("b")!.Attribute("c")!.Value);
        Console.WriteLine(Convert.ToHexString(SHA256.HashData(Encoding.UTF8.GetBytes("abc"))));
        Console.WriteLine(Encoding.Latin1.GetBytes("é").Length);
        Console.WriteLine(TimeZoneInfo.FindSystemTimeZoneById("UTC").BaseUtcOffset);
        Console.WriteLine(Emitted()(5));
        Console.WriteLine(Assembly.Load("System.Collections.Immutable").GetName().Name);
        AssemblyLoadContext own = AssemblyLoadContext.GetLoadContext(typeof(Framework).Assembly)!;
        Console.WriteLine(own == AssemblyLoadContext.Default);
        return 0;
    }

    private static Func<int, int> Emitted()
    {
        DynamicMethod method = new("AddOne", typeof(int), [typeof(int)]);
        ILGenerator code = method.GetILGenerator();
        code.Emit(OpCodes.Ldarg_0);
        code.Emit(OpCodes.Ldc_I4_1);
        code.Emit(OpCodes.Add);
        code.Emit(OpCodes.Ret);
        return method.CreateDelegate<Func<int, int>>();
    }
}
