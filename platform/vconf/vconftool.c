/* vconftool: gets, sets and unsets keys of the configuration store. */
#define _GNU_SOURCE
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vconf.h"

enum { EXIT_OK = 0, EXIT_MISSING = 1, EXIT_USAGE = 2, EXIT_FAILED = 3 };

static const char USAGE[] =
    "Usage: vconftool get KEY\n"
    "       vconftool set KEY VALUE   (VALUE \"-\" reads the value from standard input)\n"
    "       vconftool unset KEY\n"
    "       vconftool --help\n"
    "       vconftool --version\n"
    "\n"
    "The store lives below $VCONF_ROOT (default /var/lib/veranti/vconf), one file per key.\n"
    "get prints the value followed by a newline.\n"
    "Exit status: 0 done, 1 key not set, 2 usage error or invalid key, 3 other failure.\n";

static int fail(int status, const char* action, const char* key) {
    if (errno == ELOOP) {
        fprintf(stderr,
                "vconftool: cannot %s \"%s\": a part of the key is a symbolic link, which the store never follows.\n",
                action, key);
        return status;
    }
    fprintf(stderr, "vconftool: cannot %s \"%s\": %s.\n", action, key, strerror(errno));
    return status;
}

static int get_key(const char* key) {
    char* value = vconf_get_str(key);
    if (!value) {
        if (errno == ENOENT) {
            fprintf(stderr, "vconftool: key \"%s\" is not set.\n", key);
            return EXIT_MISSING;
        }
        return fail(EXIT_FAILED, "read", key);
    }
    int written = printf("%s\n", value);
    free(value);
    return written < 0 || fflush(stdout) != 0 ? fail(EXIT_FAILED, "print", key) : EXIT_OK;
}

/* The whole of standard input as a C string; NULL with errno on failure,
 * EINVAL when it holds a NUL byte. */
static char* read_stdin(void) {
    char* text = NULL;
    size_t size = 0;
    FILE* buffer = open_memstream(&text, &size);
    if (!buffer) return NULL;
    char chunk[65536];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, stdin)) > 0) fwrite(chunk, 1, n, buffer);
    int failed = ferror(stdin) ? errno : 0;
    if (fclose(buffer) != 0 && !failed) failed = errno ? errno : ENOMEM;
    if (!failed && strlen(text) != size) failed = EINVAL;
    if (failed) {
        free(text);
        errno = failed;
        return NULL;
    }
    return text;
}

static int set_key(const char* key, const char* value) {
    char* input = NULL;
    if (strcmp(value, "-") == 0) {
        input = read_stdin();
        if (!input) {
            if (errno == EINVAL) {
                fprintf(stderr, "vconftool: the value on standard input holds a NUL byte.\n");
                return EXIT_USAGE;
            }
            return fail(EXIT_FAILED, "read standard input for", key);
        }
        value = input;
    }
    int result = vconf_set_str(key, value) == 0 ? EXIT_OK : fail(EXIT_FAILED, "set", key);
    free(input);
    return result;
}

static int unset_key(const char* key) {
    return vconf_unset(key) == 0 ? EXIT_OK : fail(EXIT_FAILED, "unset", key);
}

static int usage_error(void) {
    fputs("vconftool: unknown command or wrong number of arguments (see vconftool --help).\n", stderr);
    return EXIT_USAGE;
}

int main(int argc, char** argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(USAGE, stdout);
        return EXIT_OK;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        printf("vconftool %s\n", VCONFTOOL_VERSION);
        return fflush(stdout) == 0 ? EXIT_OK : EXIT_FAILED;
    }
    if (argc < 3) return usage_error();
    const char* command = argv[1];
    const char* key = argv[2];
    int known = (strcmp(command, "get") == 0 && argc == 3) || (strcmp(command, "set") == 0 && argc == 4) ||
                (strcmp(command, "unset") == 0 && argc == 3);
    if (!known) return usage_error();
    if (!vconf_key_is_valid(key)) {
        fprintf(stderr, "vconftool: \"%s\" is not a valid key.\n", key);
        return EXIT_USAGE;
    }
    if (command[0] == 'g') return get_key(key);
    if (command[0] == 's') return set_key(key, argv[3]);
    return unset_key(key);
}
