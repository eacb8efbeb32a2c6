// Writes 200 assemblies, Velora.Bench.Library001 to 200, to a folder. Each has a public class
// Library with a method Number.
using System;
using System.IO;
using System.Reflection;
using System.Reflection.Metadata;
using System.Reflection.Metadata.Ecma335;
using System.Reflection.PortableExecutable;

internal static class Program
{
    private const int Count = 200;

    private static void Main(string[] arguments)
    {
        Directory.CreateDirectory(arguments[0]);
        for (int number = 1; number <= Count; ++number)
        {
            string name = $"Velora.Bench.Library{number:D3}";
            File.WriteAllBytes(Path.Combine(arguments[0], name + ".dll"), Library(name, number));
        }
    }

    private static byte[] Library(string name, int number)
    {
        var metadata = new MetadataBuilder();
        metadata.AddModule(0, metadata.GetOrAddString(name + ".dll"),
            metadata.GetOrAddGuid(new Guid(number, 0, 0, new byte[8])), default, default);
        metadata.AddAssembly(metadata.GetOrAddString(name), new Version(1, 0, 0, 0), default, default, 0,
            AssemblyHashAlgorithm.None);
        var code = new BlobBuilder();
        AddTypes(metadata, name, AddNumber(metadata, code, number));
        var image = new ManagedPEBuilder(PEHeaderBuilder.CreateLibraryHeader(),
            new MetadataRootBuilder(metadata), code);
        var bytes = new BlobBuilder();
        image.Serialize(bytes);
        return bytes.ToArray();
    }

    // public static int Number() => number;
    private static MethodDefinitionHandle AddNumber(MetadataBuilder metadata, BlobBuilder code, int number)
    {
        var instructions = new InstructionEncoder(new BlobBuilder());
        instructions.LoadConstantI4(number);
        instructions.OpCode(ILOpCode.Ret);
        int body = new MethodBodyStreamEncoder(code).AddMethodBody(instructions);
        var signature = new BlobBuilder();
        new BlobEncoder(signature).MethodSignature().Parameters(0, result => result.Type().Int32(), _ => { });
        return metadata.AddMethodDefinition(
            MethodAttributes.Public | MethodAttributes.Static | MethodAttributes.HideBySig,
            MethodImplAttributes.IL, metadata.GetOrAddString("Number"), metadata.GetOrAddBlob(signature), body,
            MetadataTokens.ParameterHandle(1));
    }

    private static void AddTypes(MetadataBuilder metadata, string name, MethodDefinitionHandle firstMethod)
    {
        AssemblyName runtime = Assembly.Load("System.Runtime").GetName();
        var system = metadata.AddAssemblyReference(metadata.GetOrAddString(runtime.Name!), runtime.Version!,
            default, metadata.GetOrAddBlob(runtime.GetPublicKeyToken()!), default, default);
        var parent = metadata.AddTypeReference(system, metadata.GetOrAddString("System"),
            metadata.GetOrAddString("Object"));
        var noField = MetadataTokens.FieldDefinitionHandle(1);
        metadata.AddTypeDefinition(default, default, metadata.GetOrAddString("<Module>"), default, noField,
            firstMethod);
        metadata.AddTypeDefinition(
            TypeAttributes.Public | TypeAttributes.Abstract | TypeAttributes.Sealed,
            metadata.GetOrAddString(name), metadata.GetOrAddString("Library"), parent, noField, firstMethod);
    }
}
