/* terms-echo-server: a complete program on the bus server toolkit.
 *
 *   terms-echo-server <bus name>
 *       Owns <bus name> on the system bus and answers every SendMessage and
 *       SendMessageWithBuffer call with from = <bus name>, the caller's code
 *       and type, message = "echo: " followed by the caller's message, and the
 *       caller's payload. After each answer it sends the signal "Echoed"
 *       carrying the caller's message. Prints "serving <bus name>" once the
 *       name is acquired; SIGINT or SIGTERM ends it (exit status 0). When
 *       the name cannot be owned (the bus policy forbids it, or an owner that
 *       allows no replacement holds it) it says so and exits with 1; when
 *       another process takes the name over, with 3; when the bus goes away
 *       (the bus daemon stopped or restarted), with 4.
 *
 *   terms-echo-server <bus name> --call <destination> <text>
 *       Owns <bus name>, makes one synchronous call to the toolkit server
 *       <destination> and prints "reply from <from>: <message>".
 */
#include <gio/gio.h>
#include <glib-unix.h>
#include <glib.h>
#include <stdio.h>
#include <string.h>

#include "TermsDbusAPI.h"

enum { EXIT_STOPPED = 0, EXIT_FAILED = 1, EXIT_USAGE = 2, EXIT_NAME_TAKEN = 3, EXIT_BUS_GONE = 4 };

struct echo_server {
    char* bus_name;
    GMainLoop* loop;
    GDBusConnection* bus; /* the shared system bus connection the toolkit serves on */
    int serving;
    int status;
};

static void on_name_acquired(void* data) {
    struct echo_server* server = data;
    server->serving = 1;
    printf("serving %s\n", server->bus_name);
    fflush(stdout);
}

/* The toolkit reports every way of losing the name alike; the connection and
 * whether the name was ever held tell them apart. */
static void on_name_lost(void* data) {
    struct echo_server* server = data;
    if (g_dbus_connection_is_closed(server->bus)) {
        fprintf(stderr, "terms-echo-server: the bus went away (the bus daemon stopped or restarted).\n");
        server->status = EXIT_BUS_GONE;
    } else if (server->serving) {
        fprintf(stderr, "terms-echo-server: another process took the bus name %s.\n", server->bus_name);
        server->status = EXIT_NAME_TAKEN;
    } else {
        fprintf(stderr, "terms-echo-server: cannot own %s (the bus policy forbids it, or its owner keeps it).\n",
                server->bus_name);
        server->status = EXIT_FAILED;
    }
    g_main_loop_quit(server->loop);
}

/* Runs on the main loop for each call. The reply's blocks come from the
 * toolkit's allocators: the toolkit releases them once the reply is sent. */
static int on_message(const char* method, TermsDbusMessage* request, TermsDbusMessage* reply, void* bus_name) {
    gchar* echoed = g_strconcat("echo: ", request->message ? request->message : "", NULL);
    reply->from = CopyTermsDbusString(bus_name);
    reply->code = request->code;
    reply->type = CopyTermsDbusString(request->type);
    reply->message = CopyTermsDbusString(echoed);
    g_free(echoed);
    if (request->buffer_size > 0) {
        reply->buffer = AllocateTermsDbusBuffer(request->buffer_size);
        if (!reply->buffer) return 0;
        memcpy(reply->buffer, request->buffer, request->buffer_size);
        reply->buffer_size = request->buffer_size;
    }

    /* A record for sending only points at the caller's texts: no release. */
    TermsDbusMessage notice;
    InitiateTermsDbusMessage(&notice, bus_name, 0, (char*)method, request->message ? request->message : "", NULL, 0);
    SendTermsDbusSignal(bus_name, "Echoed", &notice);
    return 1;
}

static gboolean on_stop(gpointer loop) {
    g_main_loop_quit(loop);
    return G_SOURCE_CONTINUE;
}

static int serve(char* bus_name) {
    GError* error = NULL;
    struct echo_server server = {bus_name, NULL, g_bus_get_sync(G_BUS_TYPE_SYSTEM, NULL, &error), 0, EXIT_STOPPED};
    if (!server.bus) {
        fprintf(stderr, "terms-echo-server: cannot connect to the system bus: %s\n", error->message);
        g_error_free(error);
        return EXIT_FAILED;
    }
    g_dbus_connection_set_exit_on_close(server.bus, FALSE);
    server.loop = g_main_loop_new(NULL, FALSE);
    RegisterTermsDbusCallback(bus_name, TERMS_DBUS_CALLBACK_NAME_ACQUIRED, (void*)on_name_acquired, &server);
    RegisterTermsDbusCallback(bus_name, TERMS_DBUS_CALLBACK_NAME_LOST, (void*)on_name_lost, &server);
    RegisterTermsDbusCallback(bus_name, TERMS_DBUS_CALLBACK_MESSAGE, (void*)on_message, bus_name);
    if (CreateTermsDbusServer(bus_name)) {
        guint interrupt = g_unix_signal_add(SIGINT, on_stop, server.loop);
        guint terminate = g_unix_signal_add(SIGTERM, on_stop, server.loop);
        g_main_loop_run(server.loop);
        g_source_remove(interrupt);
        g_source_remove(terminate);
    } else {
        server.status = EXIT_FAILED;
    }
    g_main_loop_unref(server.loop);
    g_object_unref(server.bus);
    return server.status;
}

static int call(char* bus_name, const char* destination, char* text) {
    if (!CreateTermsDbusServer(bus_name)) return 1;
    TermsDbusMessage request, reply;
    InitiateTermsDbusMessage(&request, bus_name, 1, "text", text, NULL, 0);
    InitiateTermsDbusMessage(&reply, NULL, 0, NULL, NULL, NULL, 0);
    if (!SendTermsDbusSyncMessage(bus_name, destination, &request, &reply, 5000)) return 1;
    printf("reply from %s: %s\n", reply.from, reply.message);
    ReleaseTermsDbusMessage(&reply);
    return 0;
}

int main(int argc, char** argv) {
    const int calling = argc == 5 && strcmp(argv[2], "--call") == 0;
    if (argc != 2 && !calling) {
        fprintf(stderr, "usage: %s <bus name> [--call <destination> <text>]\n", argv[0]);
        return EXIT_USAGE;
    }
    char* bus_name = argv[1];
    /* The bus name doubles as the handle name of the process's one server. */
    if (!InitiateTermsDbusServer(bus_name)) return 1;
    const int status = calling ? call(bus_name, argv[3], argv[4]) : serve(bus_name);
    CloseTermsDbusServer(bus_name);
    return status;
}
