// A tavern keeper answers a player, polled once a frame as a game loop
// would, through a chat-completion server at the endpoint given:
//
//   mono Example.exe http://127.0.0.1:17944/v1/chat/completions
//
// Prints the answer and how many frames it took; exits 0 once an answer
// came, 1 when none came within 10 s of frames.
using System;
using System.Collections.Generic;
using System.Text;
using System.Threading;
using Tovrin.Ai;

static class Example
{
    const int FrameMs = 16;
    const int MaxFrames = 600;

    static int Main(string[] args)
    {
        Console.OutputEncoding = new UTF8Encoding(false);
        var config = new AiServiceConfig();  // the library's defaults
        if (args.Length > 0) config.Endpoint = args[0];
        config.HelperPath = "";  // no helper text beside this program
        config.DeadlineMs = 5000;

        using (var service = new AiService(config))
        {
            var request = new AiRequest {
                Kind = AiRequestKind.NpcDialogue,
                Persona = "Hostinský Karel, bručoun se zlatým srdcem.",
                Message = "Kolik stojí pivo?",
                Conversation = "karel:player1",  // this player's lines in order
            };
            request.WorldFacts.Add("Pivo stojí 4 mince.");
            request.AllowedCommands.Add("/trade");
            ulong karel = service.Submit(request);

            var done = new List<AiCompletion>();
            for (int frame = 1; frame <= MaxFrames; ++frame)
            {
                // A frame: poll, show what finished, draw the rest.
                service.Poll(done);
                foreach (AiCompletion c in done)
                {
                    if (c.Id != karel) continue;
                    Console.WriteLine("Karel: " + c.Answer);
                    Console.WriteLine("ending " + c.Ending + ", ok " + c.Ok + ", model " + c.Model +
                                      ", " + c.Calls.Count + " model call(s), frame " + frame);
                    if (!c.Ok) Console.WriteLine("error: " + c.Error);
                    return c.Ok ? 0 : 1;
                }
                Thread.Sleep(FrameMs);
            }
            Console.Error.WriteLine("no answer within " + MaxFrames + " frames");
            return 1;
        }
    }
}
