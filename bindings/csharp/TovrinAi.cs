// Tovrin.Ai -- the game-loop layer of tovrin_ai_c for C# (Mono, .NET,
// Unity with Mono or IL2CPP). One file: copy it anywhere into a project and
// put the native library (tovrin_ai_c.dll, libtovrin_ai_c.so) where the
// runtime finds it.
//
//   using (var service = new AiService(new AiServiceConfig { Endpoint = url })) {
//     ulong id = service.Submit(new AiRequest { Message = "Kolik stojí pivo?" });
//     ...every frame:
//     foreach (AiCompletion done in service.Poll()) { /* done.Id, done.Answer */ }
//   }
//
// Use a service from one thread at a time (the game's main thread). Submit
// and Poll never wait for the network. Failures of the native calls come as
// AiException with the library's status and text. Text crosses as UTF-8
// bytes with explicit lengths, marshalled here by hand: no unsafe code, no
// callbacks, nothing Mono or IL2CPP would marshal differently.
// Define TOVRIN_AI_STATIC_LINK where the library is linked into the
// player (iOS, WebGL): the calls then go to "__Internal".
using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;
using System.Text;

namespace Tovrin.Ai
{
    public enum AiRequestKind : uint
    {
        NpcDialogue = 0, CommandHelp = 1, GeneralChat = 2,
        ShortAnswer = 3, ChatModeration = 4, AntiCheatTriage = 5,
    }

    public enum AiEnding : uint
    {
        Answered = 0, QueueFull = 1, Superseded = 2, Cancelled = 3,
        Deadline = 4, Shutdown = 5, Failed = 6,
    }

    public enum AiStatus
    {
        Ok = 0, Null = 1, BadHandle = 2, BadSize = 3, InvalidUtf8 = 4,
        InvalidArgument = 5, NoMemory = 6, Failed = 7,
    }

    public sealed class AiException : Exception
    {
        public readonly AiStatus Status;
        public AiException(AiStatus status, string message) : base(message) { Status = status; }
    }

    // The runtime configuration and the service options. A new one holds
    // the library's defaults.
    public sealed class AiServiceConfig
    {
        public bool Enabled;
        public string Endpoint, Model, HelperPath, FallbackEndpoint, FallbackModel;
        public long TimeoutMs;
        public float Temperature, TopP;
        public bool WatchdogEnabled, RepairEnabled;
        public int Workers, QueueLimit;
        public long DeadlineMs;

        public AiServiceConfig()
        {
            var c = new Native.Config { StructSize = Native.ConfigSize };
            Native.Check(Native.tovrin_ai_service_config_defaults(ref c));
            var text = new TextCodec();
            Enabled = c.Enabled != 0;
            Endpoint = text.Read(c.Endpoint, c.EndpointSize);
            Model = text.Read(c.Model, c.ModelSize);
            HelperPath = text.Read(c.HelperPath, c.HelperPathSize);
            FallbackEndpoint = text.Read(c.FallbackEndpoint, c.FallbackEndpointSize);
            FallbackModel = text.Read(c.FallbackModel, c.FallbackModelSize);
            TimeoutMs = c.TimeoutMs;
            Temperature = c.Temperature;
            TopP = c.TopP;
            WatchdogEnabled = c.WatchdogEnabled != 0;
            RepairEnabled = c.RepairEnabled != 0;
            Workers = (int)c.Workers;
            QueueLimit = (int)c.QueueLimit;
            DeadlineMs = c.DeadlineMs;
        }

        internal AiServiceConfig Copy() { return (AiServiceConfig)MemberwiseClone(); }
    }

    // One request. Unset fields keep the library's defaults.
    public sealed class AiRequest
    {
        public string Message, Persona, Conversation;
        public readonly List<string> WorldFacts = new List<string>();
        public readonly List<string> AllowedCommands = new List<string>();
        public readonly List<string> ToolResults = new List<string>();
        public AiRequestKind Kind = AiRequestKind.NpcDialogue;
        public ulong? MaxTokens;
        public bool Supersede;
        public long DeadlineMs;  // 0: the service's
    }

