// A C# caller of the library's exports through P/Invoke. Prints one line per call:
//   instance          "<non-null> <same again> <non-null after CSharpDestroy>"
//   available         the availability
//   set <id> <agreed> <product type>   the result
//   get <id>...       "<id> <result> <agreement>", the agreement starting at -1
using System;
using System.Runtime.InteropServices;

static class BridgeTest
{
    const string Library = "capi-veranti-service";
    [DllImport(Library)] static extern IntPtr CSharpGetInstance();
    [DllImport(Library)] static extern void CSharpDestroy();
    [DllImport(Library)] static extern int CSharpIsServiceAvailable();
    [DllImport(Library)] static extern int CSharpSetDisclaimerItemAgreement(string strItemId, int isAgreed, string productType);
    [DllImport(Library)] static extern int CSharpGetDisclaimerItemAgreement(string strItemId, ref int pIsAgreed);

    static void Main(string[] args)
    {
        IntPtr instance = CSharpGetInstance();
        if (args[0] == "instance")
        {
            bool same = CSharpGetInstance() == instance;
            CSharpDestroy();
            Console.WriteLine("{0} {1} {2}", instance != IntPtr.Zero, same, CSharpGetInstance() != IntPtr.Zero);
        }
        else if (args[0] == "available")
            Console.WriteLine(CSharpIsServiceAvailable());
        else if (args[0] == "set")
            Console.WriteLine(CSharpSetDisclaimerItemAgreement(args[1], int.Parse(args[2]), args[3]));
        for (int i = 1; args[0] == "get" && i < args.Length; ++i)
        {
            int agreed = -1, result = CSharpGetDisclaimerItemAgreement(args[i], ref agreed);
            Console.WriteLine("{0} {1} {2}", args[i], result, agreed);
        }
        CSharpDestroy();
    }
}
