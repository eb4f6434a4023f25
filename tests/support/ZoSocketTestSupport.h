// What the tests of the socket object, the selector, the timed accept and
// the probes share: loopback addresses and listeners, and the checks of an
// error's code, first place and message.
#ifndef ZONET_TESTS_ZOSOCKETTESTSUPPORT_H
#define ZONET_TESTS_ZOSOCKETTESTSUPPORT_H

#include <string>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoSocket.h"

namespace zotest {

// A numeric address (or local path) with a port.
inline CZoIPAddr Address(const char* text, int port = 0) {
  CZoIPAddr addr;
  EXPECT_FALSE(addr.SetAddressString(text).IsError()) << text;
  EXPECT_FALSE(addr.SetPortNumber(port).IsError());
  return addr;
}

inline CZoIPAddr Loopback4(int port = 0) { return Address("127.0.0.1", port); }

// listener listening on 127.0.0.1 with a port the system picked; where gets
// that address.
inline void ListenOnLoopback(CZoSocket& listener, CZoIPAddr& where) {
  ASSERT_FALSE(listener.Bind(Loopback4()).IsError());
  ASSERT_FALSE(listener.Listen(5).IsError());
  ASSERT_FALSE(listener.GetLocalAddress(where).IsError());
}

// accepted is the server end of client's connection: its peer is client's
// own address and port.
inline ::testing::AssertionResult AcceptedFrom(CZoSocket& accepted, CZoSocket& client) {
  CZoIPAddr clientSide;
  CZoIPAddr peer;
  if (client.GetLocalAddress(clientSide).IsError()) return ::testing::AssertionFailure() << "client has no address";
  if (accepted.GetPeerAddress(peer).IsError()) return ::testing::AssertionFailure() << "accepted has no peer";
  if (!(peer == clientSide) || peer.GetPortNumber() != clientSide.GetPortNumber()) {
    return ::testing::AssertionFailure() << "peer port " << peer.GetPortNumber() << ", client port "
                                         << clientSide.GetPortNumber();
  }
  return ::testing::AssertionSuccess();
}

// The text of the first entry, where the error was made.
inline std::string FirstEntry(const CZoError& error) {
  return error.IsError() ? error.GetItem(0)->AsString() : std::string("(success)");
}

// The error has code, and its first entry's text starts with start.
inline ::testing::AssertionResult ErrorStartsWith(const CZoError& error, long code, const std::string& start) {
  if (!error.IsError()) return ::testing::AssertionFailure() << "no error";
  if (error.GetErrorCode() != code)
    return ::testing::AssertionFailure() << "code " << error.GetErrorCode() << ", wanted " << code << "\n"
                                         << error.AsString();
  const std::string first = FirstEntry(error);
  if (first.compare(0, start.size(), start) != 0)
    return ::testing::AssertionFailure() << "first entry '" << first << "', wanted it to start with '" << start << "'";
  return ::testing::AssertionSuccess();
}

// Made at function ("Class::Method") with that message.
inline ::testing::AssertionResult HasMessage(const CZoError& error, long code, const char* function,
                                             const char* message) {
  return ErrorStartsWith(error, code, std::string(function) + ": " + message + " (");
}

// A state error (ZONET_ERR_INVALID_STATE) made at function with that message.
inline ::testing::AssertionResult IsState(const CZoError& error, const char* function, const char* message) {
  return HasMessage(error, ZONET_ERR_INVALID_STATE, function, message);
}

// A system error made at function, without a message of its own.
inline ::testing::AssertionResult IsSystem(const CZoError& error, long code, const char* function) {
  return ErrorStartsWith(error, code, std::string(function) + " (");
}

}  // namespace zotest

#endif  // ZONET_TESTS_ZOSOCKETTESTSUPPORT_H
