/* The one export macro of libcapi-veranti-service.
 *
 * The library is built with hidden visibility: nothing leaves the shared
 * object unless its declaration carries VERANTI_EXPORT. The list of names
 * that do is checked by the test suite against the dynamic symbol table. */
#ifndef VERANTI_EXPORT_H
#define VERANTI_EXPORT_H

#if defined(__GNUC__)
#define VERANTI_EXPORT __attribute__((visibility("default")))
#else
#define VERANTI_EXPORT
#endif

#endif /* VERANTI_EXPORT_H */
