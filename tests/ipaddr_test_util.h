// What the address and blacklist tests share: the text of an address, a
// substring test for error texts, and the check used inside bodies that run
// in a child process (where gtest assertions would be lost).
#ifndef ZONET_TESTS_IPADDR_TEST_UTIL_H
#define ZONET_TESTS_IPADDR_TEST_UTIL_H

#include <cstdio>
#include <string>

#include "ZoNetwork/ZoIPAddr.h"

namespace iptest {

// The numeric text (or path) of addr, or the error in angle brackets.
inline std::string Text(const CZoIPAddr& addr) {
  CZoString out;
  CZoError e = addr.GetAddressString(out);
  return e.IsError() ? "<" + e.AsString() + ">" : std::string(out.c_str());
}

inline bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace iptest

// In a child's body: prints the failed condition and makes the body return 1.
#define IPTEST_CHILD_CHECK(cond)                                                    \
  do {                                                                              \
    if (!(cond)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      return 1;                                                                     \
    }                                                                               \
  } while (0)

#endif  // ZONET_TESTS_IPADDR_TEST_UTIL_H
