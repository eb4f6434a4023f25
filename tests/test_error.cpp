// CZoError, its entries and the factories of each domain.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ZoUtils/ZoError.h"

using namespace FXErrorUtil;

namespace {

CZoError FailDeep() { return ErrorWin32(FXLOC("Inner::Fail"), ZONET_ERR_INVALID_STATE, "Socket receive timed out"); }

CZoError PassUp() {
  CZoError error = FailDeep();
  if (error.IsError()) return error.Push(FXLOC("Outer::PassUp"));
  return CZoError::Success();
}

}  // namespace

TEST(Error, SuccessIsNoErrorAndNotNegative) {
  CZoError ok = CZoError::Success();
  EXPECT_FALSE(ok.IsError());
  EXPECT_GE(ok.GetErrorCode(), 0);
  EXPECT_TRUE(ok.Is(ok.GetErrorCode()));
  EXPECT_EQ(ok.Is(0), ok.GetErrorCode() == 0);
  EXPECT_EQ(ok.GetItemCount(), 0u);
  EXPECT_EQ(ok.AsString(), "Success");
}

TEST(Error, CodeAndFirstEntry) {
  CZoError error = ErrorWin32(FXLOC("CZoSocket::Accept"), ZONET_ERR_INVALID_STATE, "Not a valid socket");
  EXPECT_TRUE(error.IsError());
  EXPECT_EQ(error.GetErrorCode(), ZONET_ERR_INVALID_STATE);
  EXPECT_TRUE(error.Is(ZONET_ERR_INVALID_STATE));
  EXPECT_TRUE(error.IsNot(ZONET_ERR_INVALID_PARAMETER));
  ASSERT_EQ(error.GetItemCount(), 1u);
  EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocket::Accept");
  EXPECT_NE(error.AsString().find("Not a valid socket"), std::string::npos);
  EXPECT_NE(error.AsString().find("CZoSocket::Accept"), std::string::npos);
}

TEST(Error, PushReturnsTheSameObjectAndKeepsTheCode) {
  CZoError error = ErrorWin32(FXLOC("A::B"), ZONET_ERR_INVALID_PARAMETER);
  CZoError& pushed = error.Push(FXLOC("C::D"));
  EXPECT_EQ(&pushed, &error);
  error.Push(FXLOC("E::F"), "with text %d", 42);
  EXPECT_EQ(error.GetErrorCode(), ZONET_ERR_INVALID_PARAMETER);
  ASSERT_EQ(error.GetItemCount(), 3u);
  EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "A::B");
  EXPECT_STREQ(error.GetItem(2)->GetLocation().GetFunction(), "E::F");
  EXPECT_NE(error.GetItem(2)->AsString().find("with text 42"), std::string::npos);
}

TEST(Error, ReturnedPushBuildsTheResultThroughTheCopyConstructor) {
  CZoError error = PassUp();
  EXPECT_TRUE(error.Is(ZONET_ERR_INVALID_STATE));
  ASSERT_EQ(error.GetItemCount(), 2u);
  std::string text = error.AsString();
  // Chain order: where it was made first, then the way up.
  size_t inner = text.find("Inner::Fail");
  size_t outer = text.find("Outer::PassUp");
  ASSERT_NE(inner, std::string::npos);
  ASSERT_NE(outer, std::string::npos);
  EXPECT_LT(inner, outer);
  EXPECT_NE(text.find("Socket receive timed out"), std::string::npos);
}

TEST(Error, PushOnACopyLeavesTheOriginal) {
  CZoError a = ErrorWin32(FXLOC("A::B"), ZONET_ERR_NOT_SOCKET);
  CZoError b = a;
  b.Push(FXLOC("C::D"));
  EXPECT_EQ(a.GetItemCount(), 1u);
  EXPECT_EQ(b.GetItemCount(), 2u);
  EXPECT_EQ(a.GetItem(0), b.GetItem(0)) << "copies share their entries";
}

TEST(Error, CopyIsIndependentAndOutlivesItsSource) {
  CZoError* source = new CZoError(ErrorWin32(FXLOC("A::B"), ZONET_ERR_NOT_FOUND, "URL not found"));
  source->Push(FXLOC("C::D"));
  CZoError copy = source->Copy();
  EXPECT_NE(copy.GetItem(0), source->GetItem(0)) << "Copy clones the entries";
  std::string before = source->AsString();
  delete source;
  EXPECT_EQ(copy.AsString(), before);
  EXPECT_TRUE(copy.Is(ZONET_ERR_NOT_FOUND));
}

TEST(Error, AssignmentOverAndDiscard) {
  CZoError error = CZoError::Success();
  error = ErrorWin32(FXLOC("A::B"), ZONET_ERR_EMPTY);
  EXPECT_TRUE(error.Is(ZONET_ERR_EMPTY));
  error = CZoError::Success();
  EXPECT_FALSE(error.IsError());
  (void)ErrorWin32(FXLOC("A::B"), ZONET_ERR_EMPTY);  // dropped on purpose: no effect
}

TEST(Error, SystemCodesKeepThePlainNumberAndTheSystemText) {
  CZoError error = ErrorWin32(FXLOC("A::B"), ECONNREFUSED);
  EXPECT_EQ(error.GetErrorCode(), ECONNREFUSED);
  EXPECT_NE(error.AsString().find("Connection refused"), std::string::npos);
  // A negative resolver code travels through the unsigned parameter intact.
  CZoError resolver = ErrorWin32(FXLOC("A::B"), static_cast<unsigned long>(ZONET_ERR_HOST_NOT_FOUND));
  EXPECT_EQ(resolver.GetErrorCode(), EAI_NONAME);
  EXPECT_NE(resolver.AsString().find(gai_strerror(EAI_NONAME)), std::string::npos);
}

