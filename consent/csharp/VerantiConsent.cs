// C# access to libveranti-consent: status, accept-all and reject-all, change
// events and asynchronous calls with time limits.
//
// Events and the callbacks of asynchronous calls run on the GLib main context
// of the thread that registered them; a program without a GLib main loop of
// its own calls Consent.Dispatch() from that thread (a UI timer will do).
using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;

namespace Veranti
{
    public enum ConsentStatusValue { Unknown = 0, Required = 1, NotRequired = 2, Obtained = 3 }

    public enum ConsentAgreement { Absent = -1, No = 0, Yes = 1 }

    public enum ConsentItemOutcome { Done = 0, Refused = 1, Notice = 2, MissingDependency = 3, Cycle = 4, DependencyFailed = 5 }

    public enum ConsentCallResult { Completed = 0, TimedOut = 1 }

    public sealed class ConsentStatus
    {
        public ConsentStatusValue Value;
        public string[] MustShow;  // in display order
    }

    public sealed class ConsentItemResult
    {
        public string Id;
        public ConsentItemOutcome Outcome;
    }

    public sealed class ConsentBatch
    {
        public bool AllDone;
        public ConsentItemResult[] Items;  // in the order they were handled
    }

    public sealed class ConsentChange
    {
        public string Id;
        public ConsentAgreement Before;
        public ConsentAgreement After;
    }

    public sealed class ConsentChangedEventArgs : EventArgs
    {
        public ConsentChange[] Changes;
    }

    // Raises Changed with every batch of agreement changes, from any process,
    // until disposed.
    public sealed class ConsentWatcher : IDisposable
    {
        public event EventHandler<ConsentChangedEventArgs> Changed;

        // Registered watchers stay reachable until disposed, so that the
        // native side never calls a collected delegate.
        static readonly HashSet<ConsentWatcher> registered = new HashSet<ConsentWatcher>();

        readonly Consent.ChangeCallback callback;
        uint id;

        public ConsentWatcher()
        {
            callback = OnChanges;
            id = Consent.ConsentAddChangeCallback(callback, IntPtr.Zero);
            if (id == 0)
                throw new InvalidOperationException("the configuration store cannot be watched");
            lock (registered)
                registered.Add(this);
        }

        // Call it on the thread that registered the watcher.
        public void Dispose()
        {
            if (id == 0)
                return;
            Consent.ConsentRemoveChangeCallback(id);
            id = 0;
            lock (registered)
                registered.Remove(this);
        }

        void OnChanges(IntPtr changes, int count, IntPtr userData)
        {
            var list = new ConsentChange[count];
            int size = Marshal.SizeOf(typeof(Consent.NativeChange));
            for (int i = 0; i < count; ++i)
            {
                var native = (Consent.NativeChange)Marshal.PtrToStructure(new IntPtr(changes.ToInt64() + i * size), typeof(Consent.NativeChange));
                list[i] = new ConsentChange { Id = Marshal.PtrToStringAnsi(native.Id), Before = (ConsentAgreement)native.Before, After = (ConsentAgreement)native.After };
            }
            var handler = Changed;
            if (handler != null)
                handler(this, new ConsentChangedEventArgs { Changes = list });
        }
    }

    public static class Consent
    {
        const string Library = "veranti-consent";
        const string GLib = "libglib-2.0.so.0";

        [StructLayout(LayoutKind.Sequential)]
        internal struct NativeStatus { public int Value; public int Count; public IntPtr Ids; }

        [StructLayout(LayoutKind.Sequential)]
        internal struct NativeBatch { public int Count; public IntPtr Items; }

        [StructLayout(LayoutKind.Sequential)]
        internal struct NativeItemResult { public IntPtr Id; public int Outcome; }

        [StructLayout(LayoutKind.Sequential)]
        internal struct NativeChange { public IntPtr Id; public int Before; public int After; }

        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void ChangeCallback(IntPtr changes, int count, IntPtr userData);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        delegate void StatusCallback(int result, IntPtr status, IntPtr userData);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        delegate void BatchCallback(int result, int allDone, IntPtr batch, IntPtr userData);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        delegate void IntCallback(int result, int value, IntPtr userData);

        [DllImport(Library)] static extern int ConsentGetStatus(int requester, ref NativeStatus status);
        [DllImport(Library)] static extern void ConsentStatusClear(ref NativeStatus status);
        [DllImport(Library)] static extern int ConsentAcceptAll(int requester, ref NativeBatch batch);
        [DllImport(Library)] static extern int ConsentRejectAll(int requester, ref NativeBatch batch);
        [DllImport(Library)] static extern void ConsentBatchClear(ref NativeBatch batch);
        [DllImport(Library)] internal static extern uint ConsentAddChangeCallback(ChangeCallback callback, IntPtr userData);
        [DllImport(Library)] internal static extern int ConsentRemoveChangeCallback(uint id);
        [DllImport(Library)] static extern void ConsentGetStatusAsync(int requester, uint timeoutMs, StatusCallback callback, IntPtr userData);
        [DllImport(Library)] static extern void ConsentAcceptAllAsync(int requester, uint timeoutMs, BatchCallback callback, IntPtr userData);
        [DllImport(Library)] static extern void ConsentRejectAllAsync(int requester, uint timeoutMs, BatchCallback callback, IntPtr userData);
        [DllImport(Library)] static extern void ConsentSetAgreementAsync(string id, int agreed, uint timeoutMs, IntCallback callback, IntPtr userData);
        [DllImport(GLib)] static extern int g_main_context_iteration(IntPtr context, int mayBlock);

