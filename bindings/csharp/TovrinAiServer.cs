// Tovrin.Ai, the model-server layer (<tovrin/ai_c_server.h>): the game
// starts, watches and stops its own model server. Add this file beside
// TovrinAi.cs when the native library is built with that layer.
//
//   var options = new AiModelServerOptions { Program = "ai/llama-server" };
//   options.Arguments.AddRange(new[] { "-m", "ai/model.gguf", "--port", "{port}" });
//   using (var server = new AiModelServer(options))
//   using (var service = new AiService(new AiServiceConfig(), server)) {
//     ...any frame: if (server.Status().State == AiServerState.Failed) ...
//   }
using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;

namespace Tovrin.Ai
{
    public enum AiServerState : uint
    {
        Starting = 0, Loading = 1, Ready = 2, Restarting = 3, Stopped = 4, Failed = 5,
    }

    // How the server is started and watched. A new one holds the layer's defaults.
    public sealed class AiModelServerOptions
    {
        public string Program, WorkingFolder, HealthPath, LogFile;
        public readonly List<string> Arguments = new List<string>();  // "{port}" becomes the port
        public int Port;  // 0: any free loopback port
        public bool UseRunningServer;
        public long StartDeadlineMs, StopGraceMs, RestartPauseMs, MaxRestartPauseMs, FailureWindowMs,
            ProbeIntervalMs, ReadyProbeIntervalMs, ProbeTimeoutMs;
        public int FailureLimit, UnansweredProbeLimit, LogTailBytes;

        public AiModelServerOptions()
        {
            var o = new ServerNative.Options { StructSize = ServerNative.OptionsSize };
            Native.Check(ServerNative.tovrin_ai_model_server_options_defaults(ref o));
            HealthPath = new TextCodec().Read(o.HealthPath, o.HealthPathSize);
            Port = (int)o.Port;
            UseRunningServer = o.UseRunningServer != 0;
            StartDeadlineMs = o.StartDeadlineMs; StopGraceMs = o.StopGraceMs;
            RestartPauseMs = o.RestartPauseMs; MaxRestartPauseMs = o.MaxRestartPauseMs;
            FailureWindowMs = o.FailureWindowMs; ProbeIntervalMs = o.ProbeIntervalMs;
            ReadyProbeIntervalMs = o.ReadyProbeIntervalMs; ProbeTimeoutMs = o.ProbeTimeoutMs;
            FailureLimit = (int)o.FailureLimit; UnansweredProbeLimit = (int)o.UnansweredProbeLimit;
            LogTailBytes = (int)o.LogTailBytes;
        }
    }

    // A snapshot of the layer.
    public sealed class AiModelServerStatus
    {
        public AiServerState State;
        public int Port, ProcessId;
        public bool External;
        public int? ExitCode, ExitSignal;
        public TimeSpan StateAge, NextStartIn;
        public int Starts, RecentFailures;
        public string Reason, Endpoint;
        public readonly List<string> LastLogLines = new List<string>();
    }

    public sealed class AiModelServer : IDisposable
    {
        internal readonly ServerHandle Handle;
        readonly TextCodec text = new TextCodec();

        // Starts the layer, which starts the server; returns at once.
        public AiModelServer(AiModelServerOptions options)
        {
            var o = new ServerNative.Options { StructSize = ServerNative.OptionsSize };
            var owned = new List<IntPtr>();
            try
            {
                o.Port = (uint)options.Port;
                o.UseRunningServer = options.UseRunningServer ? 1 : 0;
                o.Program = text.Copy(options.Program, owned, out o.ProgramSize);
                o.Arguments = text.Copy(string.Concat(options.Arguments.ConvertAll(a => a + "\0").ToArray()),
                                        owned, out o.ArgumentsSize);
                o.WorkingFolder = text.Copy(options.WorkingFolder, owned, out o.WorkingFolderSize);
                o.HealthPath = text.Copy(options.HealthPath, owned, out o.HealthPathSize);
                o.LogFile = text.Copy(options.LogFile, owned, out o.LogFileSize);
                o.StartDeadlineMs = options.StartDeadlineMs; o.StopGraceMs = options.StopGraceMs;
                o.RestartPauseMs = options.RestartPauseMs; o.MaxRestartPauseMs = options.MaxRestartPauseMs;
                o.FailureWindowMs = options.FailureWindowMs; o.ProbeIntervalMs = options.ProbeIntervalMs;
                o.ReadyProbeIntervalMs = options.ReadyProbeIntervalMs; o.ProbeTimeoutMs = options.ProbeTimeoutMs;
                o.FailureLimit = (UIntPtr)(uint)Math.Max(options.FailureLimit, 0);
                o.UnansweredProbeLimit = (UIntPtr)(uint)Math.Max(options.UnansweredProbeLimit, 0);
                o.LogTailBytes = (UIntPtr)(uint)Math.Max(options.LogTailBytes, 0);
                IntPtr handle;
                Native.Check(ServerNative.tovrin_ai_model_server_start(ref o, out handle));
                Handle = new ServerHandle(handle);
            }
            finally
            {
                foreach (IntPtr p in owned) Marshal.FreeHGlobal(p);
            }
        }

