// CZoSocket::AcceptWithTimeout over loopback TCP.
#include <errno.h>
#include <sys/socket.h>

#include <chrono>
#include <string>
#include <thread>

#include <cstdio>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoSocket.h"
#include "objects/ObjectsInternal.h"
#include "support/TestSupport.h"
#include "support/ZoSocketTestSupport.h"

namespace {

using zotest::FirstEntry;
using zotest::Loopback4;

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

struct WaitHook {
  ~WaitHook() { zonet_internal::SetSelectorWaitFailure(0, 0); }
};

}  // namespace

TEST(AcceptWithTimeout, NoClientInTimeIsTheCLibraryTimeOutWithItsMessage) {
  zotest::FdLeakCheck leaks;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  CZoSocket accepted;
  int timedOut = 0;
  const auto start = std::chrono::steady_clock::now();
  CZoError error = listener.AcceptWithTimeout(accepted, 1, &timedOut);
  const auto waited = std::chrono::steady_clock::now() - start;
  ASSERT_TRUE(error.IsError());
  EXPECT_TRUE(FXErrorUtil::IsErrNo(error, ZONET_ERRNO_TIMEDOUT)) << error.AsString();
  EXPECT_EQ(FirstEntry(error).rfind("CZoSocket::AcceptWithTimeout: "
                               "no connection request received from client within the timeout 1 (",
                               0),
            0u)
      << FirstEntry(error);
  EXPECT_EQ(timedOut, 1);
  EXPECT_FALSE(accepted.IsValid());
  // One wait of the whole second, not a whole-second clock.
  EXPECT_GE(waited, std::chrono::milliseconds(900));
  EXPECT_LT(waited, std::chrono::milliseconds(1900));
  listener.Close();
}

TEST(AcceptWithTimeout, AcceptsAClientThatIsAlreadyWaiting) {
  zotest::FdLeakCheck leaks;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  CZoSocket client;
  ASSERT_FALSE(client.Connect(where).IsError());
  CZoSocket accepted;
  int timedOut = 7;
  CZoError error = listener.AcceptWithTimeout(accepted, 5, &timedOut);
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(timedOut, 0);
  ASSERT_TRUE(accepted.IsValid());
  EXPECT_TRUE(zotest::AcceptedFrom(accepted, client));
  accepted.Close();
  client.Close();
  listener.Close();
}

TEST(AcceptWithTimeout, AcceptsAClientThatComesDuringTheWait) {
  zotest::FdLeakCheck leaks;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  CZoSocket client;
  CZoError connected = CZoError::Success();
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    connected = client.Connect(where);
  });
  CZoSocket accepted;
  int timedOut = 7;
  CZoError error = listener.AcceptWithTimeout(accepted, 5, &timedOut);
  late.join();
  ASSERT_FALSE(connected.IsError()) << connected.AsString();
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(timedOut, 0);
  EXPECT_TRUE(accepted.IsValid());
  accepted.Close();
  client.Close();
  listener.Close();
}

TEST(AcceptWithTimeout, ZeroOrNegativeTimeoutBlocksInAcceptAndLeavesTimedOutAtZero) {
  zotest::FdLeakCheck leaks;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  for (int timeout : {0, -3}) {
    CZoSocket client;
    ASSERT_FALSE(client.Connect(where).IsError());
    CZoSocket accepted;
    int timedOut = 7;
    ASSERT_FALSE(listener.AcceptWithTimeout(accepted, timeout, &timedOut).IsError());
    EXPECT_EQ(timedOut, 0);
    EXPECT_TRUE(accepted.IsValid());
    accepted.Close();
    client.Close();
  }
  listener.Close();
}

TEST(AcceptWithTimeout, NullTimedOutIsAnInvalidParameter) {
  zotest::FdLeakCheck leaks;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  CZoSocket accepted;
  for (int timeout : {0, 1}) {
    CZoError error = listener.AcceptWithTimeout(accepted, timeout, nullptr);
    EXPECT_TRUE(error.Is(ZONET_ERR_INVALID_PARAMETER)) << error.AsString();
    EXPECT_TRUE(Contains(FirstEntry(error),
                         "CZoSocket::AcceptWithTimeout: Invalid input parameter, pnTimedOut is NULL ("))
        << FirstEntry(error);
  }
  listener.Close();
}

