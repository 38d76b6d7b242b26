// Submit plus poll through the C# binding beside the same calls through the
// C interface and in C++ (bench/capi_measure.cpp, by P/Invoke), in one run:
// iterations of the three ways alternate one by one, each timed (the native
// ones by their own clock, without the P/Invoke). Prints the median and the
// 99th percentile of each way and the ratio of the medians.
//
//   mono CapiMeasure.exe [iterations per way, default 200000]
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Runtime.InteropServices;
using System.Threading;
using Tovrin.Ai;

static class CapiMeasure
{
    [DllImport("tovrin_ai_measure")] static extern int tovrin_measure_start();
    [DllImport("tovrin_ai_measure")] static extern double tovrin_measure_once(int way);
    [DllImport("tovrin_ai_measure")] static extern void tovrin_measure_stop();

    static ulong sink;

    // The same request and reading as capi_measure_c.c, as a C# game writes it.
    static double Once(AiService service, List<AiCompletion> done)
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
        service.Submit(request);
        service.Poll(done);
        foreach (AiCompletion c in done) sink += c.Id + (ulong)c.Ending + (ulong)c.Error.Length;
        return (Stopwatch.GetTimestamp() - start) * 1e6 / Stopwatch.Frequency;
    }

    static double Percentile(List<double> samples, double fraction)
    {
        samples.Sort();
        return samples[Math.Min((int)(fraction * samples.Count), samples.Count - 1)];
    }

    static int Main(string[] args)
    {
        int iterations = args.Length > 0 ? int.Parse(args[0]) : 200000;
        var ways = new[] { "C++", "C", "C#" };
        var all = new[] { new List<double>(), new List<double>(), new List<double>() };
        var config = new AiServiceConfig { Enabled = false, HelperPath = "", Workers = 2, QueueLimit = 64 };
        if (tovrin_measure_start() != 0) return 1;
        using (var service = new AiService(config))
        {
            var done = new List<AiCompletion>();
            for (int i = 0; i < 2000; ++i) Once(service, done);  // the JIT's first compilations
            for (int i = 0; i < iterations; ++i)
            {
                for (int k = 0; k < 3; ++k)
                {
                    int way = (i + k) % 3;  // each way first in turn
                    all[way].Add(way == 2 ? Once(service, done) : tovrin_measure_once(way));
                }
            }
        }
        tovrin_measure_stop();
        double cpp = Percentile(all[0], 0.5);
        Console.WriteLine("{0,-4} {1,10} {2,8} {3,10}", "way", "median_us", "p99_us", "per_c++");
        for (int way = 0; way < 3; ++way)
        {
            double median = Percentile(all[way], 0.5);
            Console.WriteLine("{0,-4} {1,10:F3} {2,8:F3} {3,10:F2}", ways[way], median,
                              Percentile(all[way], 0.99), median / cpp);
        }
        return sink == 0 ? 1 : 0;
    }
}
