#include "SimLog.h"

#include <dlog.h>
#include <glib.h>

#include <cstdarg>

namespace termssim {

void SimLog(SimLogPriority priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    gchar* message = g_strdup_vprintf(format, args);
    va_end(args);
    __dlog_print(LOG_ID_MAIN, priority, "TermsSim", "%s\n", message);
    g_free(message);
}

}  // namespace termssim
