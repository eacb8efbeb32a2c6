namespace Selected;

public static class Asset
{
#if LINUX
    public const string For = "linux";
#else
    public const string For = "any";
#endif
    // Not a constant: its users would contain its value.
    public static string Name => "the library for " + For;
}