    // One model call of a request, as the transport saw it.
    public sealed class AiModelCall
    {
        public int Pass, Attempt;
        public string Endpoint, Model, Answer, Error;
        public bool Answered, VerdictPassed;
        public readonly List<string> VerdictReasons = new List<string>();
        public TimeSpan Start, Duration;  // Start: from the submission
    }

    // A finished request.
    public sealed class AiCompletion
    {
        public ulong Id;
        public AiEnding Ending;
        public bool Ok, WatchdogPassed, Fallback;
        public ulong Attempts;
        public string Answer, Model, Error;
        public readonly List<string> WatchdogReasons = new List<string>();
        public readonly List<AiModelCall> Calls = new List<AiModelCall>();
        public TimeSpan QueueWait, Total;
    }

    public sealed partial class AiService : IDisposable
    {
        ServiceHandle service;
        SubmissionHandle submission;
        readonly TextCodec text = new TextCodec();
        Native.Completion completion = new Native.Completion { StructSize = Native.CompletionSize };
        Native.ModelCall modelCall = new Native.ModelCall { StructSize = Native.ModelCallSize };

        // The native library's interface version (major << 16 | minor << 8 | patch).
        public static uint NativeVersion { get { return Native.tovrin_ai_c_version(); } }

        public AiService(AiServiceConfig config) : this(config, Native.tovrin_ai_service_create) {}

        AiService(AiServiceConfig config, Native.CreateFunction create)
        {
            var c = new Native.Config { StructSize = Native.ConfigSize };
            var owned = new List<IntPtr>();
            try
            {
                c.Enabled = config.Enabled ? 1 : 0;
                c.Endpoint = text.Copy(config.Endpoint, owned, out c.EndpointSize);
                c.Model = text.Copy(config.Model, owned, out c.ModelSize);
                c.HelperPath = text.Copy(config.HelperPath, owned, out c.HelperPathSize);
                c.FallbackEndpoint = text.Copy(config.FallbackEndpoint, owned, out c.FallbackEndpointSize);
                c.FallbackModel = text.Copy(config.FallbackModel, owned, out c.FallbackModelSize);
                c.TimeoutMs = config.TimeoutMs;
                c.Temperature = config.Temperature;
                c.TopP = config.TopP;
                c.WatchdogEnabled = config.WatchdogEnabled ? 1 : 0;
                c.RepairEnabled = config.RepairEnabled ? 1 : 0;
                c.Workers = (UIntPtr)(ulong)Math.Max(config.Workers, 0);
                c.QueueLimit = (UIntPtr)(ulong)Math.Max(config.QueueLimit, 0);
                c.DeadlineMs = config.DeadlineMs;
                IntPtr handle;
                Native.Check(create(ref c, out handle));
                service = new ServiceHandle(handle);
                Native.Check(Native.tovrin_ai_submission_create(out handle));
                submission = new SubmissionHandle(handle);
            }
            finally
            {
                foreach (IntPtr p in owned) Marshal.FreeHGlobal(p);
            }
        }

        // Hands the request in and returns its id at once.
        public ulong Submit(AiRequest request)
        {
            Native.Check(Native.tovrin_ai_submission_reset(submission));
            SetText(Native.SetMessage, request.Message);
            SetText(Native.SetPersona, request.Persona);
            SetText(Native.SetConversation, request.Conversation);
            foreach (string s in request.WorldFacts) SetText(Native.AddWorldFact, s);
            foreach (string s in request.AllowedCommands) SetText(Native.AddAllowedCommand, s);
            foreach (string s in request.ToolResults) SetText(Native.AddToolResult, s);
            Native.Check(Native.tovrin_ai_submission_set_kind(submission, (uint)request.Kind));
            if (request.MaxTokens.HasValue)
                Native.Check(Native.tovrin_ai_submission_set_max_tokens(submission, request.MaxTokens.Value));
            if (request.Supersede) Native.Check(Native.tovrin_ai_submission_set_supersede(submission, 1));
            if (request.DeadlineMs != 0)
                Native.Check(Native.tovrin_ai_submission_set_deadline_ms(submission, request.DeadlineMs));
            ulong id;
            Native.Check(Native.tovrin_ai_service_submit(service, submission, out id));
            return id;
        }

