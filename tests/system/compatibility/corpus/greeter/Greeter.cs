using Newtonsoft.Json;

namespace Corpus;

public static class Greeter
{
    public static string Greet(string name) => JsonConvert.SerializeObject(new { greeting = name });

    public static string SerializerVersion() =>
        typeof(JsonConvert).Assembly.GetName().Version!.ToString();
}
