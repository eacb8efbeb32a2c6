// Uses one NuGet package, which the argument names.
using System.DirectoryServices.Protocols;
using Corpus;
using Microsoft.Data.Sqlite;
using Microsoft.EntityFrameworkCore;

switch (args[0])
{
    case "sqlite":
        Ado.Use();
        break;
    case "efcore":
        Library.Use();
        break;
    case "directory":
        Console.WriteLine(new LdapDirectoryIdentifier("localhost").Servers[0]);
        break;
    default:
        throw new ArgumentException($"no package {args[0]}");
}

namespace Corpus
{
    internal static class Ado
    {
        public static void Use()
        {
            using SqliteConnection connection = new("Data Source=:memory:");
            connection.Open();
            using SqliteCommand command = connection.CreateCommand();
            command.CommandText =
                """
                create table books(title text, year integer);
                insert into books values ('Emma', 1815), ('Ulysses', 1922);
                select title, year from books order by year desc;
                """;
            using SqliteDataReader rows = command.ExecuteReader();
            while (rows.Read())
            {
                Console.WriteLine($"{rows.GetString(0)} {rows.GetInt32(1)}");
            }
        }
    }

    internal sealed class Book
    {
        public int Id { get; set; }
        public string Title { get; set; } = "";
        public int Year { get; set; }
    }

    internal sealed class Library(string file) : DbContext
    {
        public DbSet<Book> Books => Set<Book>();

        protected override void OnConfiguring(DbContextOptionsBuilder options) =>
            options.UseSqlite($"Data Source={file}");

        public static void Use()
        {
            string folder = Directory.CreateTempSubdirectory("corpus").FullName;
            using (Library library = new(Path.Combine(folder, "books.db")))
            {
                library.Database.EnsureCreated();
                library.Books.Add(new Book { Title = "Emma", Year = 1815 });
                library.Books.Add(new Book { Title = "Ulysses", Year = 1922 });
                library.SaveChanges();
                foreach (Book book in library.Books.Where(book => book.Year > 1900))
                {
                    Console.WriteLine($"{book.Id} {book.Title} {book.Year}");
                }
                Console.WriteLine(library.Books.Count());
            }
            SqliteConnection.ClearAllPools();
            Directory.Delete(folder, recursive: true);
        }
    }
}
