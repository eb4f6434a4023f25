// The two listing parsers on saved files: a web server's directory page
// (XnHTTPReq) and a name listing (XnFTPReq, XnSFTPReq), every case of their
// rules, and the scan of a large page in linear time.
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "curl/FtpSupport.h"
#include "curl/RequestSupport.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

using namespace XnCURL;
using namespace zotest_curl;

namespace {

const char kInvalid[] = "Invalid HTTP Reponse. Parsing the reponse file failed.";

std::vector<std::string> Names(const std::vector<FileDirInfo>& entries) {
  std::vector<std::string> names;
  for (const FileDirInfo& e : entries) names.push_back(e.m_name);
  return names;
}

using Strings = std::vector<std::string>;

class HttpListing : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_FALSE(request.initialize(0).IsError()); }
  // Parses page with parentLink; the names, or the error.
  CZoError Parse(const std::string& page, const std::string& parentLink = "") {
    entries.clear();
    return request.Base().collectFilesAndDir(dir.Write("page.html", page), &entries, parentLink);
  }
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  HttpReq request;
  std::vector<FileDirInfo> entries;
};

}  // namespace

// ---- directory pages ----

TEST(HttpListingState, NotInitializedAndNullOutput) {
  zotest::TempDir dir;
  HttpReq request;
  std::vector<FileDirInfo> entries;
  CZoError e = request.Base().collectFilesAndDir(dir.Write("p.html", "<a href=\"/a\">"), &entries, "");
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, "Call initialize function before any other function."));
  ASSERT_FALSE(request.initialize(0).IsError());
  // The pointer is looked at before the file: a missing file gives the
  // pointer's error, not the file's.
  e = request.Base().collectFilesAndDir(dir.File("missing.html"), nullptr, "");
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, "NULL pointer passed for output vector")) << e.AsString();
  EXPECT_FALSE(Contains(e, "Failed to open"));
}

TEST_F(HttpListing, AnEmptyFileAndAPageWithoutLinks) {
  ASSERT_FALSE(Parse("").IsError());
  EXPECT_TRUE(entries.empty());
  ASSERT_FALSE(Parse("<html><body><a name=\"x\">no target</a> HREF= href='/single'</body></html>").IsError());
  EXPECT_TRUE(entries.empty());
}

TEST_F(HttpListing, AMissingFile) {
  CZoError e = request.Base().collectFilesAndDir(dir.File("missing.html"), &entries, "");
  EXPECT_TRUE(e.IsError());
  EXPECT_TRUE(Contains(e, "Failed to open response file.")) << e.AsString();
}

TEST_F(HttpListing, TheParentDirectoryBracketSkipsTheFirstLink) {
  ASSERT_FALSE(Parse("<A HREF=\"/pub/\">[To Parent Directory]</A><br><A HREF=\"/pub/docs/a.txt\">a.txt</A>"
                     "<A HREF=\"/pub/docs/b/\">b</A>")
                   .IsError());
  EXPECT_EQ(Names(entries), (Strings{"a.txt", "b"}));
  EXPECT_EQ(entries[0].m_isFile, 1);
  EXPECT_EQ(entries[1].m_isFile, 0);
  // The bracket text may stand anywhere behind the link, as the first one.
  ASSERT_FALSE(Parse("<A HREF=\"/x/up\">up</A> text <A HREF=\"/x/y\">[To Parent Directory]</A>").IsError());
  EXPECT_EQ(Names(entries), (Strings{"y"}));
}

TEST_F(HttpListing, AnotherBracketTextKeepsTheFirstLinkAndIgnoresTheParentLink) {
  // Both brackets found: parentLink is not consulted even though it matches.
  ASSERT_FALSE(Parse("<A HREF=\"/pub/\">up</A> [11/22/2026 7:00 PM] <A HREF=\"/pub/f\">f</A>", "/pub/").IsError());
  EXPECT_EQ(Names(entries), (Strings{"pub", "f"}));
  // "[To Parent Directory" without its closing bracket counts as not found.
  ASSERT_FALSE(Parse("<A HREF=\"/pub/\">[To Parent Directory</A> <A HREF=\"/pub/f\">f</A>", "/pub/").IsError());
  EXPECT_EQ(Names(entries), (Strings{"f"}));
}

TEST_F(HttpListing, WithoutBracketsTheFirstLinkIsComparedWithTheParentLink) {
  const std::string page = "<a href=\"/up/\">up</a><a href=\"/up/x\">x</a>";
  ASSERT_FALSE(Parse(page, "/up/").IsError());
  EXPECT_EQ(Names(entries), (Strings{"x"}));
  ASSERT_FALSE(Parse(page, "/up").IsError());
  EXPECT_EQ(Names(entries), (Strings{"up", "x"}));
  ASSERT_FALSE(Parse(page, "").IsError());
  EXPECT_EQ(Names(entries), (Strings{"up", "x"}));
}

