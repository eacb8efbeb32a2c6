#include "tests/system/compatibility/rows.h"

#include <signal.h>

#include <map>

namespace quillon::test {
namespace {

// What is known about the rows that differ from dotnet or are refused, by name.
const std::map<std::string, std::string>& differences() {
  static const std::map<std::string, std::string> remarks = {
      {"Apphost", "name the assembly"},
      {"SingleFile", "publish without PublishSingleFile, and name the assembly"},
      {"UnknownFramework", "dotnet refuses it too"},
      {"OlderFramework", "a device has one framework, which runs older applications"},
      {"NewerFramework", "dotnet refuses it too"},
      {"Terminate", "the plug-in ends the process with 0: [crashes](crashes.md)"},
  };
  return remarks;
}

constexpr char kConsole[] = "Corpus.Console.dll";

constexpr char kInvariant[] = R"({"runtimeOptions": {
  "framework": {"name": "Microsoft.NETCore.App", "version": "10.0.0"},
  "configProperties": {"System.Globalization.Invariant": true}}})";

constexpr char kServerCollection[] = R"({"runtimeOptions": {
  "framework": {"name": "Microsoft.NETCore.App", "version": "10.0.0"},
  "configProperties": {"System.GC.Server": true, "System.GC.HeapCount": 2}}})";

constexpr char kOlder[] = R"({"runtimeOptions": {
  "tfm": "net8.0", "framework": {"name": "Microsoft.NETCore.App", "version": "8.0.0"}}})";

constexpr char kOlderRollsForward[] = R"({"runtimeOptions": {"tfm": "net8.0",
  "rollForward": "Major", "framework": {"name": "Microsoft.NETCore.App", "version": "8.0.0"}}})";

constexpr char kNewer[] = R"({"runtimeOptions": {
  "tfm": "net99.0", "framework": {"name": "Microsoft.NETCore.App", "version": "99.0.0"}}})";

constexpr char kUnknownFramework[] = R"({"runtimeOptions": {"frameworks": [
  {"name": "Microsoft.NETCore.App", "version": "10.0.0"},
  {"name": "Corpus.Unknown.App", "version": "1.0.0"}]}})";

Row console(const std::string& name, const std::string& application,
            const std::vector<std::string>& arguments, int status, const std::string& prints) {
  return {name, application, "console", kConsole, arguments, status, prints};
}

std::vector<Row> endings() {
  return {
      console("Arguments", "console: arguments", {"greet", "a b", "", "ü", "--raw", "-"}, 0,
              "[a b]\n[]\n[ü]\n[--raw]"),
      console("Self", "console: what it learns about itself", {"self", "one", "two"}, 0,
              "command line: Corpus.Console.dll|self|one|two"),
      console("ResultOfMain", "console: result of Main", {"return", "42"}, 42, ""),
      console("LargeResultOfMain", "console: result of Main above 255", {"return", "259"}, 3, ""),
      console("EnvironmentExit", "console: Environment.Exit", {"exit", "17"}, 17,
              "before Environment.Exit\n"),
      console("EnvironmentExitCode", "console: Environment.ExitCode and a result of Main",
              {"exit-code", "5", "6"}, 6, ""),
      console("ProcessExitEvent", "console: ProcessExit event", {"exit-event", "9"}, 9,
              "ProcessExit, exit code 9"),
      console("UnhandledException", "console: unhandled exception", {"throw"}, 134,
              "before the exception"),
      console("UnhandledExceptionInThread", "console: unhandled exception in a thread",
              {"throw-late"}, 134, "UnhandledException: thrown in a thread"),
      console("FailFast", "console: Environment.FailFast", {"fail-fast"}, 134,
              "before Environment.FailFast"),
      console("LateThread", "console: foreground thread that outlives Main", {"late", "4"}, 4,
              "a foreground thread, after Main"),
      console("LateExit", "console: foreground thread that calls Environment.Exit after Main",
              {"late-exit", "7"}, 7, "a foreground thread exits"),
  };
}

std::vector<Row> streams() {
  Row conversation = console("Conversation", "console: answers each line of its input",
                             {"converse"}, 2, "2 names");
  conversation.steps = {{"name? ", "Ada\n"}, {"hello Ada\nname? ", "Grace\n"}, {"hello Grace\n"}};
  Row bytes = console("BinaryCopy", "console: copies binary data", {"copy"}, 0, "before");
  bytes.steps = {{"", std::string("before\0after\r\n\xff\xfe", 15)}};
  Row terminal = console("Terminal", "console: terminal with colours and ReadKey", {"terminal"}, 0,
                         "input redirected: False");
  terminal.onTerminal = true;
  terminal.steps = {{"press a key: ", "x"}, {"press an arrow: ", "\033[A"}};
  return {conversation, bytes, terminal,
          console("Progress", "console: \\r progress and a NUL byte", {"progress"}, 0, "\r100 %")};
}

std::vector<Row> signals() {
  Row handled = console("SignalRegistrations", "console: PosixSignalRegistration", {"signals"}, 5,
                        "handled SIGHUP\nhandled SIGINT\nhandled SIGQUIT\nhandled SIGTERM");
  handled.steps = {{"ready", "", SIGHUP},
                   {"handled SIGHUP", "", SIGINT},
                   {"handled SIGINT", "", SIGQUIT},
                   {"handled SIGQUIT", "", SIGTERM}};
  Row pressed = console("CancelKeyPress", "console: Console.CancelKeyPress", {"cancel"}, 6,
                        "cancelled ControlC");
  pressed.steps = {{"ready", "", SIGINT}};
  Row interrupted =
      console("Interrupt", "console: SIGINT without a handler", {"wait"}, 130, "ready");
  interrupted.steps = {{"ready", "", SIGINT}};
  Row terminated =
      console("Terminate", "console: SIGTERM without a handler", {"wait"}, 143, "ready");
  terminated.steps = {{"ready", "", SIGTERM}};
  Row worker{"WorkerSigterm", "worker: SIGTERM", "worker", "Corpus.Worker.dll", {"--wait"}, 0,
             "stopped"};
  worker.steps = {{"ready", "", SIGTERM}};
  return {handled, pressed, interrupted, terminated, worker};
}

