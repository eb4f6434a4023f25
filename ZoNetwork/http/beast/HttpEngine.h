// The engine under both faces of the platform HTTP layer: sessions with their
// io_context, TLS context and pool of kept-alive connections; connections
// (plain, TLS, through a proxy); requests with their reply parser. Every
// wait is an asynchronous operation with a deadline, driven on the calling
// thread. Internal to http/beast/.
#ifndef ZONET_HTTP_BEAST_HTTPENGINE_H
#define ZONET_HTTP_BEAST_HTTPENGINE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/system/error_code.hpp>

namespace zonet_http {
namespace engine {

// Which face a failure is reported to: the two number a general secure
// channel failure differently.
enum class Face { WinInet, WinHttp };

// What certificate checking found wrong, kept per connection attempt so that
// a failed handshake can be told apart.
enum class TlsFailure { None, UnknownCa, Date, Name, Other };

struct TlsCheck {
  uint32_t securityFlags = 0;     // the kSecurityFlagIgnore* flags in force
  std::string host;               // the name the certificate must carry
  TlsFailure failure = TlsFailure::None;
  bool clientCertAsked = false;   // the server asked for a certificate and got none
};

// The one place where Asio, Beast and OpenSSL failures become the layer's
// numbers (ZONET_ERR_HTTP_*).
uint32_t MapFailure(const boost::system::error_code& ec, const TlsCheck* tls, Face face);

// Time-outs in milliseconds; 0 in a setter keeps these defaults.
struct Timeouts {
  uint32_t connectMs = 60000;
  uint32_t sendMs = 30000;
  uint32_t receiveMs = 30000;
};

struct Url {
  bool secure = false;
  std::string host;  // without brackets
  uint16_t port = 0;
  std::string target;  // path and query, starting with "/"
};
// Splits an absolute http or https URL; false (with why: 12005 or 12006) otherwise.
bool ParseUrl(const std::string& text, Url& url, uint32_t& why);
// The target with the bytes that cannot stand in a request line as %XX.
std::string EscapeTarget(const std::string& target);

// Header text that a caller adds to a request: split at CR LF, empty lines
// ignored, every other line "name: value" with a token for a name. The lines
// are appended to lines; false (and nothing appended) when any line is not
// a header, as both faces refuse the whole text.
bool SplitHeaderLines(const std::string& text, std::vector<std::string>& lines);

// Proxy selection in the designed platform's list syntax.
struct ProxyChoice {
  bool use = false;
  std::string host;
  uint16_t port = 80;
};
ProxyChoice ChooseProxy(const std::string& list, const std::string& bypass, bool secure, const std::string& host);
ProxyChoice ChooseProxyFromEnvironment(bool secure, const std::string& host);
bool Bypassed(const std::string& bypass, const std::string& host);

// One transport: TCP, optionally TLS over it.
class Connection {
public:
  explicit Connection(boost::asio::io_context& ioc);
  ~Connection();
  boost::asio::io_context& ioc;
  boost::beast::tcp_stream tcp;
  std::unique_ptr<boost::asio::ssl::stream<boost::beast::tcp_stream&>> tls;
  boost::beast::flat_buffer buffer;  // bytes read past the last reply
  std::string key;                   // which pool entry it may go back to
  bool reused = false;
  TlsCheck check;
};

class Session {
public:
  Session(const std::string& agent, uint32_t accessType, const std::string& proxy, const std::string& bypass);
  ~Session();
  // The io_context goes last: every connection below uses it.
  boost::asio::io_context ioc{1};
  std::unique_ptr<boost::asio::ssl::context> sslContext;
  std::string agent;
  uint32_t accessType;
  std::string proxyList, bypassList;
  Timeouts timeouts;
  std::multimap<std::string, std::unique_ptr<Connection>> idle;  // kept-alive connections by key

  boost::asio::ssl::context* Ssl(uint32_t& why);
  std::unique_ptr<Connection> TakeIdle(const std::string& key);
  void GiveBack(std::unique_ptr<Connection> connection);
  ProxyChoice ProxyFor(bool secure, const std::string& host) const;
};

// What a request must send, and what came back.
class Request {
public:
  Request(std::shared_ptr<Session> session, Face face);
  ~Request();

