// A tavern keeper answers a player, polled once a frame as a game loop
// would, through a chat-completion server:
//
//   mono Example.exe ENDPOINT                        a server already running
//   mono Example.exe --server PROGRAM [ARGUMENT...]  one this program starts
//
// The second needs the model-server layer (TovrinAiServer.cs, compiled in
// with -define:TOVRIN_AI_MODEL_SERVER); "{port}" among the arguments becomes
// the port chosen. Prints the answer and how many frames it took; exits 0
// once an answer came, 1 when none came within 10 s of frames.
using System;
using System.Collections.Generic;
using System.Text;
using System.Threading;
using Tovrin.Ai;

static class Example
{
    const int FrameMs = 16;
    const int MaxFrames = 600;

    static AiService Connect(string[] args, out IDisposable server)
    {
        var config = new AiServiceConfig();  // the library's defaults
        config.HelperPath = "";  // no helper text beside this program
        server = null;
#if TOVRIN_AI_MODEL_SERVER
        if (args.Length > 1 && args[0] == "--server")
        {
            var options = new AiModelServerOptions { Program = args[1] };
            for (int i = 2; i < args.Length; ++i) options.Arguments.Add(args[i]);
            var started = new AiModelServer(options);  // returns at once
            server = started;
            return new AiService(config, started);  // waits for its model
        }
#endif
        if (args.Length > 0) config.Endpoint = args[0];
        return new AiService(config);
    }

    static int Main(string[] args)
    {
        Console.OutputEncoding = new UTF8Encoding(false);
        IDisposable server;
        using (AiService service = Connect(args, out server))
        using (server)
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