TEST_F(HttpListing, OnlyTheFirstLinkIsTreatedAsTheParent) {
  ASSERT_FALSE(Parse("<a href=\"/up/a\">a</a><a href=\"/up/\">up</a><a href=\"/up/\">up</a>", "/up/").IsError());
  EXPECT_EQ(Names(entries), (Strings{"a", "up", "up"}));  // duplicates stay
  EXPECT_EQ(entries[1].m_isFile, 0);
}

TEST_F(HttpListing, DirectoriesAndDecodedNames) {
  ASSERT_FALSE(Parse("<A HREF=\"/\">[To Parent Directory]</A><A HREF=\"/a/My%20Docs/\">d</A>"
                     "<A HREF=\"http://host/a/b%2Fc%25.txt\">f</A><A HREF=\"/a/Caps.TXT\">c</A>")
                   .IsError());
  EXPECT_EQ(Names(entries), (Strings{"My Docs", "b/c%.txt", "Caps.TXT"}));
  EXPECT_EQ(entries[0].m_isFile, 0);
  EXPECT_EQ(entries[1].m_isFile, 1);
  EXPECT_EQ(entries[2].m_reserved, 0);
}

TEST_F(HttpListing, WebConfigIsHiddenOnlyInItsExactSpelling) {
  ASSERT_FALSE(Parse("<A HREF=\"/\">[To Parent Directory]</A><A HREF=\"/s/web.config\">w</A>"
                     "<A HREF=\"/s/Web.Config\">W</A><A HREF=\"/s/web%2Econfig\">e</A><A HREF=\"/s/web.config/\">d</A>")
                   .IsError());
  // The decoded name and the directory are compared too.
  EXPECT_EQ(Names(entries), (Strings{"Web.Config"}));
}

TEST_F(HttpListing, ALoneSlashEndsTheParseWithEntriesKept) {
  CZoError e = Parse("<A HREF=\"/\">[To Parent Directory]</A><A HREF=\"/a/b\">b</A><A HREF=\"/\">root</A>"
                     "<A HREF=\"/a/c\">c</A>");
  EXPECT_TRUE(e.Is(IntCode(101))) << e.AsString();
  EXPECT_TRUE(Contains(e, kInvalid));
  EXPECT_EQ(Names(entries), (Strings{"b"}));
}

TEST_F(HttpListing, ARelativeNameAndAnUnterminatedAttributeEndTheParse) {
  CZoError e = Parse("<a href=\"/a/x\">[p]</a><a href=\"/a/y\">y</a><a href=\"sibling.txt\">s</a>");
  EXPECT_TRUE(e.Is(IntCode(101)));
  EXPECT_TRUE(Contains(e, kInvalid));
  EXPECT_EQ(Names(entries), (Strings{"x", "y"}));
  e = Parse("<a href=\"/a/x\">[p]</a><a href=\"/a/never closed");
  EXPECT_TRUE(e.Is(IntCode(101)));
  EXPECT_EQ(Names(entries), (Strings{"x"}));
}

TEST_F(HttpListing, AnEmptyLinkTextThrowsOutOfRange) {
  dir.Write("empty-link.html", "<a href=\"/a/x\">[p]</a><a href=\"/a/y\">y</a><a href=\"\">nothing</a>");
  try {
    (void)request.Base().collectFilesAndDir(dir.File("empty-link.html"), &entries, "");
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid string position");
  }
  EXPECT_EQ(Names(entries), (Strings{"x", "y"}));
  // As the skipped first link it never reaches the last-character step.
  ASSERT_FALSE(Parse("<a href=\"\">up</a><a href=\"/a/y\">y</a>", "").IsError());
  EXPECT_EQ(Names(entries), (Strings{"y"}));
}

TEST_F(HttpListing, LowerCaseLinksAndMixedForms) {
  ASSERT_FALSE(Parse("<a href=\"/d/1\">[x]</a><a href=\"/d/2\">2</a><a href=\"/d/3\">3</a>").IsError());
  EXPECT_EQ(Names(entries), (Strings{"1", "2", "3"}));
  // After each link the next upper-case one is preferred: l1 and l2 stand
  // ahead of an upper-case link and are passed over; l3 stands behind the last.
  ASSERT_FALSE(Parse("<a href=\"/d/l1\">[x]</a><A HREF=\"/d/U1\">u</A><a href=\"/d/l2\">l</a>"
                     "<A HREF=\"/d/U2\">u</A><a href=\"/d/l3\">l</a><a href=\"/d/l4\">l</a>")
                   .IsError());
  EXPECT_EQ(Names(entries), (Strings{"U1", "U2", "l3", "l4"}));
  // The first link read is the first upper-case one, wherever it stands.
  ASSERT_FALSE(Parse("<a href=\"/d/l1\">l</a><A HREF=\"/d/U1\">[To Parent Directory]</A><a href=\"/d/l2\">l</a>")
                   .IsError());
  EXPECT_EQ(Names(entries), (Strings{"l2"}));
}

