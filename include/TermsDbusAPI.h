/* C interface of the bus server toolkit.
 *
 * A process makes one server, registers its callbacks, creates it on the
 * system bus and runs a GLib main loop on the thread that created it:
 *
 *   InitiateTermsDbusServer("handle");
 *   RegisterTermsDbusCallback("handle", TERMS_DBUS_CALLBACK_MESSAGE, on_message, data);
 *   CreateTermsDbusServer("com.example.service");
 *   ... g_main_loop_run(loop) ...
 *   CloseTermsDbusServer("com.example.service");
 *
 * Functions that take a service name accept the handle name or the bus name.
 * Every int result is 1 for success and 0 for failure.
 *
 * Ownership of TermsDbusMessage:
 * - Records filled by the toolkit (a reply of SendTermsDbusSyncMessage, the
 *   request handed to a message callback) own their from, type, message and
 *   buffer; ReleaseTermsDbusMessage gives them back.
 * - A message callback fills the reply record with blocks that the toolkit
 *   releases after the reply has gone out: obtain them with
 *   CopyTermsDbusString and AllocateTermsDbusBuffer, never with malloc.
 * - Records passed for sending are only read; their buffer must stay valid
 *   until the call returns (it is sent in place, not copied).
 * - The server is single-threaded: create, use and close it from one thread.
 */
#ifndef TERMS_DBUS_API_H
#define TERMS_DBUS_API_H

#include <stdint.h>

#include "VerantiExport.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TermsDbusMessage {
    char* from;
    uint32_t code;
    char* type;
    char* message;
    unsigned char* buffer;
    uint32_t buffer_size;
} TermsDbusMessage;

typedef enum {
    TERMS_DBUS_CALLBACK_NAME_ACQUIRED = 0,
    TERMS_DBUS_CALLBACK_NAME_LOST = 1,
    TERMS_DBUS_CALLBACK_MESSAGE = 2
} TermsDbusCallbackType;

/* Called on the main loop's thread when the bus name is acquired or lost. */
typedef void (*TermsDbusNameCallback)(void* user_data);

/* Called on the main loop's thread for each incoming call. method is
 * "SendMessage" or "SendMessageWithBuffer"; request is read-only; reply has
 * all fields zero on entry. Return non-zero to send reply, 0 to send the
 * failure reply. Keep no pointer into either record. */
typedef int (*TermsDbusMessageCallback)(const char* method, TermsDbusMessage* request, TermsDbusMessage* reply,
                                        void* user_data);

VERANTI_EXPORT int InitiateTermsDbusServer(const char* name);
VERANTI_EXPORT void RegisterTermsDbusCallback(const char* name, TermsDbusCallbackType type, void* callback,
                                              void* user_data);
VERANTI_EXPORT int CreateTermsDbusServer(const char* name);
VERANTI_EXPORT int SendTermsDbusSignal(const char* name, const char* signal, TermsDbusMessage* msg);
VERANTI_EXPORT int SendTermsDbusSyncMessage(const char* name, const char* destination, TermsDbusMessage* request,
                                            TermsDbusMessage* reply, int timeout_ms);
VERANTI_EXPORT int CloseTermsDbusServer(const char* name);

/* Stores the six values as they are: no copy, nothing released. */
VERANTI_EXPORT void InitiateTermsDbusMessage(TermsDbusMessage* msg, char* from, uint32_t code, char* type,
                                             char* message, void* buffer, uint32_t buffer_size);
/* Releases from, type, message and buffer (each if non-null) and nulls them. */
VERANTI_EXPORT void ReleaseTermsDbusMessage(TermsDbusMessage* msg);

/* Blocks that ReleaseTermsDbusMessage may release: a NUL-terminated copy of
 * text (an empty string for null), and a zeroed buffer of size bytes. Both
 * return null only when size or text is absurdly large. */
VERANTI_EXPORT char* CopyTermsDbusString(const char* text);
VERANTI_EXPORT unsigned char* AllocateTermsDbusBuffer(uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* TERMS_DBUS_API_H */