  std::shared_ptr<Session> session;
  Face face;
  Timeouts timeouts;
  // Target.
  Url url;
  std::string verb, version = "HTTP/1.1", referrer;
  std::vector<std::string> accept;
  std::vector<std::string> extraHeaders;  // "Name: value" lines
  std::string user, password;             // answer a server challenge
  std::string proxyUser, proxyPassword;   // answer a proxy challenge
  uint32_t securityFlags = 0;
  bool followRedirects = true;
  // The second face answers challenges itself (credentials set for the next
  // send), and fails a server's demand for a client certificate until told
  // to go on without one.
  bool autoAnswer = true;
  bool noClientCert = false;

  // Sends the head (and for a body of known length nothing more). On false,
  // `error` holds the layer's number.
  bool Send(const std::string& body, uint64_t contentLength, bool openBody, uint32_t& error);
  bool WriteBody(const void* data, size_t size, size_t& written, uint32_t& error);
  // Sends what WriteBody gathered; false with the mapped error when it fails.
  bool FlushBody(uint32_t& error);
  // Reads the reply's head after a streamed body. challenged is set when the
  // reply is a challenge the held credentials can answer.
  bool EndBody(bool& challenged, uint32_t& error);
  // Body bytes: read up to size into buffer; 0 at the end.
  bool Read(void* buffer, size_t size, size_t& got, uint32_t& error);
  // Body bytes that a read gives without waiting (waiting for some when
  // none are there); 0 at the end.
  bool Available(size_t& available, uint32_t& error);

  bool HaveReply() const { return m_parser != nullptr && m_parser->is_header_done(); }
  unsigned Status() const;
  std::string RawHeaders() const;
  uint32_t failure = 0;  // the reason of the last failed send, for later queries

  // Authentication offered by the last challenge (bits as the second face numbers them).
  uint32_t ServerSchemes() const { return m_serverSchemes; }
  uint32_t ProxySchemes() const { return m_proxySchemes; }
  bool LastChallengeFromProxy() const { return m_lastChallengeProxy; }

private:
  bool Attempt(const std::string& body, uint64_t contentLength, bool openBody, uint32_t& error);
  bool OpenConnection(uint32_t& error);
  bool ReadHead(uint32_t& error);
  bool DrainOrDrop();
  void FinishBody();
  std::string Head(uint64_t contentLength, bool hasBody) const;
  void NoteChallenge(unsigned status);
  std::string AuthorizationFor(const std::string& challenge, const std::string& user, const std::string& password,
                               const std::string& header);

  std::unique_ptr<Connection> m_connection;
  bool m_viaProxy = false;
  std::unique_ptr<boost::beast::http::response_parser<boost::beast::http::buffer_body>> m_parser;
  std::vector<char> m_pending;  // body bytes read ahead by Available
  size_t m_pendingOffset = 0;
  bool m_bodyDone = false;
  uint32_t m_deferredError = 0;  // a read failure that follows bytes already handed out
  bool m_bodyOpen = false;        // between a Send that opened the body and EndBody
  bool m_streaming = false;       // this send streams its body (uploads)
  // Body bytes written but not yet sent: callers write in small pieces (10
  // KiB), and one send per piece halves an upload's speed.
  std::vector<char> m_outgoing;
  bool m_connectRefused = false;  // the reply is a proxy's refusal of a tunnel
  std::string m_serverChallenge, m_proxyChallenge;  // the WWW-/Proxy-Authenticate values
  std::string m_serverAuthorization, m_proxyAuthorization;  // the header lines to send
  uint32_t m_serverSchemes = 0, m_proxySchemes = 0;
  bool m_lastChallengeProxy = false;
  unsigned m_nonceCount = 0;
};

}  // namespace engine
}  // namespace zonet_http

#endif  // ZONET_HTTP_BEAST_HTTPENGINE_H
