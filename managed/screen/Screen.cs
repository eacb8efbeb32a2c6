namespace Velora.TV;

/// <summary>The screen of the device.</summary>
public static class Screen
{
    /// <summary>The width and height in pixels.</summary>
    public static (int Width, int Height) Size => (3840, 2160);
}