std::vector<Row> frameworks() {
  Row invariant = console("InvariantGlobalization", "console: InvariantGlobalization", {"cultures"},
                          0, "invariant: True");
  invariant.runtimeConfig = kInvariant;
  Row server = console("ServerCollection", "console: server garbage collection", {"self"}, 0,
                       "server garbage collection: True");
  server.runtimeConfig = kServerCollection;
  Row older =
      console("OlderFramework", "console for .NET 8 without roll-forward", {"greet"}, 150, "");
  older.runtimeConfig = kOlder;
  Row rolls = console("OlderFrameworkRollsForward", "console for .NET 8, rollForward Major",
                      {"greet"}, 0, "Hello");
  rolls.runtimeConfig = kOlderRollsForward;
  Row newer = console("NewerFramework", "console for a newer .NET", {"greet"}, 150, "");
  newer.runtimeConfig = kNewer;
  Row unknown = console("UnknownFramework", "console for a framework that the machine lacks",
                        {"greet"}, 150, "");
  unknown.runtimeConfig = kUnknownFramework;
  return {console("Culture", "console: ICU globalization", {"cultures"}, 0, "Montag, 6. Mai 2024"),
          invariant,
          server,
          older,
          rolls,
          newer,
          unknown};
}

std::vector<Row> publications() {
  Row selfContained{
      "WebSelfContained", "web, self-contained", "web-self-contained", "Corpus.Web.dll", {}, 0,
      "a static file"};
  selfContained.oneType = true;
  return {
      selfContained,
      {"ReadyToRun",
       "console, ReadyToRun",
       "console-ready-to-run",
       kConsole,
       {"framework"},
       0,
       "144"},
      {"Apphost",
       "console, its apphost as `exec`",
       "console-ready-to-run",
       "Corpus.Console",
       {"greet", "a"},
       0,
       "Hello"},
      {"SingleFile",
       "console, single file as `exec`",
       "console-single-file",
       "Corpus.Console",
       {"greet", "a"},
       0,
       "Hello"},
      {"Worker",
       "worker (Microsoft.Extensions.Hosting)",
       "worker",
       "Corpus.Worker.dll",
       {},
       0,
       "turn 2"},
      {"Web",
       "web (Microsoft.AspNetCore.App), asks itself with HttpClient",
       "web",
       "Corpus.Web.dll",
       {},
       0,
       "a static file"},
      {"Sqlite",
       "Microsoft.Data.Sqlite, portable with `runtimes/`",
       "packages",
       "Corpus.Packages.dll",
       {"sqlite"},
       0,
       "Ulysses 1922"},
      {"EntityFramework",
       "Microsoft.EntityFrameworkCore.Sqlite",
       "packages",
       "Corpus.Packages.dll",
       {"efcore"},
       0,
       "2 Ulysses 1922"},
      {"PlatformAssembly",
       "System.DirectoryServices.Protocols, an assembly for each platform",
       "packages",
       "Corpus.Packages.dll",
       {"directory"},
       0,
       "localhost"},
      {"Plugins",
       "plug-in in an AssemblyLoadContext with AssemblyDependencyResolver",
       "plugins",
       "Corpus.Plugins.dll",
       {},
       0,
       "plug-in: 13.0.0.0"},
  };
}

std::vector<Row> tools() {
  Row formatter{"Csharpier",     "csharpier, a tool",          "csharpier",
                "CSharpier.dll", {"format", "--write-stdout"}, 0,
                "class A"};
  formatter.steps = {{"", "class  A { int  x ; }\n"}};
  Row traced = console("Trace", "console with dotnet-trace attached", {"wait"}, 0,
                       "dotnet-trace ended with 0; it has written a trace");
  traced.steps = {{"ready", "", 0, true}};
  traced.oneType = true;
  return {formatter, traced};
}

std::vector<Row> machine() {
  return {
      console("SatelliteResources", "console: satellite resources", {"texts", "de", "fr", "it"}, 0,
              "Guten Morgen\nBonjour\nGood morning\n"),
      console("Framework", "console: generated code, JSON, XML, cryptography", {"framework"}, 0,
              "Point { X = 3, Y = 4 }"),
      console("Home", "console: files below $HOME", {"home"}, 0, "the settings are kept"),
      console("Child", "console: starts a program", {"child"}, 0, "the child ended with 3"),
      console("Http", "console: HttpClient and a server of its own", {"http"}, 0,
              "you asked: GET /greeting"),
  };
}

std::vector<Row> allRows() {
  std::vector<Row> rows;
  for (const auto& part :
       {publications(), tools(), frameworks(), machine(), streams(), signals(), endings()}) {
    rows.insert(rows.end(), part.begin(), part.end());
  }
  for (Row& row : rows) {
    if (const auto known = differences().find(row.name); known != differences().end()) {
      row.difference = known->second;
    }
  }
  return rows;
}

}  // namespace

const std::vector<Row>& compatibilityRows() {
  static const std::vector<Row> rows = allRows();
  return rows;
}

}  // namespace quillon::test