        // The state now, never waiting for the server.
        public AiModelServerStatus Status()
        {
            var s = new ServerNative.Status { StructSize = ServerNative.StatusSize };
            Native.Check(ServerNative.tovrin_ai_model_server_read_status(Handle, ref s));
            var status = new AiModelServerStatus {
                State = (AiServerState)s.State, Port = (int)s.Port, External = s.External != 0,
                ExitCode = s.HasExitCode != 0 ? s.ExitCode : (int?)null,
                ExitSignal = s.HasExitSignal != 0 ? s.ExitSignal : (int?)null,
                ProcessId = (int)s.ProcessId, StateAge = TimeSpan.FromMilliseconds(s.StateAgeMs),
                NextStartIn = TimeSpan.FromMilliseconds(s.NextStartInMs),
                Starts = (int)s.Starts, RecentFailures = (int)s.RecentFailures,
                Reason = text.Read(s.Reason, s.ReasonSize), Endpoint = text.Read(s.Endpoint, s.EndpointSize),
            };
            for (ulong i = 0; i < (ulong)s.LogLineCount; ++i)
            {
                IntPtr data;
                UIntPtr size;
                Native.Check(ServerNative.tovrin_ai_model_server_log_line(Handle, (UIntPtr)i, out data, out size));
                status.LastLogLines.Add(text.Read(data, size));
            }
            return status;
        }

        // "http://127.0.0.1:<port>/v1/chat/completions".
        public string Endpoint
        {
            get
            {
                IntPtr data;
                UIntPtr size;
                Native.Check(ServerNative.tovrin_ai_model_server_endpoint(Handle, out data, out size));
                return text.Read(data, size);
            }
        }

        public void Stop() { Native.Check(ServerNative.tovrin_ai_model_server_stop(Handle)); }
        public void Restart() { Native.Check(ServerNative.tovrin_ai_model_server_restart(Handle)); }

        // Stops the server and frees the layer within the stop grace + 100 ms.
        public void Dispose() { Handle.Dispose(); }
    }

    public sealed partial class AiService
    {
        // A service whose requests go to server (config.Endpoint is not used)
        // and wait while it starts, loads or restarts.
        public AiService(AiServiceConfig config, AiModelServer server)
            : this(WithoutEndpoint(config), (ref Native.Config c, out IntPtr handle) =>
                ServerNative.tovrin_ai_service_create_for_server(ref c, server.Handle, out handle)) {}

        static AiServiceConfig WithoutEndpoint(AiServiceConfig config)
        {
            var copy = config.Copy();
            copy.Endpoint = "";
            return copy;
        }
    }

    sealed class ServerHandle : SafeHandle
    {
        public ServerHandle(IntPtr handle) : base(IntPtr.Zero, true) { SetHandle(handle); }
        public override bool IsInvalid { get { return handle == IntPtr.Zero; } }
        protected override bool ReleaseHandle() { return ServerNative.tovrin_ai_model_server_destroy(handle) == 0; }
    }

    // The C functions and structs of <tovrin/ai_c_server.h>, field for field.
    static class ServerNative
    {
        [StructLayout(LayoutKind.Sequential)]
        public struct Options
        {
            public uint StructSize, Port;
            public int UseRunningServer, Reserved;
            public IntPtr Program; public UIntPtr ProgramSize;
            public IntPtr Arguments; public UIntPtr ArgumentsSize;
            public IntPtr WorkingFolder; public UIntPtr WorkingFolderSize;
            public IntPtr HealthPath; public UIntPtr HealthPathSize;
            public IntPtr LogFile; public UIntPtr LogFileSize;
            public long StartDeadlineMs, StopGraceMs, RestartPauseMs, MaxRestartPauseMs, FailureWindowMs,
                ProbeIntervalMs, ReadyProbeIntervalMs, ProbeTimeoutMs;
            public UIntPtr FailureLimit, UnansweredProbeLimit, LogTailBytes;
        }

        [StructLayout(LayoutKind.Sequential)]
        public struct Status
        {
            public uint StructSize, State, Port;
            public int External, HasExitCode, ExitCode, HasExitSignal, ExitSignal;
            public long ProcessId, StateAgeMs, NextStartInMs;
            public UIntPtr Starts, RecentFailures;
            public IntPtr Reason; public UIntPtr ReasonSize;
            public IntPtr Endpoint; public UIntPtr EndpointSize;
            public UIntPtr LogLineCount;
        }

        public static readonly uint OptionsSize = (uint)Marshal.SizeOf(typeof(Options));
        public static readonly uint StatusSize = (uint)Marshal.SizeOf(typeof(Status));

        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_options_defaults(ref Options options);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_start(ref Options options, out IntPtr server);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_destroy(IntPtr server);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_read_status(ServerHandle server, ref Status status);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_log_line(ServerHandle server, UIntPtr line, out IntPtr text, out UIntPtr size);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_endpoint(ServerHandle server, out IntPtr text, out UIntPtr size);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_stop(ServerHandle server);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_model_server_restart(ServerHandle server);
        [DllImport(Native.Lib)] public static extern int tovrin_ai_service_create_for_server(ref Native.Config config, ServerHandle server, out IntPtr service);
    }
}
