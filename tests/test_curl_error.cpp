// The error domain of curl failures: its bit layout, the read-back and the
// texts of its two chain entries.
#include <gtest/gtest.h>

#include <string>

#include "ZoNetwork/XnCURLError.h"
#include "ZoUtils/ZoString.h"

using namespace XnCURL;

namespace {

std::string LastText(const CZoError& e) { return e.GetItem(e.GetItemCount() - 1)->AsString(); }

}  // namespace

TEST(CurlError, CodeSevenLiesInTheDomain) {
  CZoError e = ErrorXnCURL(FXLOC("Test::Seven"), 7);
  EXPECT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), static_cast<int32_t>(0xEDD00007u));
  EXPECT_EQ(GetXnCURL(e), 7);
  EXPECT_TRUE(IsXnCURL(e, 7));
  EXPECT_FALSE(IsXnCURL(e, 6));
  EXPECT_FALSE(IsNotXnCURL(e, 7));
  EXPECT_TRUE(IsNotXnCURL(e, 6));
  EXPECT_LT(e.GetErrorCode(), 0) << "negative by its top bit";
}

TEST(CurlError, CodeZeroIsAnErrorAllTheSame) {
  CZoError e = ErrorXnCURL(FXLOC("Test::Zero"), 0);
  EXPECT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), static_cast<int32_t>(0xEDD00000u));
  EXPECT_EQ(GetXnCURL(e), 0);
  EXPECT_TRUE(IsXnCURL(e, 0));
}

TEST(CurlError, MinusOneIsAllOnesAndOutsideTheDomain) {
  CZoError e = ErrorXnCURL(FXLOC("Test::MinusOne"), -1, "Failed to get CURL handle");
  EXPECT_EQ(e.GetErrorCode(), -1);
  EXPECT_EQ(GetXnCURL(e), -1);
  EXPECT_TRUE(IsXnCURL(e, -1));
  EXPECT_EQ(LastText(e), "Test::MinusOne/XnCURL.-1.0xFFFFFFFF-Failed to get CURL handle");
}

TEST(CurlError, ACodeAboveSixteenBitsRunsIntoTheDomainBits) {
  // Bit 20 is already set in the pattern: ORed in, it changes nothing, and the
  // read-back gives a different number than the one made.
  CZoError inside = ErrorXnCURL(FXLOC("Test::Big"), 0x100007);
  EXPECT_EQ(GetXnCURL(inside), 7);
  // Bit 16 is clear in the pattern: the code leaves the domain.
  CZoError outside = ErrorXnCURL(FXLOC("Test::Big"), 0x10007);
  EXPECT_EQ(GetXnCURL(outside), -1);
  EXPECT_EQ(outside.GetErrorCode(), static_cast<int32_t>(0xEDD10007u));
}