        // One delegate of each kind for every call; the pending call's handler
        // travels as a GCHandle in user_data.
        static readonly StatusCallback statusDone = OnStatus;
        static readonly BatchCallback batchDone = OnBatch;
        static readonly IntCallback intDone = OnInt;

        public static ConsentStatus GetStatus(int requester)
        {
            var native = new NativeStatus();
            ConsentGetStatus(requester, ref native);
            ConsentStatus status = ReadStatus(native);
            ConsentStatusClear(ref native);
            return status;
        }

        public static ConsentBatch AcceptAll(int requester)
        {
            var native = new NativeBatch();
            return TakeBatch(ConsentAcceptAll(requester, ref native), ref native);
        }

        public static ConsentBatch RejectAll(int requester)
        {
            var native = new NativeBatch();
            return TakeBatch(ConsentRejectAll(requester, ref native), ref native);
        }

        // Copies a batch the library filled and releases the native one.
        static ConsentBatch TakeBatch(int allDone, ref NativeBatch native)
        {
            ConsentBatch batch = ReadBatch(allDone, native);
            ConsentBatchClear(ref native);
            return batch;
        }

        public static void GetStatusAsync(int requester, uint timeoutMs, Action<ConsentCallResult, ConsentStatus> done)
        {
            ConsentGetStatusAsync(requester, timeoutMs, statusDone, Hold(done));
        }

        public static void AcceptAllAsync(int requester, uint timeoutMs, Action<ConsentCallResult, ConsentBatch> done)
        {
            ConsentAcceptAllAsync(requester, timeoutMs, batchDone, Hold(done));
        }

        public static void RejectAllAsync(int requester, uint timeoutMs, Action<ConsentCallResult, ConsentBatch> done)
        {
            ConsentRejectAllAsync(requester, timeoutMs, batchDone, Hold(done));
        }

        public static void SetAgreementAsync(string id, bool agreed, uint timeoutMs, Action<ConsentCallResult, bool> done)
        {
            ConsentSetAgreementAsync(id, agreed ? 1 : 0, timeoutMs, intDone, Hold(done));
        }

        // Runs what is due on this thread's default GLib main context: events
        // and the ends of asynchronous calls. Waits for something when wait is
        // true. Returns whether anything ran.
        public static bool Dispatch(bool wait)
        {
            return g_main_context_iteration(IntPtr.Zero, wait ? 1 : 0) != 0;
        }

        static IntPtr Hold(object handler)
        {
            return GCHandle.ToIntPtr(GCHandle.Alloc(handler));
        }

        static T Release<T>(IntPtr userData)
        {
            GCHandle handle = GCHandle.FromIntPtr(userData);
            var handler = (T)handle.Target;
            handle.Free();
            return handler;
        }

        static void OnStatus(int result, IntPtr status, IntPtr userData)
        {
            var native = (NativeStatus)Marshal.PtrToStructure(status, typeof(NativeStatus));
            Release<Action<ConsentCallResult, ConsentStatus>>(userData)((ConsentCallResult)result, ReadStatus(native));
        }

        static void OnBatch(int result, int allDone, IntPtr batch, IntPtr userData)
        {
            var native = (NativeBatch)Marshal.PtrToStructure(batch, typeof(NativeBatch));
            Release<Action<ConsentCallResult, ConsentBatch>>(userData)((ConsentCallResult)result, ReadBatch(allDone, native));
        }

        static void OnInt(int result, int value, IntPtr userData)
        {
            Release<Action<ConsentCallResult, bool>>(userData)((ConsentCallResult)result, value != 0);
        }

        static ConsentStatus ReadStatus(NativeStatus native)
        {
            var ids = new string[native.Count];
            for (int i = 0; i < native.Count; ++i)
                ids[i] = Marshal.PtrToStringAnsi(Marshal.ReadIntPtr(native.Ids, i * IntPtr.Size));
            return new ConsentStatus { Value = (ConsentStatusValue)native.Value, MustShow = ids };
        }

        static ConsentBatch ReadBatch(int allDone, NativeBatch native)
        {
            var items = new List<ConsentItemResult>();
            int size = Marshal.SizeOf(typeof(NativeItemResult));
            for (int i = 0; i < native.Count; ++i)
            {
                var item = (NativeItemResult)Marshal.PtrToStructure(new IntPtr(native.Items.ToInt64() + i * size), typeof(NativeItemResult));
                items.Add(new ConsentItemResult { Id = Marshal.PtrToStringAnsi(item.Id), Outcome = (ConsentItemOutcome)item.Outcome });
            }
            return new ConsentBatch { AllDone = allDone != 0, Items = items.ToArray() };
        }
    }
}
