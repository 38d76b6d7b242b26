// The C# binding against the native library and a chat server that sends
// back the request it got (chat_stand_in --echo):
//
//   mono TovrinAiTest.exe ENDPOINT
//
// What the binding adds to the C interface: UTF-8 both ways, the native
// structs read field for field, failures as exceptions, handles that
// refuse use after Dispose.
using System;
using System.Collections.Generic;
using System.Threading;
using Tovrin.Ai;

static class TovrinAiTest
{
    static int failures;

    static void Expect(bool condition, string what)
    {
        if (condition) return;
        Console.Error.WriteLine("failed: " + what);
        ++failures;
    }

    // The next completion, waited for up to 10 s.
    static AiCompletion Next(AiService service)
    {
        var done = new List<AiCompletion>();
        for (int i = 0; i < 1000 && service.Poll(done) == 0; ++i) Thread.Sleep(10);
        Expect(done.Count == 1, "one completion, got " + done.Count);
        return done.Count > 0 ? done[0] : new AiCompletion();
    }

    static void Throws<T>(Action action, string what, Func<T, bool> check) where T : Exception
    {
        try { action(); } catch (T e) { Expect(check(e), what + ": " + e.Message); return; }
        Expect(false, what + ": nothing thrown");
    }

    static int Main(string[] args)
    {
        var config = new AiServiceConfig();
        Expect(config.Endpoint == "http://127.0.0.1:17944/v1/chat/completions", "default endpoint " + config.Endpoint);
        Expect(config.Workers == 2 && config.QueueLimit == 64 && config.DeadlineMs == 30000, "default options");
        Expect(AiService.NativeVersion >> 16 == 1, "native version");
        config.Workers = 0;
        Throws<AiException>(() => new AiService(config), "zero workers",
            e => e.Status == AiStatus.InvalidArgument && e.Message == "AiService needs at least one worker");

        config = new AiServiceConfig { Endpoint = args[0], HelperPath = "", Model = "pivní-model", Workers = 1 };
        var service = new AiService(config);
        var request = new AiRequest {
            Message = "Ahoj, hostinský! \ud83c\udf7a", Persona = "Hostinský Karel.", Conversation = "karel:1",
            Kind = AiRequestKind.CommandHelp, MaxTokens = 60, DeadlineMs = 5000,
        };
        request.WorldFacts.Add("Pivo stojí 4 mince.");
        request.AllowedCommands.Add("/trade");
        request.ToolResults.Add("4");
        ulong id = service.Submit(request);
        AiCompletion done = Next(service);
        Expect(done.Id == id && done.Ending == AiEnding.Answered && !done.Ok, "rejected echo");
        Expect(done.Error == "AI answer rejected by watchdog" && done.Model == "pivní-model", "error " + done.Error);
        Expect(done.WatchdogReasons.Contains("answer_too_long"), "reasons " + string.Join(",", done.WatchdogReasons));
        Expect(done.Attempts == 2 && done.Calls.Count == 2 && done.Total >= done.QueueWait, "attempts and calls");
        AiModelCall first = done.Calls.Count > 0 ? done.Calls[0] : new AiModelCall();
        Expect(first.Pass == 1 && first.Attempt == 1 && first.Answered && !first.VerdictPassed, "first call");
        Expect(first.Endpoint == args[0] && first.Model == "pivní-model" && first.Error == "", "call texts");
        Expect(first.VerdictReasons.Contains("answer_too_long"), "call reasons");
        foreach (string part in new[] { "Hostinský Karel.", "- Pivo stojí 4 mince.", "- /trade", "- 4",
                                        "Ahoj, hostinský! \ud83c\udf7a", "\"max_tokens\":60" })
            Expect(first.Answer.Contains(part), "the request holds " + part);

        // Unpaired UTF-16 surrogates go out as U+FFFD, never as bad UTF-8.
        request = new AiRequest { Message = "\ud83c" };
        ulong cut = service.Submit(request);
        Expect(service.Cancel(cut) && !service.Cancel(999), "cancel");
        done = Next(service);
        Expect(done.Id == cut && done.Ending == AiEnding.Cancelled && done.Error == "AI request cancelled",
               "cancelled " + done.Ending);
        Expect(service.Pending == 0, "nothing pending");

        service.Shutdown();
        service.Submit(new AiRequest { Message = "Ahoj" });
        done = Next(service);
        Expect(done.Ending == AiEnding.Shutdown, "shut down " + done.Ending);
        service.Dispose();
        Throws<ObjectDisposedException>(() => service.Submit(request), "submit after Dispose", e => true);
        service.Dispose();

        Console.WriteLine("C# binding: " + failures + " failed checks");
        return failures == 0 ? 0 : 1;
    }
}
