/** @file
 * The one export macro of ZoNetwork. The library is built with hidden
 * visibility, so only what carries this macro is part of its face. Compiles
 * as C and C++. */
#ifndef ZONETWORK_ZONETWORKEXPORT_H
#define ZONETWORK_ZONETWORKEXPORT_H

#if defined(_WIN32)
#if defined(ZONETWORK_BUILDING)
#define ZONET_API __declspec(dllexport)
#else
#define ZONET_API __declspec(dllimport)
#endif
#else
/** Marks a declaration as part of ZoNetwork's exported face (default visibility). */
#define ZONET_API __attribute__((visibility("default")))
#endif

#endif /* ZONETWORK_ZONETWORKEXPORT_H */
