namespace Greeter;

public static class Entry
{
    public static string Greet() => "greetings, " + Selected.Asset.Name;
}