TEST(AcceptWithTimeout, WithoutALimitTheAcceptsOwnChecksApply) {
  zotest::FdLeakCheck leaks;
  CZoSocket invalid;
  CZoSocket accepted;
  int timedOut = 7;
  CZoError error = invalid.AcceptWithTimeout(accepted, 0, &timedOut);
  EXPECT_TRUE(error.Is(ZONET_ERR_INVALID_STATE));
  EXPECT_TRUE(Contains(FirstEntry(error), "CZoSocket::Accept: Not a listening socket")) << FirstEntry(error);
  EXPECT_EQ(timedOut, 0);

  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  CZoSocket open;
  ASSERT_FALSE(open.Socket(Loopback4()).IsError());
  error = listener.AcceptWithTimeout(open, 0, &timedOut);
  EXPECT_TRUE(Contains(FirstEntry(error), "Output socket object is already a connected socket")) << FirstEntry(error);
  open.Close();
  listener.Close();
}

// Urgent data on a connected socket is an exception condition, which the
// wait reports before any accept is tried.
TEST(AcceptWithTimeout, AnExceptionOnTheSocketIsTheCLibraryIOError) {
  zotest::FdLeakCheck leaks;
  CZoSocket first;
  CZoSocket second;
  ASSERT_FALSE(CZoSocket::CreateSocketPair(&first, &second).IsError());
  int sent = 0;
  ASSERT_FALSE(first.Send("!", 1, MSG_OOB, &sent).IsError());
  CZoSocket accepted;
  int timedOut = 7;
  CZoError error = second.AcceptWithTimeout(accepted, 2, &timedOut);
  ASSERT_TRUE(error.IsError());
  EXPECT_TRUE(FXErrorUtil::IsErrNo(error, ZONET_ERRNO_IO)) << error.AsString();
  char handle[32];
  std::snprintf(handle, sizeof handle, "0x%016llX",
                static_cast<unsigned long long>(static_cast<uint64_t>(second.GetSocketDescriptor())));
  const std::string expected = "CZoSocket::AcceptWithTimeout: exception detected on socket " + std::string(handle) + " (";
  EXPECT_EQ(FirstEntry(error).rfind(expected, 0), 0u) << FirstEntry(error);
  EXPECT_EQ(timedOut, 0);
  EXPECT_FALSE(accepted.IsValid());
  first.Close();
  second.Close();
}

TEST(AcceptWithTimeout, AFailedWaitIsPushedWithSelectCallFailed) {
  zotest::FdLeakCheck leaks;
  WaitHook hook;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  zonet_internal::SetSelectorWaitFailure(EINTR, EINTR);
  CZoSocket accepted;
  int timedOut = 7;
  CZoError error = listener.AcceptWithTimeout(accepted, 1, &timedOut);
  ASSERT_TRUE(error.Is(EINTR)) << error.AsString();
  ASSERT_EQ(error.GetItemCount(), 2u);
  EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocketSelector::Select");
  EXPECT_TRUE(Contains(error.GetItem(1)->AsString(), "CZoSocket::AcceptWithTimeout: select call failed"))
      << error.AsString();
  EXPECT_EQ(timedOut, 0);
  listener.Close();
}

// A wait that failed without a last error passes for success. A failed
// select leaves its sets as they were given, so the exception group still
// holds the registered socket and the wait reads as an exception.
TEST(AcceptWithTimeout, AFailedWaitWithoutALastErrorReadsAsAnException) {
  zotest::FdLeakCheck leaks;
  WaitHook hook;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  zonet_internal::SetSelectorWaitFailure(EINTR, 0);
  CZoSocket accepted;
  int timedOut = 7;
  CZoError error = listener.AcceptWithTimeout(accepted, 1, &timedOut);
  EXPECT_TRUE(FXErrorUtil::IsErrNo(error, ZONET_ERRNO_IO)) << error.AsString();
  EXPECT_EQ(error.GetItemCount(), 1u);
  EXPECT_EQ(timedOut, 0);
  EXPECT_FALSE(accepted.IsValid());
  listener.Close();
}
