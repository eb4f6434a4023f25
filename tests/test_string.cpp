// CZoString and FXString.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ZoUtils/ZoString.h"

TEST(ZoString, ConstructionAndNullText) {
  CZoString empty;
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_STREQ(empty.c_str(), "");
  CZoString fromNull(static_cast<const char*>(nullptr));
  EXPECT_STREQ(static_cast<const char*>(fromNull), "");
  EXPECT_TRUE(fromNull == "");
  EXPECT_TRUE(fromNull == nullptr);
  CZoString text("hello");
  EXPECT_EQ(text.Length(), 5u);
  CZoString copy(text);
  EXPECT_TRUE(copy == "hello");
}

TEST(ZoString, AssignAndConcatenate) {
  CZoString a("ab");
  CZoString b;
  b = a;
  b = b;  // self-assignment keeps the text
  EXPECT_TRUE(b == "ab");
  b = "xyz";
  EXPECT_TRUE(b == "xyz");
  CZoString c = a + b;
  EXPECT_TRUE(c == "abxyz");
  EXPECT_TRUE(a + "!" == "ab!");
  EXPECT_TRUE("<" + a == "<ab");
  a += b;
  a += "1";
  EXPECT_TRUE(a == "abxyz1");
  a += a;
  EXPECT_TRUE(a == "abxyz1abxyz1");
  a = a.c_str() + 6;  // from its own buffer
  EXPECT_TRUE(a == "abxyz1");
}

TEST(ZoString, IndexByValue) {
  CZoString s("abc");
  EXPECT_EQ(s[0], 'a');
  EXPECT_EQ(s[2], 'c');
  EXPECT_EQ(s[3], '\0');
  EXPECT_EQ(s[100], '\0');
}

TEST(ZoString, SlashAndLastCharacter) {
  CZoString s("http://host");
  s.AppendForwardSlash();
  EXPECT_TRUE(s == "http://host/");
  s.AppendForwardSlash();
  EXPECT_TRUE(s == "http://host/");
  CZoString e;
  e.AppendForwardSlash();
  EXPECT_TRUE(e == "/");
  s.CheckAndRemoveLastCharacter('/');
  EXPECT_TRUE(s == "http://host");
  s.CheckAndRemoveLastCharacter('/');
  EXPECT_TRUE(s == "http://host");
  s.ChopAt(4);
  EXPECT_TRUE(s == "http");
  s.ChopAt(99);
  EXPECT_TRUE(s == "http");
  s.Clear();
  EXPECT_TRUE(s.IsEmpty());
}

TEST(ZoString, FindAndReverseFind) {
  CZoString s("a/b/c");
  EXPECT_EQ(s.Find('/', 0), 1);
  EXPECT_EQ(s.Find('/', 2), 3);
  EXPECT_LT(s.Find('x', 0), 0);
  EXPECT_LT(s.Find('a', 99), 0);
  char needle[] = "b/";
  EXPECT_EQ(s.Find(needle, 0), 2);
  EXPECT_LT(s.Find(needle, 3), 0);
  EXPECT_LT(s.Find(static_cast<char*>(nullptr), 0), 0);
  EXPECT_EQ(s.ReverseFind('/', 0), 3) << "start 0 searches from the end";
  EXPECT_EQ(s.ReverseFind('/', 2), 1);
  EXPECT_LT(s.ReverseFind('x', 0), 0);
  EXPECT_LT(CZoString().ReverseFind('/', 0), 0);
}

TEST(ZoString, SubStrAndToUpper) {
  CZoString s("upload.asp");
  EXPECT_TRUE(s.SubStr(0, 6) == "upload");
  EXPECT_TRUE(s.SubStr(7, static_cast<size_t>(-1)) == "asp");
  EXPECT_TRUE(s.SubStr(7, 100) == "asp");
  EXPECT_TRUE(s.SubStr(100, 1) == "");
  EXPECT_TRUE(s.ToUpper() == "UPLOAD.ASP");
  EXPECT_TRUE(s == "upload.asp");
}

TEST(ZoString, DirectFilling) {
  CZoString s("keep");
  ASSERT_TRUE(s.AllocateBuffer(64));
  EXPECT_GE(s.GetAllocatedSize(), 64u);
  EXPECT_TRUE(s == "keep");
  std::strcpy(s.GetBuffer(), "filled directly");
  EXPECT_EQ(s.ReCalculateLength(), 15u);
  EXPECT_TRUE(s == "filled directly");
  // A buffer filled to its end without a NUL is still terminated.
  std::memset(s.GetBuffer(), 'x', s.GetAllocatedSize());
  EXPECT_EQ(s.ReCalculateLength(), s.GetAllocatedSize());
  EXPECT_EQ(std::strlen(s.c_str()), s.GetAllocatedSize());
  CZoString fresh;
  ASSERT_NE(fresh.GetBuffer(), nullptr);
  EXPECT_EQ(fresh.ReCalculateLength(), 0u);
}

TEST(FXString, Format) {
  EXPECT_EQ(FXString::Format("%s=[%d]", "Module", 7), "Module=[7]");
  std::string big(1000, 'a');
  EXPECT_EQ(FXString::Format("%s", big.c_str()), big);
}

