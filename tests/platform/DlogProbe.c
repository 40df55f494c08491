/* dlog_probe TAG:P:TEXT...: logs each TEXT under TAG at priority P (a digit) through the log stand-in, wrapped in a
 * colour code as the library's lines are, so that the tests see what the environment makes of it. */
#include <dlog.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        char* tag = argv[i];
        char* prio = strchr(tag, ':');
        if (!prio || !prio[1] || prio[2] != ':') return 2;
        *prio = '\0';
        __dlog_print(LOG_ID_MAIN, prio[1] - '0', tag, "\033[31m%s\033[0m\n", prio + 3);
    }
    return 0;
}
