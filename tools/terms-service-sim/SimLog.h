// Log lines of the simulated service, tag "TermsSim", through the platform log.
#ifndef TERMS_SIM_LOG_H
#define TERMS_SIM_LOG_H

namespace termssim {

enum SimLogPriority { kLogDebug = 3, kLogInfo = 4, kLogWarn = 5, kLogError = 6 };

// Formats the message and hands it to the platform log as an argument of a
// fixed "%s" format, so outside texts are never read as a format.
void SimLog(SimLogPriority priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace termssim

#endif
