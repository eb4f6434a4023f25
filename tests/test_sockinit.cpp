// CZoSockInit: one object, one start of the socket layer.
#include <gtest/gtest.h>

#include "flat/FlatPlatform.h"
#include "ZoNetwork/ZoSockInit.h"

TEST(SockInit, InitTwiceStartsOnceAndTheDestructorEndsOnce) {
  int before = zonet_platform::SocketLayerStarts();
  {
    CZoSockInit init;
    EXPECT_FALSE(init.IsInitialised());
    ASSERT_FALSE(init.Init().IsError());
    ASSERT_FALSE(init.Init().IsError());
    EXPECT_TRUE(init.IsInitialised());
    EXPECT_EQ(zonet_platform::SocketLayerStarts(), before + 1);
  }
  EXPECT_EQ(zonet_platform::SocketLayerStarts(), before);
}

TEST(SockInit, CleanUpWithoutInitDoesNothing) {
  int before = zonet_platform::SocketLayerStarts();
  CZoSockInit init;
  init.CleanUp();
  init.CleanUp();
  EXPECT_EQ(zonet_platform::SocketLayerStarts(), before);
  EXPECT_FALSE(init.IsInitialised());
}

TEST(SockInit, AssignmentCopiesTheFlagSoBothWouldEndIt) {
  int before = zonet_platform::SocketLayerStarts();
  {
    CZoSockInit a;
    ASSERT_FALSE(a.Init().IsError());
    CZoSockInit b;
    b = a;
    EXPECT_TRUE(b.IsInitialised());
    b.CleanUp();
    EXPECT_EQ(zonet_platform::SocketLayerStarts(), before);
    // a still holds its flag and ends once more: the count goes below where it
    // started, which is why a host keeps one object per start.
  }
  EXPECT_EQ(zonet_platform::SocketLayerStarts(), before - 1);
  zonet_platform::SocketLayerStart();  // restores the balance for the rest of the run
  EXPECT_EQ(zonet_platform::SocketLayerStarts(), before);
}