        // Replaces the contents of done with the completions finished since
        // the last poll, in the order they finished; returns how many.
        public int Poll(List<AiCompletion> done)
        {
            done.Clear();
            UIntPtr count;
            Native.Check(Native.tovrin_ai_service_poll(service, out count));
            for (ulong i = 0; i < (ulong)count; ++i) done.Add(Read((UIntPtr)i));
            return done.Count;
        }

        public List<AiCompletion> Poll()
        {
            var done = new List<AiCompletion>();
            Poll(done);
            return done;
        }

        // Ends the request as cancelled; false when it was unknown, finished
        // or already ending otherwise.
        public bool Cancel(ulong id)
        {
            int cancelled;
            Native.Check(Native.tovrin_ai_service_cancel(service, id, out cancelled));
            return cancelled != 0;
        }

        // Requests submitted and not yet finished.
        public int Pending
        {
            get
            {
                UIntPtr count;
                Native.Check(Native.tovrin_ai_service_pending(service, out count));
                return (int)count;
            }
        }

        // Ends every request as shut down; Poll still hands out the last ones.
        public void Shutdown() { Native.Check(Native.tovrin_ai_service_shutdown(service)); }

        // Ends every request and frees the service within 50 ms.
        public void Dispose()
        {
            if (submission != null) submission.Dispose();
            if (service != null) service.Dispose();
        }

        void SetText(Native.SetTextFunction set, string value)
        {
            int size = text.Encode(value);
            Native.Check(set(submission, text.Buffer, (UIntPtr)(uint)size));
        }

        AiCompletion Read(UIntPtr index)
        {
            Native.Check(Native.tovrin_ai_service_completion(service, index, ref completion));
            var c = completion;
            var done = new AiCompletion {
                Id = c.Id, Ending = (AiEnding)c.Ending, Ok = c.Ok != 0,
                WatchdogPassed = c.WatchdogPassed != 0, Fallback = c.Fallback != 0, Attempts = c.Attempts,
                Answer = text.Read(c.Answer, c.AnswerSize), Model = text.Read(c.Model, c.ModelSize),
                Error = text.Read(c.Error, c.ErrorSize),
                QueueWait = Micros(c.QueueWaitUs), Total = Micros(c.TotalUs),
            };
            IntPtr data;
            UIntPtr size;
            for (ulong r = 0; r < (ulong)c.ReasonCount; ++r)
            {
                Native.Check(Native.tovrin_ai_service_completion_reason(service, index, (UIntPtr)r, out data, out size));
                done.WatchdogReasons.Add(text.Read(data, size));
            }
            for (ulong k = 0; k < (ulong)c.CallCount; ++k)
            {
                Native.Check(Native.tovrin_ai_service_completion_call(service, index, (UIntPtr)k, ref modelCall));
                var m = modelCall;
                var call = new AiModelCall {
                    Pass = (int)m.Pass, Attempt = (int)m.Attempt, Answered = m.Answered != 0,
                    VerdictPassed = m.VerdictPassed != 0,
                    Endpoint = text.Read(m.Endpoint, m.EndpointSize), Model = text.Read(m.Model, m.ModelSize),
                    Answer = text.Read(m.Answer, m.AnswerSize), Error = text.Read(m.Error, m.ErrorSize),
                    Start = Micros(m.StartUs), Duration = Micros(m.DurationUs),
                };
                for (ulong r = 0; r < (ulong)m.VerdictReasonCount; ++r)
                {
                    Native.Check(Native.tovrin_ai_service_completion_call_reason(
                        service, index, (UIntPtr)k, (UIntPtr)r, out data, out size));
                    call.VerdictReasons.Add(text.Read(data, size));
                }
                done.Calls.Add(call);
            }
            return done;
        }

        static TimeSpan Micros(long us) { return TimeSpan.FromTicks(us * 10); }
    }

