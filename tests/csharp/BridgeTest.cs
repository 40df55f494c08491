// A C# caller of the library's flat exports, bound through P/Invoke as a C#
// application binds them. Each command checks what the exports return,
// prints one line per check and exits non-zero when any check failed.
//
//   mono BridgeTest.exe instance
//   mono BridgeTest.exe available <expected 0|1>
//   mono BridgeTest.exe set <id> <agreed> <product type> <expected result>
//   mono BridgeTest.exe get <id>=<expected agreement> ...
using System;
using System.Collections.Generic;
using System.Linq;
using System.Runtime.InteropServices;

static class Veranti
{
    const string Library = "capi-veranti-service";

    [DllImport(Library)]
    public static extern IntPtr CSharpGetInstance();

    [DllImport(Library)]
    public static extern void CSharpDestroy();

    [DllImport(Library)]
    public static extern int CSharpIsServiceAvailable();

    [DllImport(Library, CharSet = CharSet.Ansi)]
    public static extern int CSharpSetDisclaimerItemAgreement(string strItemId, int isAgreed, string productType);

    [DllImport(Library, CharSet = CharSet.Ansi)]
    public static extern int CSharpGetDisclaimerItemAgreement(string strItemId, ref int pIsAgreed);
}

static class BridgeTest
{
    static int failures;

    static void Check(bool passed, string what)
    {
        Console.WriteLine((passed ? "ok:   " : "FAIL: ") + what);
        if (!passed) ++failures;
    }

    static void Instance()
    {
        IntPtr first = Veranti.CSharpGetInstance();
        IntPtr second = Veranti.CSharpGetInstance();
        Check(first != IntPtr.Zero, "CSharpGetInstance returns an instance");
        Check(first == second, "two calls return the same address (" + first + ", " + second + ")");
        Veranti.CSharpDestroy();
        Check(Veranti.CSharpGetInstance() != IntPtr.Zero, "CSharpGetInstance after CSharpDestroy returns an instance");
    }

    static void Available(int expected)
    {
        int available = Veranti.CSharpIsServiceAvailable();
        Check(available == expected, "CSharpIsServiceAvailable returns " + available + ", expected " + expected);
    }

    static void Set(string id, int agreed, string productType, int expected)
    {
        int result = Veranti.CSharpSetDisclaimerItemAgreement(id, agreed, productType);
        Check(result == expected, "CSharpSetDisclaimerItemAgreement(" + id + ", " + agreed + ", " + productType +
                                  ") returns " + result + ", expected " + expected);
    }

    // Each argument is <id>=<expected agreement>. The agreement starts at -1,
    // so that an answer the export never wrote shows.
    static void Get(IEnumerable<string> expectations)
    {
        foreach (string expectation in expectations)
        {
            string[] parts = expectation.Split('=');
            int expected = int.Parse(parts[1]);
            int agreed = -1;
            int result = Veranti.CSharpGetDisclaimerItemAgreement(parts[0], ref agreed);
            Check(result == 0, "CSharpGetDisclaimerItemAgreement(" + parts[0] + ") returns " + result + ", expected 0");
            Check(agreed == expected, "agreement of " + parts[0] + " is " + agreed + ", expected " + expected);
        }
    }

    static int Main(string[] args)
    {
        if (args.Length == 0)
        {
            Console.Error.WriteLine("usage: BridgeTest.exe instance | available <0|1> | set <id> <agreed> <product> <result> | get <id>=<0|1> ...");
            return 2;
        }
        if (args[0] != "instance") Veranti.CSharpGetInstance();
        switch (args[0])
        {
            case "instance":
                Instance();
                break;
            case "available":
                Available(int.Parse(args[1]));
                break;
            case "set":
                Set(args[1], int.Parse(args[2]), args[3], int.Parse(args[4]));
                break;
            case "get":
                Get(args.Skip(1));
                break;
            default:
                Console.Error.WriteLine("unknown command " + args[0]);
                return 2;
        }
        Veranti.CSharpDestroy();
        return failures == 0 ? 0 : 1;
    }
}
