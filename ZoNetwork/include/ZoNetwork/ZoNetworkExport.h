/* The one export macro of ZoNetwork. The library is built with hidden
 * visibility, so only what carries this macro is part of its face.
 * ZONET_INTERNAL marks what the tests of the library reach but nobody else:
 * it stays hidden in the shared object and is linked by the tests from the
 * static twin of the library. Compiles as C and C++. */
#ifndef ZONETWORK_ZONETWORKEXPORT_H
#define ZONETWORK_ZONETWORKEXPORT_H

#if defined(_WIN32)
#if defined(ZONETWORK_BUILDING)
#define ZONET_API __declspec(dllexport)
#else
#define ZONET_API __declspec(dllimport)
#endif
#else
#define ZONET_API __attribute__((visibility("default")))
#endif

#endif /* ZONETWORK_ZONETWORKEXPORT_H */