// A pointer prints as on the designed platform: 16 upper-case hexadecimal
// digits, null included; every other conversion as the C library prints it.
TEST(FXString, PointersPrintAsSixteenUpperCaseHexDigits) {
  EXPECT_EQ(FXString::Format("0x%p", reinterpret_cast<void*>(0x1a)), "0x000000000000001A");
  EXPECT_EQ(FXString::Format("0x%p", static_cast<void*>(nullptr)), "0x0000000000000000");
  EXPECT_EQ(FXString::Format("[%p]", reinterpret_cast<void*>(~uintptr_t(0))), "[FFFFFFFFFFFFFFFF]");
  EXPECT_EQ(FXString::Format("Module=[0x%p], FunctionName=[%s]", reinterpret_cast<void*>(0x7f0012ab34c0), "cos"),
            "Module=[0x00007F0012AB34C0], FunctionName=[cos]");
  // Everything around the pointer keeps its own printf meaning, arguments of
  // every width included.
  const std::string mixed =
      FXString::Format("%d %5.2f|%-4s|%*d|%.*s|%lu %lld %zu %c %hhd %x %#o %e %Lg %% %p %s %ls", -7, 3.14159, "ab", 4,
                       42, 2, "xyz", 123456789012UL, -5LL, size_t(9), 'q', 300, 255, 8, 1.5e10, 2.5L,
                       reinterpret_cast<void*>(0xbeef), "end", L"wide");
  EXPECT_EQ(mixed, "-7  3.14|ab  |  42|xy|123456789012 -5 9 q 44 ff 010 1.500000e+10 2.5 % 000000000000BEEF end wide");
  EXPECT_EQ(FXString::Format("%-20p|", reinterpret_cast<void*>(1)), "0000000000000001    |");
}

namespace {
CZoError FormatVia(std::string& out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  CZoError e = FXString::FormatArgList(out, format, args);
  va_end(args);
  return e;
}
}  // namespace

TEST(FXString, FormatArgListGivesUpPastItsLimitAndKeepsWhatFit) {
  std::string out;
  EXPECT_FALSE(FormatVia(out, "%d-%s", 1, "x").IsError());
  EXPECT_EQ(out, "1-x");
  std::string huge(FXString::kMaxFormattedLength + 10, 'z');
  CZoError e = FormatVia(out, "%s", huge.c_str());
  EXPECT_TRUE(e.Is(ZONET_ERR_NAME_TOO_LONG));
  EXPECT_EQ(out.size(), FXString::kMaxFormattedLength);
  CZoError n = FormatVia(out, nullptr);
  EXPECT_TRUE(n.Is(ZONET_ERR_INVALID_PARAMETER));
}

TEST(FXString, WideAndNarrow) {
  EXPECT_EQ(FXString::ToString(L"plain"), "plain");
  EXPECT_EQ(FXString::ToWstring("plain"), L"plain");
  std::wstring wide = L"gr\u00fc\u00dfe \u20ac \U0001F600";
  std::string narrow = FXString::ToString(wide);
  EXPECT_EQ(narrow, "gr\xc3\xbc\xc3\x9f" "e \xe2\x82\xac \xf0\x9f\x98\x80");
  EXPECT_EQ(FXString::ToWstring(narrow), wide);
  EXPECT_EQ(FXString::ToString(static_cast<const wchar_t*>(nullptr)), "");
  EXPECT_EQ(FXString::ToWstring(static_cast<const char*>(nullptr)), L"");
  // Broken sequences become U+FFFD, never a crash.
  EXPECT_EQ(FXString::ToWstring(std::string("a\xff" "b")), L"a\ufffd" L"b");
  EXPECT_EQ(FXString::ToWstring(std::string("\xe2\x82")), L"\ufffd");
  EXPECT_EQ(FXString::ToWstring(std::string("\xc0\xaf")), L"\ufffd") << "overlong form";
}

TEST(FXString, LowerSplitRemoveReplaceTrim) {
  std::string s = "MiXeD 123";
  FXString::ToLower(s);
  EXPECT_EQ(s, "mixed 123");

  std::vector<std::string> pieces = {"stale"};
  FXString::Split("a,,b,", ",", pieces, 0);
  EXPECT_EQ(pieces, (std::vector<std::string>{"a", "", "b", ""}));
  FXString::Split("a--b", "--", pieces, 0);
  EXPECT_EQ(pieces, (std::vector<std::string>{"a", "b"}));
  FXString::Split("whole", "", pieces, 0);
  EXPECT_EQ(pieces, (std::vector<std::string>{"whole"}));

  std::string name = "file.txt";
  EXPECT_TRUE(FXString::RemoveRight(name, ".txt"));
  EXPECT_EQ(name, "file");
  EXPECT_FALSE(FXString::RemoveRight(name, ".txt"));
  EXPECT_FALSE(FXString::RemoveRight(name, "longer than the text"));

  std::string r = "a b a b";
  EXPECT_EQ(FXString::ReplaceAll(r, "a", "aa", 0), 2) << "replacement text is not searched again";
  EXPECT_EQ(r, "aa b aa b");
  EXPECT_EQ(FXString::ReplaceAll(r, "b", "", 5), 1);
  EXPECT_EQ(r, "aa b aa ");
  EXPECT_EQ(FXString::ReplaceAll(r, "", "x", 0), 0);

  std::string t = "line\r\n \t";
  FXString::TrimRight(t, " \t\r\n");
  EXPECT_EQ(t, "line");
  std::string all = "   ";
  FXString::TrimRight(all, " ");
  EXPECT_EQ(all, "");
}
