// The instance pointer of the C# bridge.
#ifndef CSHARP_BRIDGE_API_H
#define CSHARP_BRIDGE_API_H

#include "VerantiAPI.h"
#include "VerantiExport.h"

// Set by CSharpGetInstance and used by the other C# exports; CSharpDestroy
// leaves it as it is. Exported as data under its plain name.
extern "C" VERANTI_EXPORT CVerantiAPI* pThis;

#endif  // CSHARP_BRIDGE_API_H
