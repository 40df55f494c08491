/* The one export macro of libveranti-consent.
 *
 * The library is built with hidden visibility: only declarations that carry
 * VERANTI_CONSENT_EXPORT leave the shared object. The test suite checks the
 * exported names against a list. */
#ifndef VERANTI_CONSENT_EXPORT_H
#define VERANTI_CONSENT_EXPORT_H

#if defined(__GNUC__)
#define VERANTI_CONSENT_EXPORT __attribute__((visibility("default")))
#else
#define VERANTI_CONSENT_EXPORT
#endif

#endif /* VERANTI_CONSENT_EXPORT_H */
