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
#include "ZoNetwork/XnHTTPReq.h"

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