    // UTF-8 both ways through one reused buffer, so that a frame's calls
    // allocate only the strings they return.
    sealed class TextCodec
    {
        static readonly UTF8Encoding Utf8 = new UTF8Encoding(false);
        public byte[] Buffer = new byte[256];

        // The bytes of value (null: none) into Buffer; returns how many.
        public int Encode(string value)
        {
            if (string.IsNullOrEmpty(value)) return 0;
            Reserve(Utf8.GetMaxByteCount(value.Length));
            return Utf8.GetBytes(value, 0, value.Length, Buffer, 0);
        }

        // Native memory holding the bytes of value, freed by the caller.
        public IntPtr Copy(string value, List<IntPtr> owned, out UIntPtr size)
        {
            int n = Encode(value);
            IntPtr p = Marshal.AllocHGlobal(Math.Max(n, 1));
            owned.Add(p);
            Marshal.Copy(Buffer, 0, p, n);
            size = (UIntPtr)(uint)n;
            return p;
        }

        // The text the library handed out; bytes that are not UTF-8 become U+FFFD.
        public string Read(IntPtr data, UIntPtr size)
        {
            int n = checked((int)(ulong)size);
            if (n == 0) return "";
            Reserve(n);
            Marshal.Copy(data, Buffer, 0, n);
            return Utf8.GetString(Buffer, 0, n);
        }

        void Reserve(int n)
        {
            if (Buffer.Length < n) Buffer = new byte[Math.Max(n, 2 * Buffer.Length)];
        }
    }

    sealed class ServiceHandle : SafeHandle
    {
        public ServiceHandle(IntPtr handle) : base(IntPtr.Zero, true) { SetHandle(handle); }
        public override bool IsInvalid { get { return handle == IntPtr.Zero; } }
        protected override bool ReleaseHandle() { return Native.tovrin_ai_service_destroy(handle) == 0; }
    }

    sealed class SubmissionHandle : SafeHandle
    {
        public SubmissionHandle(IntPtr handle) : base(IntPtr.Zero, true) { SetHandle(handle); }
        public override bool IsInvalid { get { return handle == IntPtr.Zero; } }
        protected override bool ReleaseHandle() { return Native.tovrin_ai_submission_destroy(handle) == 0; }
    }

    // The C functions and structs of <tovrin/ai_c.h>, field for field.
    static class Native
    {
#if TOVRIN_AI_STATIC_LINK
        public const string Lib = "__Internal";
#else
        public const string Lib = "tovrin_ai_c";
#endif

        [StructLayout(LayoutKind.Sequential)]
        public struct Config
        {
            public uint StructSize;
            public int Enabled;
            public IntPtr Endpoint; public UIntPtr EndpointSize;
            public IntPtr Model; public UIntPtr ModelSize;
            public IntPtr HelperPath; public UIntPtr HelperPathSize;
            public IntPtr FallbackEndpoint; public UIntPtr FallbackEndpointSize;
            public IntPtr FallbackModel; public UIntPtr FallbackModelSize;
            public long TimeoutMs;
            public float Temperature, TopP;
            public int WatchdogEnabled, RepairEnabled;
            public UIntPtr Workers, QueueLimit;
            public long DeadlineMs;
        }

        [StructLayout(LayoutKind.Sequential)]
        public struct Completion
        {
            public uint StructSize, Ending;
            public ulong Id;
            public int Ok, WatchdogPassed, Fallback, Reserved;
            public ulong Attempts;
            public IntPtr Answer; public UIntPtr AnswerSize;
            public IntPtr Model; public UIntPtr ModelSize;
            public IntPtr Error; public UIntPtr ErrorSize;
            public UIntPtr ReasonCount, CallCount;
            public long QueueWaitUs, TotalUs;
        }

        [StructLayout(LayoutKind.Sequential)]
        public struct ModelCall
        {
            public uint StructSize, Pass, Attempt;
            public int Answered, VerdictPassed, Reserved;
            public UIntPtr VerdictReasonCount;
            public IntPtr Endpoint; public UIntPtr EndpointSize;
            public IntPtr Model; public UIntPtr ModelSize;
            public IntPtr Answer; public UIntPtr AnswerSize;
            public IntPtr Error; public UIntPtr ErrorSize;
            public long StartUs, DurationUs;
        }

