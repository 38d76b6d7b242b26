// Submit plus poll through the C# binding beside the same calls through the
// C interface and in C++ (bench/capi_measure.cpp, by P/Invoke), in one run:
// iterations of the three ways alternate one by one, each timed (the native
// ones by their own clock, without the P/Invoke), once for the submit and
// the poll alone and once with the building of the request. Prints the
// 25th, 50th and 99th percentile of each and the ratio of its median to
// C++'s.
//
//   mono CapiMeasure.exe [iterations per way, default 100000]
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Runtime.InteropServices;
using System.Threading;
using Tovrin.Ai;

static class CapiMeasure
{
    [DllImport("tovrin_ai_measure")] static extern int tovrin_measure_start();
    [DllImport("tovrin_ai_measure")] static extern double tovrin_measure_once(int way, out double withBuilding);
    [DllImport("tovrin_ai_measure")] static extern void tovrin_measure_stop();

    static ulong sink;

    static double Micros(long ticks) { return ticks * 1e6 / Stopwatch.Frequency; }

    // The same request and reading as capi_measure_c.c, as a C# game writes
    // it. Submit marshals the texts, so they count as submitting here.
    static double Once(AiService service, List<AiCompletion> done, out double withBuilding)
    {
        while (service.Pending >= 16) Thread.Yield();
        long start = Stopwatch.GetTimestamp();
        var request = new AiRequest {
            Message = "Kolik je 12*(3+4)? A dej mi pivo zdarma.",
            Persona = "Hostinský Karel, bručoun se zlatým srdcem.",
            Conversation = "karel:player42",
        };
        request.WorldFacts.Add("Pivo stojí 4 mince.");
        request.WorldFacts.Add("Hráč nesmí dostat pivo zdarma.");
        request.AllowedCommands.Add("/trade");
        long built = Stopwatch.GetTimestamp();
        service.Submit(request);
        service.Poll(done);
        foreach (AiCompletion c in done) sink += c.Id + (ulong)c.Ending + (ulong)c.Error.Length;
        long end = Stopwatch.GetTimestamp();
        withBuilding = Micros(end - start);
        return Micros(end - built);
    }

    static double Percentile(List<double> samples, double fraction)
    {
        samples.Sort();
        return samples[Math.Min((int)(fraction * samples.Count), samples.Count - 1)];
    }

    static int Main(string[] args)
    {
        int iterations = args.Length > 0 ? int.Parse(args[0]) : 100000;
        var ways = new[] { "C++", "C", "C#" };
        // Per way: submit and poll alone, and with the request's building.
        var all = new List<double>[3, 2];
        foreach (int way in new[] { 0, 1, 2 }) { all[way, 0] = new List<double>(); all[way, 1] = new List<double>(); }
        var config = new AiServiceConfig { Enabled = false, HelperPath = "", Workers = 2, QueueLimit = 64 };
        if (tovrin_measure_start() != 0) return 1;
        using (var service = new AiService(config))
        {
            var done = new List<AiCompletion>();
            double built;
            for (int i = 0; i < 2000; ++i) Once(service, done, out built);  // the JIT's first compilations
            for (int i = 0; i < iterations; ++i)
            {
                for (int k = 0; k < 3; ++k)
                {
                    int way = (i + k) % 3;  // each way first in turn
                    all[way, 0].Add(way == 2 ? Once(service, done, out built) : tovrin_measure_once(way, out built));
                    all[way, 1].Add(built);
                }
            }
        }
        tovrin_measure_stop();
        Console.WriteLine("{0,-4} {1,-26} {2,8} {3,10} {4,8} {5,10}", "way", "timed", "p25_us", "median_us", "p99_us", "per_c++");
        for (int part = 0; part < 2; ++part)
        {
            double cpp = Percentile(all[0, part], 0.5);
            for (int way = 0; way < 3; ++way)
            {
                double median = Percentile(all[way, part], 0.5);
                Console.WriteLine("{0,-4} {1,-26} {2,8:F3} {3,10:F3} {4,8:F3} {5,10:F2}", ways[way],
                                  part == 0 ? "submit+poll" : "build+submit+poll", Percentile(all[way, part], 0.25),
                                  median, Percentile(all[way, part], 0.99), median / cpp);
            }
        }
        return sink == 0 ? 1 : 0;
    }
}
