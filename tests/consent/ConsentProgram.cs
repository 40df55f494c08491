// A C# program over the consent class, run with mono by ConsentCSharpTest.
//   status <requester>          "<value> <id>,<id>..."
//   accept|reject <requester>   "<all done> <id>:<outcome> ..."
//   watch                       "ready", then the first event: "<id>:<before>-><after> ..."
//   async <requester> <ms>      the status by the asynchronous call: "<result> <value>"
using System;
using System.Linq;
using Veranti;

static class ConsentProgram
{
    static string Outcomes(ConsentBatch batch)
    {
        return batch.AllDone + " " + string.Join(" ", batch.Items.Select(i => i.Id + ":" + i.Outcome));
    }

    static int Main(string[] args)
    {
        switch (args[0])
        {
            case "status":
                ConsentStatus status = Consent.GetStatus(int.Parse(args[1]));
                Console.WriteLine("{0} {1}", status.Value, string.Join(",", status.MustShow));
                break;
            case "accept":
            case "reject":
                int requester = int.Parse(args[1]);
                Console.WriteLine(Outcomes(args[0] == "accept" ? Consent.AcceptAll(requester) : Consent.RejectAll(requester)));
                break;
            case "watch":
                using (var watcher = new ConsentWatcher())
                {
                    ConsentChange[] seen = null;
                    watcher.Changed += (sender, e) => seen = e.Changes;
                    Console.WriteLine("ready");
                    Console.Out.Flush();
                    while (seen == null)
                        Consent.Dispatch(true);
                    Console.WriteLine(string.Join(" ", seen.Select(c => c.Id + ":" + c.Before + "->" + c.After)));
                }
                break;
            case "async":
                string line = null;
                Consent.GetStatusAsync(int.Parse(args[1]), uint.Parse(args[2]), (result, s) => line = result + " " + s.Value);
                while (line == null)
                    Consent.Dispatch(true);
                Console.WriteLine(line);
                break;
            default:
                return 2;
        }
        return 0;
    }
}
