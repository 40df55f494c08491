// A C# program over the consent class, run with mono by consent_test.
//   status <requester>          "<value> <id>,<id>..."
//   accept|reject <requester>   "<all done> <id>:<outcome> ..."
//   watch                       "ready", then the first event: "<id>:<before>-><after> ..."
//   async <requester> <ms>      the status by the asynchronous call: "<result> <value>"
using System;
using System.Linq;
using Veranti;

static class ConsentProgram
{
    static int Main(string[] args)
    {
        int requester = args.Length > 1 ? int.Parse(args[1]) : 0;
        string line = null;
        switch (args[0])
        {
            case "status":
                ConsentStatus status = Consent.GetStatus(requester);
                line = status.Value + " " + string.Join(",", status.MustShow);
                break;
            case "accept":
            case "reject":
                ConsentBatch batch = args[0] == "accept" ? Consent.AcceptAll(requester) : Consent.RejectAll(requester);
                line = batch.AllDone + " " + string.Join(" ", batch.Items.Select(i => i.Id + ":" + i.Outcome));
                break;
            case "watch":
                using (var watcher = new ConsentWatcher())
                {
                    watcher.Changed += (sender, e) =>
                        line = string.Join(" ", e.Changes.Select(c => c.Id + ":" + c.Before + "->" + c.After));
                    Console.WriteLine("ready");
                    Console.Out.Flush();
                    while (line == null)
                        Consent.Dispatch(true);
                }
                break;
            case "async":
                Consent.GetStatusAsync(requester, uint.Parse(args[2]), (result, s) => line = result + " " + s.Value);
                while (line == null)
                    Consent.Dispatch(true);
                break;
        }
        Console.WriteLine(line);
        return line == null ? 2 : 0;
    }
}