TEST_F(HttpListing, EntriesAreAppendedInPageOrder) {
  entries.clear();
  entries.push_back(FileDirInfo{"held", 1, 0});
  ASSERT_FALSE(request.Base()
                   .collectFilesAndDir(dir.Write("p.html", "<A HREF=\"/\">[To Parent Directory]</A>"
                                                           "<A HREF=\"/z\">z</A><A HREF=\"/a\">a</A>"),
                                       &entries, "")
                   .IsError());
  EXPECT_EQ(Names(entries), (Strings{"held", "z", "a"}));
}

TEST_F(HttpListing, AZeroByteEndsThePage) {
  std::string page = "<A HREF=\"/\">[To Parent Directory]</A><A HREF=\"/a\">a</A>";
  page += '\0';
  page += "<A HREF=\"/b\">b</A>";
  ASSERT_FALSE(Parse(page).IsError());
  EXPECT_EQ(Names(entries), (Strings{"a"}));
}

TEST_F(HttpListing, AMegabyteOfLowerCaseLinksParsesInLinearTime) {
  // Every name holds "HREF" without the quote behind it, so a scan that looked
  // for the upper-case form from each link to the end of the page would stop
  // at every name: seconds or minutes here, against milliseconds.
  std::string page = "<a href=\"/\">[To Parent Directory]</a>";
  size_t links = 0;
  while (page.size() < (1u << 20)) {
    page += "<a href=\"/d/HREF\">";
    ++links;
  }
  const auto start = std::chrono::steady_clock::now();
  ASSERT_FALSE(Parse(page).IsError());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  ASSERT_EQ(entries.size(), links);
  EXPECT_EQ(entries.back().m_name, "HREF");
  EXPECT_LT(seconds, 1.0);
}

TEST(HttpListingLive, APageFetchedFromTheServerThenParsed) {
  ZOTEST_REQUIRE_TOOL("python3");
  zotest::FdLeakCheck leaks;
  zotest::ScriptedHttpPeer::Reply reply;
  reply.raw = zotest::ScriptedHttpPeer::Response(
      200, "OK", {"Content-Type: text/html"},
      "<html><head><title>localhost - /files/</title></head><body><H1>localhost - /files/</H1><hr>\r\n"
      "<pre><A HREF=\"/\">[To Parent Directory]</A><br><br>"
      " 11/22/2026  7:00 PM        &lt;dir&gt; <A HREF=\"/files/My%20Docs/\">My Docs</A><br>"
      " 11/22/2026  7:01 PM           15 <A HREF=\"/files/report%2B1.txt\">report+1.txt</A><br>"
      " 11/22/2026  7:02 PM          120 <A HREF=\"/files/web.config\">web.config</A><br>"
      "</pre><hr></body></html>\r\n");
  zotest::ScriptedHttpPeer peer({reply});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  request.setURL("localhost");
  request.setPortNumber(std::to_string(peer.Port()));
  const std::string saved = dir.File("page.html");
  FILE* out = fopen(saved.c_str(), "wb");
  request.setWriteFunctionPointer(out, &WriteToFile);
  CZoError e = request.getFilesAndDirsInfoInFile("files");
  fclose(out);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_EQ(RequestLine(peer.Requests()[0]), "GET /files/ HTTP/1.1");
  std::vector<FileDirInfo> entries;
  ASSERT_FALSE(request.Base().collectFilesAndDir(saved, &entries, "").IsError());
  EXPECT_EQ(Names(entries), (Strings{"My Docs", "report+1.txt"}));
  EXPECT_EQ(entries[0].m_isFile, 0);
  EXPECT_EQ(entries[1].m_isFile, 1);
}

// ---- name listings ----

namespace {

template <typename Request>
class NameListing : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_FALSE(request.initialize(0).IsError()); }
  CZoError Parse(const std::string& listing) {
    entries.clear();
    return request.Base().collectFilesAndDir(dir.Write("list.txt", listing), &entries, "ignored");
  }
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  Request request;
  std::vector<FileDirInfo> entries;
};

