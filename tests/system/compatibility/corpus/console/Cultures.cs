using System.Globalization;
using System.Resources;
using System.Text;

namespace Corpus;

// Languages and cultures.
internal static class Cultures
{
    // Satellite assemblies.
    public static int PrintTexts(string[] words)
    {
        ResourceManager texts = new("Corpus.Texts", typeof(Cultures).Assembly);
        foreach (string culture in words)
        {
            Console.WriteLine(texts.GetString("Greeting", CultureInfo.GetCultureInfo(culture)));
        }
        return 0;
    }

    // What the ICU library decides, or the runtime if globalization is invariant.
    public static int Print(string[] words)
    {
        Console.OutputEncoding = Encoding.UTF8;
        Console.WriteLine($"current culture: [{CultureInfo.CurrentCulture.Name}]");
        AppContext.TryGetSwitch("System.Globalization.Invariant", out bool isInvariant);
        Console.WriteLine($"invariant: {isInvariant}");
        try
        {
            CultureInfo german = CultureInfo.GetCultureInfo("de-DE");
            Console.WriteLine(1234567.891.ToString("N2", german));
            Console.WriteLine(new DateTime(2024, 5, 6).ToString("D", german));
            Console.WriteLine("i".ToUpper(CultureInfo.GetCultureInfo("tr-TR")));
            string[] sorted = ["zebra", "Äpfel", "apfel", "Zebra"];
            Array.Sort(sorted, StringComparer.Create(german, ignoreCase: false));
            Console.WriteLine(string.Join(' ', sorted));
        }
        catch (CultureNotFoundException notFound)
        {
            Console.WriteLine($"no culture {notFound.InvalidCultureName}");
        }
        Console.WriteLine(new IdnMapping().GetAscii("bücher.example"));
        Console.WriteLine("e\u0301".Normalize(NormalizationForm.FormC).Length);
        return 0;
    }
}
