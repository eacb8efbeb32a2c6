System.Console.WriteLine("started");