using Protocols = ::testing::Types<FtpReq, SftpReq>;
TYPED_TEST_SUITE(NameListing, Protocols);

}  // namespace

TYPED_TEST(NameListing, AnEmptyFileAndAZeroByte) {
  ASSERT_FALSE(this->Parse("").IsError());
  EXPECT_TRUE(this->entries.empty());
  ASSERT_FALSE(this->Parse(std::string(1, '\0')).IsError());
  EXPECT_TRUE(this->entries.empty());
  ASSERT_FALSE(this->Parse(std::string("\0a\r\n", 4)).IsError());
  EXPECT_TRUE(this->entries.empty());
}

TYPED_TEST(NameListing, ALoneLineEndIsOneEmptyName) {
  ASSERT_FALSE(this->Parse("\r\n").IsError());
  ASSERT_EQ(this->entries.size(), 1u);
  EXPECT_EQ(this->entries[0].m_name, "");
  ASSERT_FALSE(this->Parse("\n").IsError());
  ASSERT_EQ(this->entries.size(), 1u);
  EXPECT_EQ(this->entries[0].m_name, "");
}

TYPED_TEST(NameListing, TheLastLineWithoutLineEndIsDropped) {
  ASSERT_FALSE(this->Parse("a.txt\r\nb.txt\r\nlast").IsError());
  EXPECT_EQ(Names(this->entries), (Strings{"a.txt", "b.txt"}));
  ASSERT_FALSE(this->Parse("only").IsError());
  EXPECT_TRUE(this->entries.empty());
  ASSERT_FALSE(this->Parse("a\nlast\r").IsError());
  EXPECT_EQ(Names(this->entries), (Strings{"a"}));
}

TYPED_TEST(NameListing, BareLineFeedsAndCarriageReturnsBothEndLines) {
  ASSERT_FALSE(this->Parse("one\ntwo\n\nthree\n").IsError());
  EXPECT_EQ(Names(this->entries), (Strings{"one", "two", "", "three"}));
  ASSERT_FALSE(this->Parse("one\r\ntwo\ntwo b\r\n").IsError());
  EXPECT_EQ(Names(this->entries), (Strings{"one", "two", "two b"}));
  // Only one carriage return before the feed belongs to the line end; a lone
  // one is part of the name.
  ASSERT_FALSE(this->Parse("a\r\r\nb\rc\n").IsError());
  EXPECT_EQ(Names(this->entries), (Strings{"a\r", "b\rc"}));
}

TYPED_TEST(NameListing, NamesAreTakenAsTheyStand) {
  this->entries.clear();
  this->entries.push_back(FileDirInfo{"held", 1, 0});
  ASSERT_FALSE(this->request.Base()
                   .collectFilesAndDir(this->dir.Write("l.txt", ".\r\n..\r\n a b \r\nx%20y\r\nsub/dir\r\nz\r\n"),
                                       &this->entries, "")
                   .IsError());
  EXPECT_EQ(Names(this->entries), (Strings{"held", ".", "..", " a b ", "x%20y", "sub/dir", "z"}));
  EXPECT_EQ(this->entries[0].m_isFile, 1);
  for (size_t i = 1; i < this->entries.size(); ++i) {
    EXPECT_EQ(this->entries[i].m_isFile, 0);
    EXPECT_EQ(this->entries[i].m_reserved, 0);
  }
}

TYPED_TEST(NameListing, ErrorsLeaveTheEntriesAlone) {
  this->entries.assign(1, FileDirInfo{"held", 0, 0});
  CZoError e = this->request.Base().collectFilesAndDir(this->dir.File("missing.txt"), &this->entries, "");
  EXPECT_TRUE(e.IsError());
  EXPECT_TRUE(Contains(e, "Failed to open the response file [" + this->dir.File("missing.txt") + "]")) << e.AsString();
  EXPECT_EQ(this->entries.size(), 1u);
  // A folder opens but cannot be read.
  e = this->request.Base().collectFilesAndDir(this->dir.Path(), &this->entries, "");
  EXPECT_TRUE(e.IsError());
  EXPECT_EQ(this->entries.size(), 1u);
}

TYPED_TEST(NameListing, NullOutputAndNotInitialized) {
  // The pointer is looked at before the file: a missing file is not noticed.
  CZoError e = this->request.Base().collectFilesAndDir(this->dir.File("missing.txt"), nullptr, "");
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, "Null pointer passed for output vector")) << e.AsString();
  TypeParam fresh;
  std::vector<FileDirInfo> entries;
  e = fresh.Base().collectFilesAndDir(this->dir.Write("l.txt", "a\r\n"), &entries, "");
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, "Call initialize function before any other function."));
  EXPECT_TRUE(entries.empty());
}
