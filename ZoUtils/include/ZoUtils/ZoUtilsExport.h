/** @file
 * The one export macro of ZoUtils. The library is built with hidden visibility,
 * so only what carries this macro is part of its face. Compiles as C and C++. */
#ifndef ZOUTILS_ZOUTILSEXPORT_H
#define ZOUTILS_ZOUTILSEXPORT_H

#if defined(_WIN32)
#if defined(ZOUTILS_BUILDING)
#define ZOUTILS_API __declspec(dllexport)
#else
#define ZOUTILS_API __declspec(dllimport)
#endif
#else
/** Marks a declaration as part of ZoUtils's exported face (default visibility). */
#define ZOUTILS_API __attribute__((visibility("default")))
#endif

#endif /* ZOUTILS_ZOUTILSEXPORT_H */