TEST(CurlError, ForeignErrorsAndSuccess) {
  CZoError win = FXErrorUtil::ErrorWin32(FXLOC("Test::Foreign"), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(GetXnCURL(win), -1);
  EXPECT_FALSE(IsXnCURL(win, ZONET_ERR_INVALID_PARAMETER));
  EXPECT_EQ(IsNotXnCURL(win, 7), win.IsNot(static_cast<long>(static_cast<int32_t>(0xEDD00007u))));
  EXPECT_TRUE(IsNotXnCURL(win, 7));
  CZoError internal = FXErrorUtil::ErrorInt(FXLOC("Test::Foreign"), 1, "text");
  EXPECT_EQ(GetXnCURL(internal), -1);
  CZoError http = FXErrorUtil::ErrorHttp(FXLOC("Test::Foreign"), 404);
  EXPECT_EQ(GetXnCURL(http), -1) << "negative, but not of the pattern";
  EXPECT_EQ(GetXnCURL(CZoError::Success()), 0);
  EXPECT_FALSE(IsXnCURL(CZoError::Success(), 7));
  EXPECT_TRUE(IsNotXnCURL(CZoError::Success(), 7));
}

TEST(CurlError, AnEmptyFormatGivesNoDescription) {
  const char* empty = "";  // through a variable: the compiler would warn of a literal
  CZoError e = ErrorXnCURL(FXLOC("Test::Plain"), 7, empty);
  EXPECT_EQ(LastText(e), "Test::Plain/XnCURL.7.0x7");
  CZoError n = ErrorXnCURL(FXLOC("Test::Plain"), 7, nullptr);
  EXPECT_EQ(LastText(n), "Test::Plain/XnCURL.7.0x7");
  EXPECT_EQ(LastText(ErrorXnCURL(FXLOC("Test::Plain"), 28)), "Test::Plain/XnCURL.28.0x1C");
}

TEST(CurlError, ADescriptionFollowsAHyphen) {
  CZoError e = ErrorXnCURL(FXLOC("Test::Text"), 7, "Failed to set option [%d]", 10010);
  EXPECT_EQ(LastText(e), "Test::Text/XnCURL.7.0x7-Failed to set option [10010]");
  auto item = boost::dynamic_pointer_cast<FXErrorItemXnCURLDescription>(e.GetItem(0));
  ASSERT_TRUE(item);
  EXPECT_EQ(item->GetCode(), 7);
  EXPECT_EQ(item->GetDescription(), "Failed to set option [10010]");
  EXPECT_NE(item->AsString(EErrorOutputFormat_Full).find("Test::Text/XnCURL.7.0x7-Failed"), std::string::npos);
}

TEST(CurlError, PushKeepsTheErrorsOwnCode) {
  CZoError e = FXErrorUtil::ErrorWin32(FXLOC("Test::Win"), ZONET_ERR_INVALID_STATE);
  CZoError& same = PushXnCURL(e, FXLOC("Test::Push"), 7);
  EXPECT_EQ(&same, &e);
  EXPECT_TRUE(e.Is(ZONET_ERR_INVALID_STATE));
  EXPECT_EQ(GetXnCURL(e), -1);
  EXPECT_EQ(LastText(e), "Test::Push/XnCURL.7.0x7");
  PushXnCURL(e, FXLOC("Test::Push"), 35, "handshake [%s]", "failed");
  EXPECT_EQ(LastText(e), "Test::Push/XnCURL.35.0x23-handshake [failed]");
  const char* empty = "";
  PushXnCURL(e, FXLOC("Test::Push"), 6, empty);
  EXPECT_EQ(LastText(e), "Test::Push/XnCURL.6.0x6");
  EXPECT_EQ(e.GetItemCount(), 4u);

  // On an error of the domain the code stays the first one's.
  CZoError c = ErrorXnCURL(FXLOC("Test::Curl"), 7);
  PushXnCURL(c, FXLOC("Test::Push"), 28, "later");
  EXPECT_EQ(GetXnCURL(c), 7);
  EXPECT_TRUE(IsXnCURL(c, 7));
}

TEST(CurlError, ACloneReadsExactlyLikeTheEntry) {
  CZoError e = ErrorXnCURL(FXLOC("Test::Clone"), 22, "HTTP [%d]", 404);
  boost::shared_ptr<FXErrorItem> item = e.GetItem(0);
  boost::shared_ptr<FXErrorItem> copy = item->Clone();
  EXPECT_NE(copy.get(), item.get());
  EXPECT_EQ(copy->AsString(), item->AsString());
  EXPECT_TRUE(boost::dynamic_pointer_cast<FXErrorItemXnCURLDescription>(copy));
  CZoError plain = ErrorXnCURL(FXLOC("Test::Clone"), 22);
  boost::shared_ptr<FXErrorItem> plainCopy = plain.GetItem(0)->Clone();
  EXPECT_EQ(plainCopy->AsString(), "Test::Clone/XnCURL.22.0x16");
  EXPECT_FALSE(boost::dynamic_pointer_cast<FXErrorItemXnCURLDescription>(plainCopy));
  CZoError copied = e.Copy();
  EXPECT_EQ(LastText(copied), LastText(e));
}

TEST(CurlError, ATextTooLongBeginsWithBufferOverflow) {
  std::string big(FXString::kMaxFormattedLength + 100, 'x');
  CZoError e = ErrorXnCURL(FXLOC("Test::Long"), 7, "%s", big.c_str());
  std::string text = LastText(e);
  const std::string head = "Test::Long/XnCURL.7.0x7-[BUFFEROVERFLOW] xxx";
  EXPECT_EQ(text.compare(0, head.size(), head), 0) << text.substr(0, 80);
  EXPECT_EQ(GetXnCURL(e), 7);
  CZoError pushed = ErrorXnCURL(FXLOC("Test::Long"), 1);
  PushXnCURL(pushed, FXLOC("Test::Long"), 2, "%s", big.c_str());
  EXPECT_NE(LastText(pushed).find("-[BUFFEROVERFLOW] xxx"), std::string::npos);
}