        public static readonly uint ConfigSize = (uint)Marshal.SizeOf(typeof(Config));
        public static readonly uint CompletionSize = (uint)Marshal.SizeOf(typeof(Completion));
        public static readonly uint ModelCallSize = (uint)Marshal.SizeOf(typeof(ModelCall));

        // Throws the calling thread's last failure for a status other than 0.
        public static void Check(int status)
        {
            if (status == 0) return;
            IntPtr data;
            UIntPtr size;
            string text = tovrin_ai_last_error(out data, out size) == 0
                ? new TextCodec().Read(data, size) : "unknown failure";
            throw new AiException((AiStatus)status, text);
        }

        public delegate int CreateFunction(ref Config config, out IntPtr service);
        public delegate int SetTextFunction(SubmissionHandle s, byte[] text, UIntPtr size);
        public static readonly SetTextFunction SetMessage = tovrin_ai_submission_set_message;
        public static readonly SetTextFunction SetPersona = tovrin_ai_submission_set_persona;
        public static readonly SetTextFunction SetConversation = tovrin_ai_submission_set_conversation;
        public static readonly SetTextFunction AddWorldFact = tovrin_ai_submission_add_world_fact;
        public static readonly SetTextFunction AddAllowedCommand = tovrin_ai_submission_add_allowed_command;
        public static readonly SetTextFunction AddToolResult = tovrin_ai_submission_add_tool_result;

        [DllImport(Lib)] public static extern uint tovrin_ai_c_version();
        [DllImport(Lib)] public static extern int tovrin_ai_last_error(out IntPtr text, out UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_service_config_defaults(ref Config config);
        [DllImport(Lib)] public static extern int tovrin_ai_service_create(ref Config config, out IntPtr service);
        [DllImport(Lib)] public static extern int tovrin_ai_service_destroy(IntPtr service);
        [DllImport(Lib)] public static extern int tovrin_ai_service_submit(ServiceHandle service, SubmissionHandle submission, out ulong id);
        [DllImport(Lib)] public static extern int tovrin_ai_service_poll(ServiceHandle service, out UIntPtr count);
        [DllImport(Lib)] public static extern int tovrin_ai_service_completion(ServiceHandle service, UIntPtr index, ref Completion completion);
        [DllImport(Lib)] public static extern int tovrin_ai_service_completion_reason(ServiceHandle service, UIntPtr index, UIntPtr reason, out IntPtr text, out UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_service_completion_call(ServiceHandle service, UIntPtr index, UIntPtr call, ref ModelCall modelCall);
        [DllImport(Lib)] public static extern int tovrin_ai_service_completion_call_reason(ServiceHandle service, UIntPtr index, UIntPtr call, UIntPtr reason, out IntPtr text, out UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_service_cancel(ServiceHandle service, ulong id, out int cancelled);
        [DllImport(Lib)] public static extern int tovrin_ai_service_pending(ServiceHandle service, out UIntPtr count);
        [DllImport(Lib)] public static extern int tovrin_ai_service_shutdown(ServiceHandle service);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_create(out IntPtr submission);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_destroy(IntPtr submission);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_reset(SubmissionHandle submission);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_set_message(SubmissionHandle s, byte[] text, UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_set_persona(SubmissionHandle s, byte[] text, UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_set_conversation(SubmissionHandle s, byte[] text, UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_add_world_fact(SubmissionHandle s, byte[] text, UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_add_allowed_command(SubmissionHandle s, byte[] text, UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_add_tool_result(SubmissionHandle s, byte[] text, UIntPtr size);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_set_kind(SubmissionHandle s, uint kind);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_set_max_tokens(SubmissionHandle s, ulong maxTokens);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_set_supersede(SubmissionHandle s, int supersede);
        [DllImport(Lib)] public static extern int tovrin_ai_submission_set_deadline_ms(SubmissionHandle s, long deadlineMs);
    }
}