TEST(Error, HttpDomainIsNegativeAndRecognised) {
  CZoError e401 = ErrorHttp(FXLOC("CZoHTTP2::SubmitRequest"), 401);
  EXPECT_LT(e401.GetErrorCode(), 0);
  EXPECT_TRUE(IsHttp(e401, 401));
  EXPECT_FALSE(IsHttp(e401, 407));
  EXPECT_TRUE(IsNotHttp(e401, 407));
  EXPECT_FALSE(IsNotHttp(e401, 401));
  EXPECT_FALSE(IsHttp(CZoError::Success(), 401));
  EXPECT_FALSE(IsHttp(ErrorWin32(FXLOC("A::B"), 401), 401)) << "a system 401 is no HTTP status";
  EXPECT_NE(e401.AsString().find("401"), std::string::npos);
}

TEST(Error, ErrNoDomainIsRecognisedOnlyFromItsFactory) {
  CZoError timedOut = ErrorErrNo(FXLOC("CZoSocket::AcceptWithTimeout"), ZONET_ERRNO_TIMEDOUT,
                                 "no connection request received from client within the timeout %d", 3);
  EXPECT_TRUE(IsErrNo(timedOut, ZONET_ERRNO_TIMEDOUT));
  EXPECT_FALSE(IsErrNo(timedOut, ZONET_ERRNO_IO));
  EXPECT_FALSE(IsErrNo(ErrorWin32(FXLOC("A::B"), ZONET_ERRNO_TIMEDOUT), ZONET_ERRNO_TIMEDOUT));
  EXPECT_GE(timedOut.GetErrorCode(), 0);
  EXPECT_NE(timedOut.AsString().find("within the timeout 3"), std::string::npos);
}

TEST(Error, DomainsDoNotCollide) {
  std::vector<CZoError> made = {ErrorWin32(FXLOC("A::B"), 5), ErrorErrNo(FXLOC("A::B"), 5, "x"),
                                ErrorInt(FXLOC("A::B"), 5, "x"), ErrorXNResult(FXLOC("A::B"), 5, "x"),
                                ErrorHttp(FXLOC("A::B"), 5)};
  for (size_t i = 0; i < made.size(); ++i) {
    for (size_t j = i + 1; j < made.size(); ++j) EXPECT_NE(made[i].GetErrorCode(), made[j].GetErrorCode());
  }
  // The curl domain's pattern stays free: bits 16 to 27 equal to 0xDD0.
  for (const CZoError& e : made) {
    uint32_t code = static_cast<uint32_t>(e.GetErrorCode());
    EXPECT_NE((code >> 16) & 0xFFF, 0xDD0u);
  }
  for (int status : {100, 200, 401, 407, 599}) {
    uint32_t code = static_cast<uint32_t>(ErrorHttp(FXLOC("A::B"), status).GetErrorCode());
    EXPECT_NE((code >> 16) & 0xFFF, 0xDD0u);
  }
}

TEST(Error, NullFormatIsHarmless) {
  CZoError error = ErrorInt(FXLOC("A::B"), 101, nullptr);
  EXPECT_TRUE(error.IsError());
  error.Push(FXLOC("C::D"), nullptr);
  EXPECT_EQ(error.GetItemCount(), 2u);
}

TEST(Error, FullFormatAddsFileAndLine) {
  CZoError error = ErrorWin32(FXLOC("A::B"), ZONET_ERR_INVALID_PARAMETER);
  std::string brief = error.GetItem(0)->AsString(EErrorOutputFormat_Brief);
  std::string full = error.GetItem(0)->AsString(EErrorOutputFormat_Full);
  EXPECT_EQ(brief.find("test_error.cpp"), std::string::npos);
  EXPECT_NE(full.find("test_error.cpp"), std::string::npos);
}

TEST(Error, CloneKeepsTheMostDerivedClass) {
  struct Custom : FXErrorItem {
    explicit Custom(const FXCodeLocation& l) : FXErrorItem(l) {}
    std::string AsString() const override { return FXErrorItem::AsString() + "/custom"; }
    boost::shared_ptr<FXErrorItem> Clone() const override { return boost::shared_ptr<FXErrorItem>(new Custom(*this)); }
  };
  CZoError error(-5, boost::shared_ptr<FXErrorItem>(new Custom(FXLOC("X::Y"))));
  CZoError copy = error.Copy();
  EXPECT_EQ(copy.GetItem(0)->AsString(), "X::Y/custom");
  EXPECT_EQ(copy.GetErrorCode(), -5);
}

// Copying an error while another thread destroys another copy of the same
// chain: the chain's counts must hold. Run under ThreadSanitizer too.
TEST(Error, CopyWhileAnotherThreadDestroysACopy) {
  CZoError shared = ErrorWin32(FXLOC("A::B"), ZONET_ERR_INVALID_STATE, "shared");
  shared.Push(FXLOC("C::D"));
  std::atomic<bool> go{false};
  auto worker = [&](int rounds) {
    while (!go.load()) {
    }
    for (int i = 0; i < rounds; ++i) {
      CZoError mine = shared;  // copy ...
      CZoError other = mine;
      other.Push(FXLOC("E::F"));
      // ... and both destroyed here, while the other thread does the same.
      ASSERT_TRUE(mine.Is(ZONET_ERR_INVALID_STATE));
    }
  };
  std::thread a(worker, 20000), b(worker, 20000);
  go = true;
  a.join();
  b.join();
  EXPECT_EQ(shared.GetItemCount(), 2u);
  EXPECT_EQ(shared.GetItem(0).use_count(), 2) << "the chain's node and the returned pointer";
}
