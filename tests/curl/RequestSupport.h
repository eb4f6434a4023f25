// What the request tests share: a request object that shows its protected
// state, sinks for bodies and headers, and small readers of raw requests.
#ifndef ZONET_TESTS_CURL_REQUESTSUPPORT_H
#define ZONET_TESTS_CURL_REQUESTSUPPORT_H

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnCURLError.h"
#include "ZoNetwork/XnHTTPReq.h"
#include "support/Servers.h"

namespace zotest_curl {

// An XnHTTPReq whose protected state a test may read.
class HttpReq : public XnCURL::XnHTTPReq {
public:
  explicit HttpReq(XnCURL::HTTPProtocol protocol = XnCURL::protocolHTTP) : XnHTTPReq(protocol) {}
  using XnCURL::XnProtocolReq::getDataSizeInBytes;
  using XnCURL::XnProtocolReq::getIsProxySet;
  using XnCURL::XnProtocolReq::getOperationName;
  using XnCURL::XnProtocolReq::getOperationType;
  using XnCURL::XnProtocolReq::getPostBuffer;
  using XnCURL::XnProtocolReq::getPostString;
  using XnCURL::XnProtocolReq::getSourceFile;
  using XnCURL::XnProtocolReq::getURLPath;
  using XnCURL::XnProtocolReq::setURLPath;
  // The class as a client holds it through the base, where collectFilesAndDir,
  // setDefaults, IsFile and getFullWorkingURL are public.
  XnCURL::XnProtocolReq& Base() { return *this; }
  // The protocol's own success rule, reached through the base, where it is
  // protected.
  using XnCURL::XnProtocolReq::isOperationSuccess;
  int ResponseCode() const { return m_responseCode; }
  void SetResponseCode(int code) { m_responseCode = code; }
  int LastCurlCode() const { return m_lastCurlCode; }
  const std::map<std::string, std::string>& RequestedHeaders() const { return m_requestedHeaders; }
  bool CallbacksCleared() const {
    return m_writeFunction == nullptr && m_writeContext == nullptr && m_readFunction == nullptr &&
           m_readContext == nullptr && m_headerWriteFunction == nullptr && m_headerWriteContext == nullptr;
  }
  bool Initialized() const { return m_initialized; }
  static bool GlobalInit() { return m_gbInit; }
  void* Handle() const { return m_curlContext ? m_curlContext->m_curlHandle : nullptr; }
};

inline size_t CollectInto(char* data, size_t size, size_t count, void* context) {
  static_cast<std::string*>(context)->append(data, size * count);
  return size * count;
}

// Writes the body to an open FILE*.
inline size_t WriteToFile(char* data, size_t size, size_t count, void* context) {
  return fwrite(data, size, count, static_cast<FILE*>(context));
}

// The request line of a raw request.
inline std::string RequestLine(const std::string& raw) { return raw.substr(0, raw.find("\r\n")); }

// The header lines of a raw request (without the request line), in order.
inline std::vector<std::string> HeaderLines(const std::string& raw) {
  std::vector<std::string> lines;
  size_t end = raw.find("\r\n\r\n");
  size_t at = raw.find("\r\n") + 2;
  while (at < end) {
    size_t next = raw.find("\r\n", at);
    lines.push_back(raw.substr(at, next - at));
    at = next + 2;
  }
  return lines;
}

// The value of the first header name (case as sent), or "<none>".
inline std::string Header(const std::string& raw, const std::string& name) {
  for (const std::string& line : HeaderLines(raw)) {
    if (line.compare(0, name.size() + 1, name + ":") == 0) {
      size_t at = name.size() + 1;
      while (at < line.size() && line[at] == ' ') ++at;
      return line.substr(at);
    }
  }
  return "<none>";
}

// No commands for an operation.
inline const std::vector<XnCURL::commandInfo> kNone;

// The codes of an error of the foundation's int domain and of the XnCURL
// domain, for CZoError::Is.
inline long IntCode(int code) { return FXErrorUtil::ErrorInt(FXLOC("Test::Code"), code, "%s", "x").GetErrorCode(); }
inline long CurlCode(int code) { return XnCURL::ErrorXnCURL(FXLOC("Test::Code"), code, "%s", "x").GetErrorCode(); }

// Whether the error's text (the whole chain) holds text.
inline bool Contains(const CZoError& e, const std::string& text) {
  return e.AsString().find(text) != std::string::npos;
}

// A registered server on loopback without a trailing slash: the path brings
// its own.
inline std::string Server(int port) { return "http://localhost:" + std::to_string(port); }

// A scripted peer's reply with a status, a body and headers.
inline zotest::ScriptedHttpPeer::Reply Plain(int status, const std::string& body = "",
                                             const std::vector<std::string>& headers = {}) {
  zotest::ScriptedHttpPeer::Reply reply;
  reply.raw = zotest::ScriptedHttpPeer::Response(status, "Status", headers, body);
  return reply;
}

// Initializes request and aims it at Server(port); false when it can't
// initialize.
inline bool Aimed(XnCURL::XnProtocolReq& request, int port) {
  if (request.initialize(0).IsError()) return false;
  request.setURL(Server(port));
  return true;
}

// The body of a raw request.
inline std::string Body(const std::string& raw) {
  size_t end = raw.find("\r\n\r\n");
  return end == std::string::npos ? "" : raw.substr(end + 4);
}

// Runs body with the process's standard output sent to a file; what was
// written there.
template <typename Body>
std::string CaptureStdout(const std::string& file, Body body) {
  fflush(stdout);
  int saved = dup(1);
  FILE* out = fopen(file.c_str(), "w");
  dup2(fileno(out), 1);
  body();
  fflush(stdout);
  dup2(saved, 1);
  close(saved);
  fclose(out);
  FILE* in = fopen(file.c_str(), "r");
  std::string text;
  char buffer[4096];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, in)) > 0) text.append(buffer, got);
  fclose(in);
  return text;
}

// The text of an error, one line.
inline std::string Text(const CZoError& error) { return error.AsString(); }

}  // namespace zotest_curl

#endif  // ZONET_TESTS_CURL_REQUESTSUPPORT_H
