// The engine of the platform HTTP layer on Boost.Beast, Boost.Asio and
// OpenSSL. Every network wait is an asynchronous operation started with a
// deadline on the connection's tcp_stream and run to its end on the calling
// thread (Drive): Beast's blocking calls have no time-outs, and the layer
// may start no thread. Name resolution is the one blocking call
// (getaddrinfo through the synchronous resolver): Asio's asynchronous
// resolver would start a thread of its own.
#include "http/beast/HttpEngine.h"

#include <sys/socket.h>

#include <cerrno>

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_suffix.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>

#include "ZoUtils/ZoErrorCodes.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace zonet_http {
namespace engine {

namespace {

// Bodies of challenges and redirects up to this size are read to their end so
// that the connection can be used again; larger ones cost the connection.
constexpr uint64_t kDrainLimit = 1 << 20;
// Redirects followed for one GET.
constexpr int kRedirectLimit = 10;

// ------------------------------------------------------------ text helpers

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool StartsWithNoCase(const std::string& text, const char* prefix) {
  size_t n = std::strlen(prefix);
  return text.size() >= n && Lower(text.substr(0, n)) == prefix;
}

std::string Base64(const std::string& in) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  size_t i = 0;
  for (; i + 2 < in.size(); i += 3) {
    uint32_t v = (uint8_t(in[i]) << 16) | (uint8_t(in[i + 1]) << 8) | uint8_t(in[i + 2]);
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  if (i < in.size()) {
    uint32_t v = uint8_t(in[i]) << 16;
    if (i + 1 < in.size()) v |= uint8_t(in[i + 1]) << 8;
    out += kAlphabet[v >> 18];
    out += kAlphabet[(v >> 12) & 63];
    out += (i + 1 < in.size()) ? kAlphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::string Md5Hex(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr);
  std::string hex;
  char two[3];
  for (unsigned i = 0; i < length; ++i) {
    std::snprintf(two, sizeof two, "%02x", digest[i]);
    hex += two;
  }
  return hex;
}

bool IsIpLiteral(const std::string& host) {
  error_code ec;
  asio::ip::make_address(host, ec);
  return !ec;
}

// Splits "host:port" or "[v6]:port"; the port stays as given when absent.
void SplitHostPort(const std::string& text, std::string& host, uint16_t& port) {
  std::string rest = text;
  if (!rest.empty() && rest[0] == '[') {
    size_t close = rest.find(']');
    host = rest.substr(1, close == std::string::npos ? std::string::npos : close - 1);
    if (close != std::string::npos && close + 1 < rest.size() && rest[close + 1] == ':') {
      port = static_cast<uint16_t>(std::atoi(rest.c_str() + close + 2));
    }
    return;
  }
  size_t colon = rest.rfind(':');
  if (colon != std::string::npos && rest.find(':') == colon) {
    host = rest.substr(0, colon);
    if (colon + 1 < rest.size()) port = static_cast<uint16_t>(std::atoi(rest.c_str() + colon + 1));
  } else {
    host = rest;
  }
}

// '*' and '?' wildcards, case-insensitive.
bool WildcardMatch(const char* pattern, const char* text) {
  if (*pattern == '\0') return *text == '\0';
  if (*pattern == '*') return WildcardMatch(pattern + 1, text) || (*text && WildcardMatch(pattern, text + 1));
  if (*text == '\0') return false;
  if (*pattern != '?' && std::tolower(static_cast<unsigned char>(*pattern)) !=
                             std::tolower(static_cast<unsigned char>(*text))) {
    return false;
  }
  return WildcardMatch(pattern + 1, text + 1);
}

std::vector<std::string> Tokens(const std::string& text, const char* separators) {
  std::vector<std::string> out;
  size_t i = 0;
  while (i < text.size()) {
    size_t j = text.find_first_of(separators, i);
    if (j == std::string::npos) j = text.size();
    if (j > i) out.push_back(text.substr(i, j - i));
    i = j + 1;
  }
  return out;
}

// ------------------------------------------------------------ driving

template <class... Rest>
void NoteBytes(size_t* bytes, size_t n, Rest&&...) {
  if (bytes) *bytes = n;
}
template <class... Rest>
void NoteBytes(size_t*, Rest&&...) {}

// Starts one asynchronous operation and runs the io_context on this thread
// until its handler has run.
template <class Start>
error_code Drive(asio::io_context& ioc, size_t* bytes, Start&& start) {
  error_code result = asio::error::would_block;
  bool done = false;
  start([&](error_code ec, auto&&... rest) {
    result = ec;
    NoteBytes(bytes, rest...);
    done = true;
  });
  ioc.restart();
  while (!done) {
    if (ioc.run_one() == 0) break;
  }
  return result;
}

// Sends all of buffers within the send time-out. In the clear, what the
// socket takes at once goes without a deadline or a poll (the socket is in
// non-blocking mode); only the rest waits. TLS always goes the waiting way:
// a record the socket took in part can't be finished by a later call.
template <class Buffers>
error_code WriteAll(Connection& c, const Buffers& buffers, uint32_t ms, size_t* written) {
  size_t now = 0;
  error_code ec;
  if (!c.tls) {
    now = c.tcp.socket().write_some(buffers, ec);
    if (ec == asio::error::would_block || ec == asio::error::try_again) ec = {};
    if (ec || now == asio::buffer_size(buffers)) {
      if (written) *written = now;
      return ec;
    }
  }
  c.tcp.expires_after(std::chrono::milliseconds(ms));
  size_t later = 0;
  beast::buffers_suffix<Buffers> rest(buffers);
  rest.consume(now);
  ec = Drive(c.ioc, &later, [&](auto handler) {
    if (c.tls) {
      asio::async_write(*c.tls, buffers, std::move(handler));
    } else {
      asio::async_write(c.tcp, rest, std::move(handler));
    }
  });
  c.tcp.expires_never();
  if (written) *written = now + later;
  return ec;
}

template <class Parser>
error_code ReadHeader(Connection& c, Parser& parser, uint32_t ms) {
  c.tcp.expires_after(std::chrono::milliseconds(ms));
  error_code ec = Drive(c.ioc, nullptr, [&](auto handler) {
    if (c.tls) {
      http::async_read_header(*c.tls, c.buffer, parser, std::move(handler));
    } else {
      http::async_read_header(c.tcp, c.buffer, parser, std::move(handler));
    }
  });
  c.tcp.expires_never();
  return ec;
}

// How much one receive of a reply's body may take. curl's tool reads 100 KiB
// at a time; a larger piece halves the receives (and the polls and deadlines
// of those that wait) of a fast transfer. Over TLS a receive gives one record
// at most, whatever the room.
constexpr size_t kReceiveSize = 256 * 1024;

// How much a query of what is available reads ahead when it has to copy
// (a chunked body, or one that ends with the connection).
constexpr size_t kReadAhead = 64 * 1024;

// Receives what the connection has into its buffer: first without waiting,
// since on a fast link the bytes are there already and a wait costs a
// deadline to arm and a poll; when nothing has come, within the receive
// time-out. The socket is in non-blocking mode from its connect on. Over
// TLS the first try may also have to send (a key update's answer): a few
// hundred bytes into a send buffer that a download leaves empty.
error_code Receive(Connection& c, uint32_t ms) {
  auto space = c.buffer.prepare(kReceiveSize);
  error_code ec;
  size_t got = c.tls ? c.tls->read_some(space, ec) : c.tcp.socket().read_some(space, ec);
  if (ec == asio::error::would_block || ec == asio::error::try_again) {
    got = 0;
    c.tcp.expires_after(std::chrono::milliseconds(ms));
    ec = Drive(c.ioc, &got, [&](auto handler) {
      if (c.tls) {
        c.tls->async_read_some(space, std::move(handler));
      } else {
        c.tcp.async_read_some(space, std::move(handler));
      }
    });
    c.tcp.expires_never();
  }
  c.buffer.commit(got);
  // Over TLS a receive gives one record (16 KiB at most): the records that
  // have arrived with it are taken as well, so that the reads that follow
  // are whole pieces, not a piece and a remainder per record. A failure here
  // is left for the next receive, which meets it again.
  while (!ec && c.tls && c.buffer.size() < kReceiveSize / 2) {
    error_code more;
    size_t n = c.tls->read_some(c.buffer.prepare(kReceiveSize - c.buffer.size()), more);
    if (more) break;
    c.buffer.commit(n);
  }
  return ec;
}

// ------------------------------------------------------------ TLS checks

int CheckIndex() {
  static int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

TlsFailure Classify(int err) {
  switch (err) {
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_UNTRUSTED:
      return TlsFailure::UnknownCa;
    case X509_V_ERR_CERT_NOT_YET_VALID:
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
    case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
      return TlsFailure::Date;
    default:
      return TlsFailure::Other;
  }
}

// OpenSSL's verdict on each certificate, bent by the security flags. The host
// name is checked after the handshake (CheckHostName), once.
int VerifyCallback(int ok, X509_STORE_CTX* store) {
  SSL* ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  TlsCheck* check = ssl ? static_cast<TlsCheck*>(SSL_get_ex_data(ssl, CheckIndex())) : nullptr;
  if (ok || check == nullptr) return ok;
  int err = X509_STORE_CTX_get_error(store);
  TlsFailure kind = Classify(err);
  uint32_t ignore = 0;
  if (kind == TlsFailure::UnknownCa) ignore = 0x100;
  if (kind == TlsFailure::Date) ignore = 0x2000;
  if (err == X509_V_ERR_INVALID_PURPOSE) ignore = 0x200;
  if (ignore != 0 && (check->securityFlags & ignore) != 0) return 1;
  if (check->failure == TlsFailure::None) check->failure = kind;
  return 0;
}

// The server asked for a certificate: there is none to give, and the failure
// that follows is reported as such.
int ClientCertCallback(SSL* ssl, X509**, EVP_PKEY**) {
  TlsCheck* check = static_cast<TlsCheck*>(SSL_get_ex_data(ssl, CheckIndex()));
  if (check) check->clientCertAsked = true;
  return 0;
}

bool CheckHostName(SSL* ssl, TlsCheck& check) {
  if (check.securityFlags & 0x1000) return true;
  X509* cert = SSL_get1_peer_certificate(ssl);
  if (cert == nullptr) {
    check.failure = TlsFailure::Other;
    return false;
  }
  bool match = IsIpLiteral(check.host)
                   ? X509_check_ip_asc(cert, check.host.c_str(), 0) == 1
                   : X509_check_host(cert, check.host.data(), check.host.size(), 0, nullptr) == 1;
  X509_free(cert);
  if (!match) check.failure = TlsFailure::Name;
  return match;
}

bool IsRedirect(unsigned status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

}  // namespace

// ------------------------------------------------------------ error mapping

uint32_t MapFailure(const error_code& ec, const TlsCheck* tls, Face face) {
  const uint32_t channel = face == Face::WinInet ? ZONET_ERR_HTTP_SECURITY_CHANNEL_ERROR : ZONET_ERR_HTTP_SECURE_FAILURE;
  if (tls != nullptr) {
    switch (tls->failure) {
      case TlsFailure::UnknownCa: return ZONET_ERR_HTTP_INVALID_CA;
      case TlsFailure::Date: return ZONET_ERR_HTTP_SEC_CERT_DATE_INVALID;
      case TlsFailure::Name: return ZONET_ERR_HTTP_SEC_CERT_CN_INVALID;
      case TlsFailure::Other: return channel;
      case TlsFailure::None: break;
    }
    // A server that asked for a certificate and got none ends the channel
    // with an alert, or simply closes it.
    if (tls->clientCertAsked && ec != beast::error::timeout) return ZONET_ERR_HTTP_CLIENT_AUTH_CERT_NEEDED;
  }
  if (ec == beast::error::timeout || ec == asio::error::timed_out) return ZONET_ERR_HTTP_TIMEOUT;
  if (ec.category() == asio::error::get_netdb_category() || ec.category() == asio::error::get_addrinfo_category()) {
    return ZONET_ERR_HTTP_NAME_NOT_RESOLVED;
  }
  if (ec == asio::error::connection_refused || ec == asio::error::network_unreachable ||
      ec == asio::error::host_unreachable || ec == asio::error::network_down ||
      ec == asio::error::address_family_not_supported) {
    return ZONET_ERR_HTTP_CANNOT_CONNECT;
  }
  if (ec == asio::error::connection_reset) return ZONET_ERR_HTTP_CONNECTION_RESET;
  if (ec == asio::error::eof || ec == asio::error::connection_aborted || ec == asio::error::broken_pipe ||
      ec == asio::error::shut_down || ec == http::error::partial_message || ec == http::error::end_of_stream ||
      ec == asio::ssl::error::stream_truncated || ec == asio::error::operation_aborted) {
    return ZONET_ERR_HTTP_CONNECTION_ABORTED;
  }
  if (ec.category() == http::make_error_code(http::error::bad_version).category()) {
    return ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE;
  }
  if (ec.category() == asio::error::get_ssl_category() || ec.category() == asio::ssl::error::get_stream_category()) {
    return channel;
  }
  return ZONET_ERR_HTTP_INTERNAL_ERROR;
}

// ------------------------------------------------------------ URLs and proxies

bool ParseUrl(const std::string& text, Url& url, uint32_t& why) {
  size_t sep = text.find("://");
  if (sep == std::string::npos) {
    why = ZONET_ERR_HTTP_UNRECOGNIZED_SCHEME;
    return false;
  }
  std::string scheme = Lower(text.substr(0, sep));
  if (scheme == "http") {
    url.secure = false;
    url.port = 80;
  } else if (scheme == "https") {
    url.secure = true;
    url.port = 443;
  } else {
    why = ZONET_ERR_HTTP_UNRECOGNIZED_SCHEME;
    return false;
  }
  size_t hostStart = sep + 3;
  size_t pathStart = text.find_first_of("/?#", hostStart);
  std::string authority = text.substr(hostStart, pathStart == std::string::npos ? std::string::npos : pathStart - hostStart);
  size_t at = authority.rfind('@');
  if (at != std::string::npos) authority = authority.substr(at + 1);
  SplitHostPort(authority, url.host, url.port);
  if (url.host.empty() || url.port == 0) {
    why = ZONET_ERR_HTTP_INVALID_URL;
    return false;
  }
  url.target = pathStart == std::string::npos ? "/" : text.substr(pathStart);
  size_t hash = url.target.find('#');
  if (hash != std::string::npos) url.target.resize(hash);
  if (url.target.empty() || url.target[0] != '/') url.target = "/" + url.target;
  url.target = EscapeTarget(url.target);
  return true;
}

// Bytes that cannot stand in a request line (controls, the blank, DEL and
// everything beyond ASCII) go out as %XX; the rest, "%" included, as given.
std::string EscapeTarget(const std::string& target) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (char c : target) {
    unsigned char b = static_cast<unsigned char>(c);
    if (b <= 32 || b >= 127) {
      out += '%';
      out += kHex[b >> 4];
      out += kHex[b & 15];
    } else {
      out += c;
    }
  }
  return out;
}

bool SplitHeaderLines(const std::string& text, std::vector<std::string>& lines) {
  std::vector<std::string> found;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find("\r\n", start);
    std::string line = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (!line.empty()) {
      size_t colon = line.find(':');
      if (colon == std::string::npos || colon == 0) return false;
      for (size_t i = 0; i < colon; ++i) {
        unsigned char c = static_cast<unsigned char>(line[i]);
        if (c <= 32 || c >= 127 || std::strchr("()<>@,;:\\\"/[]?={}", c) != nullptr) return false;
      }
      for (char c : line) {
        if (c == '\r' || c == '\n' || c == '\0') return false;
      }
      found.push_back(line);
    }
    if (end == std::string::npos) break;
    start = end + 2;
  }
  lines.insert(lines.end(), found.begin(), found.end());
  return true;
}

bool Bypassed(const std::string& bypass, const std::string& host) {
  for (const std::string& entry : Tokens(bypass, "; ,\t\r\n")) {
    if (Lower(entry) == "<local>") {
      if (host.find('.') == std::string::npos && host.find(':') == std::string::npos) return true;
      continue;
    }
    std::string pattern = entry;
    if (StartsWithNoCase(pattern, "http://")) pattern = pattern.substr(7);
    if (StartsWithNoCase(pattern, "https://")) pattern = pattern.substr(8);
    if (WildcardMatch(pattern.c_str(), host.c_str())) return true;
  }
  return false;
}

ProxyChoice ChooseProxy(const std::string& list, const std::string& bypass, bool secure, const std::string& host) {
  ProxyChoice choice;
  if (Bypassed(bypass, host)) return choice;
  for (const std::string& token : Tokens(list, "; \t\r\n")) {
    std::string entry = token;
    size_t eq = entry.find('=');
    size_t scheme = entry.find("://");
    if (eq != std::string::npos && (scheme == std::string::npos || eq < scheme)) {
      std::string which = Lower(entry.substr(0, eq));
      if (which != (secure ? "https" : "http")) continue;
      entry = entry.substr(eq + 1);
    }
    if (StartsWithNoCase(entry, "http://")) entry = entry.substr(7);
    if (!entry.empty() && entry.back() == '/') entry.pop_back();
    uint16_t port = 80;
    std::string name;
    SplitHostPort(entry, name, port);
    if (name.empty() || port == 0) continue;
    choice.use = true;
    choice.host = name;
    choice.port = port;
    return choice;
  }
  return choice;
}

ProxyChoice ChooseProxyFromEnvironment(bool secure, const std::string& host) {
  ProxyChoice choice;
  const char* value = secure ? std::getenv("https_proxy") : std::getenv("http_proxy");
  if (secure && (value == nullptr || *value == '\0')) value = std::getenv("HTTPS_PROXY");
  if (value == nullptr || *value == '\0') return choice;
  const char* noProxy = std::getenv("no_proxy");
  if (noProxy == nullptr || *noProxy == '\0') noProxy = std::getenv("NO_PROXY");
  if (noProxy != nullptr) {
    std::string lowerHost = Lower(host);
    for (std::string entry : Tokens(noProxy, ", \t")) {
      if (entry == "*") return choice;
      entry = Lower(entry);
      if (!entry.empty() && entry[0] == '.') entry = entry.substr(1);
      if (lowerHost == entry ||
          (lowerHost.size() > entry.size() &&
           lowerHost.compare(lowerHost.size() - entry.size(), entry.size(), entry) == 0 &&
           lowerHost[lowerHost.size() - entry.size() - 1] == '.')) {
        return choice;
      }
    }
  }
  std::string text = value;
  size_t scheme = text.find("://");
  if (scheme != std::string::npos) text = text.substr(scheme + 3);
  size_t at = text.rfind('@');
  if (at != std::string::npos) text = text.substr(at + 1);
  size_t slash = text.find('/');
  if (slash != std::string::npos) text.resize(slash);
  uint16_t port = 80;
  SplitHostPort(text, choice.host, port);
  choice.port = port;
  choice.use = !choice.host.empty() && port != 0;
  return choice;
}

// ------------------------------------------------------------ connections, sessions

Connection::Connection(asio::io_context& context) : ioc(context), tcp(context) {
  // Beast reads as much as the buffer has room for (at least 512 bytes):
  // room for 64 KiB makes one receive per 64 KiB, not one per 512 bytes.
  buffer.reserve(65536);
}

Connection::~Connection() {
  error_code ignored;
  tls.reset();
  tcp.socket().close(ignored);
}

Session::Session(const std::string& agentText, uint32_t access, const std::string& proxy, const std::string& bypass)
    : agent(agentText), accessType(access), proxyList(proxy), bypassList(bypass) {}

Session::~Session() {
  idle.clear();
  sslContext.reset();
}

asio::ssl::context* Session::Ssl(uint32_t& why) {
  if (sslContext) return sslContext.get();
  try {
    auto context = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_client);
    error_code ec;
    context->set_default_verify_paths(ec);
    SSL_CTX_set_client_cert_cb(context->native_handle(), ClientCertCallback);
    sslContext = std::move(context);
  } catch (const std::exception&) {
    why = ZONET_ERR_HTTP_SECURITY_CHANNEL_ERROR;
    return nullptr;
  }
  return sslContext.get();
}

std::unique_ptr<Connection> Session::TakeIdle(const std::string& key) {
  for (auto it = idle.find(key); it != idle.end() && it->first == key; it = idle.find(key)) {
    std::unique_ptr<Connection> connection = std::move(it->second);
    idle.erase(it);
    // An idle connection with anything to read (the server's close, or bytes
    // nobody asked for) is finished: it would fail the next request halfway.
    char probe;
    ssize_t n = ::recv(connection->tcp.socket().native_handle(), &probe, 1, MSG_PEEK | MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      connection->reused = true;
      return connection;
    }
  }
  return nullptr;
}

void Session::GiveBack(std::unique_ptr<Connection> connection) {
  // A few per server are plenty for one client object.
  if (idle.count(connection->key) >= 4) return;
  std::string key = connection->key;
  idle.emplace(key, std::move(connection));
}

ProxyChoice Session::ProxyFor(bool secure, const std::string& host) const {
  if (accessType == 3) return ChooseProxy(proxyList, bypassList, secure, host);
  if (accessType == 0) return ChooseProxyFromEnvironment(secure, host);
  return ProxyChoice();
}

// ------------------------------------------------------------ requests

Request::Request(std::shared_ptr<Session> owner, Face which) : session(std::move(owner)), face(which) {
  timeouts = session->timeouts;
}

Request::~Request() {
  m_parser.reset();
  m_connection.reset();
}

unsigned Request::Status() const { return m_parser ? m_parser->get().result_int() : 0; }

std::string Request::RawHeaders() const {
  if (!m_parser) return std::string();
  const auto& reply = m_parser->get();
  std::string text = "HTTP/" + std::to_string(reply.version() / 10) + "." + std::to_string(reply.version() % 10) +
                     " " + std::to_string(reply.result_int()) + " " + std::string(reply.reason()) + "\r\n";
  for (const auto& field : reply) {
    text += std::string(field.name_string()) + ": " + std::string(field.value()) + "\r\n";
  }
  return text + "\r\n";
}

void Request::NoteChallenge(unsigned status) {
  if (status != 401 && status != 407) return;
  const auto& reply = m_parser->get();
  std::string all;
  uint32_t schemes = 0;
  for (const auto& field : reply) {
    bool wanted = status == 401 ? field.name() == http::field::www_authenticate
                                : field.name() == http::field::proxy_authenticate;
    if (!wanted) continue;
    std::string value(field.value());
    all += value + "\n";
    std::string lower = Lower(value);
    // A scheme name stands at the start of the value or after a comma.
    for (size_t i = 0; i < lower.size();) {
      size_t end = lower.find_first_of(" ,", i);
      std::string word = lower.substr(i, end == std::string::npos ? std::string::npos : end - i);
      if (word.find('=') == std::string::npos) {
        if (word == "basic") schemes |= 1;
        if (word == "ntlm") schemes |= 2;
        if (word.compare(0, 8, "passport") == 0) schemes |= 4;
        if (word == "digest") schemes |= 8;
        if (word == "negotiate") schemes |= 16;
      }
      size_t comma = lower.find(',', i);
      if (comma == std::string::npos) break;
      i = lower.find_first_not_of(" ", comma + 1);
      if (i == std::string::npos) break;
    }
  }
  m_lastChallengeProxy = status == 407;
  if (status == 401) {
    m_serverChallenge = all;
    m_serverSchemes = schemes;
  } else {
    m_proxyChallenge = all;
    m_proxySchemes = schemes;
  }
}

// Basic, or Digest (MD5, qop "auth" or none) when the challenge offers it.
std::string Request::AuthorizationFor(const std::string& challenge, const std::string& name,
                                      const std::string& secret, const std::string& header) {
  std::string lower = Lower(challenge);
  size_t digest = lower.find("digest ");
  if (digest == std::string::npos || (digest != 0 && lower[digest - 1] != ' ' && lower[digest - 1] != ',' &&
                                      lower[digest - 1] != '\n')) {
    return header + ": Basic " + Base64(name + ":" + secret);
  }
  std::map<std::string, std::string> params;
  size_t i = digest + 7;
  while (i < challenge.size() && challenge[i] != '\n') {
    while (i < challenge.size() && (challenge[i] == ' ' || challenge[i] == ',')) ++i;
    size_t eq = challenge.find('=', i);
    if (eq == std::string::npos) break;
    std::string key = Lower(challenge.substr(i, eq - i));
    std::string value;
    i = eq + 1;
    if (i < challenge.size() && challenge[i] == '"') {
      size_t close = challenge.find('"', i + 1);
      if (close == std::string::npos) close = challenge.size();
      value = challenge.substr(i + 1, close - i - 1);
      i = close + 1;
    } else {
      size_t end = challenge.find_first_of(",\n", i);
      if (end == std::string::npos) end = challenge.size();
      value = challenge.substr(i, end - i);
      i = end;
    }
    params[key] = value;
  }
  const std::string& uri = url.target;
  std::string ha1 = Md5Hex(name + ":" + params["realm"] + ":" + secret);
  std::string ha2 = Md5Hex(verb + ":" + uri);
  bool qopAuth = false;
  for (const std::string& q : Tokens(params["qop"], ", ")) {
    if (Lower(q) == "auth") qopAuth = true;
  }
  std::string line = header + ": Digest username=\"" + name + "\", realm=\"" + params["realm"] + "\", nonce=\"" +
                     params["nonce"] + "\", uri=\"" + uri + "\"";
  if (qopAuth) {
    unsigned char random[8];
    RAND_bytes(random, sizeof random);
    char cnonce[17];
    for (int k = 0; k < 8; ++k) std::snprintf(cnonce + 2 * k, 3, "%02x", random[k]);
    char nc[9];
    std::snprintf(nc, sizeof nc, "%08x", ++m_nonceCount);
    std::string response = Md5Hex(ha1 + ":" + params["nonce"] + ":" + nc + ":" + cnonce + ":auth:" + ha2);
    line += ", qop=auth, nc=" + std::string(nc) + ", cnonce=\"" + cnonce + "\", response=\"" + response + "\"";
  } else {
    line += ", response=\"" + Md5Hex(ha1 + ":" + params["nonce"] + ":" + ha2) + "\"";
  }
  if (params.count("opaque")) line += ", opaque=\"" + params["opaque"] + "\"";
  if (params.count("algorithm")) line += ", algorithm=" + params["algorithm"];
  return line;
}

std::string Request::Head(uint64_t contentLength, bool hasBody) const {
  bool defaultPort = url.port == (url.secure ? 443 : 80);
  std::string hostField = url.host.find(':') != std::string::npos ? "[" + url.host + "]" : url.host;
  if (!defaultPort) hostField += ":" + std::to_string(url.port);
  std::string target = url.target;
  // An absolute-form target is sent as it was given.
  bool absolute = StartsWithNoCase(target, "http://") || StartsWithNoCase(target, "https://");
  if (!absolute && m_viaProxy && !url.secure) target = "http://" + hostField + target;
  std::string head = verb + " " + target + " " + version + "\r\n";
  if (!accept.empty()) {
    std::string joined;
    for (const std::string& a : accept) joined += (joined.empty() ? "" : ", ") + a;
    head += "Accept: " + joined + "\r\n";
  }
  if (!referrer.empty()) head += "Referer: " + referrer + "\r\n";
  if (!session->agent.empty()) head += "User-Agent: " + session->agent + "\r\n";
  head += "Host: " + hostField + "\r\n";
  for (const std::string& line : extraHeaders) head += line + "\r\n";
  if (hasBody || verb == "POST" || verb == "PUT") head += "Content-Length: " + std::to_string(contentLength) + "\r\n";
  head += "Connection: Keep-Alive\r\n";
  return head;
}

bool Request::OpenConnection(uint32_t& error) {
  ProxyChoice proxy = session->ProxyFor(url.secure, url.host);
  m_viaProxy = proxy.use;
  std::string key = std::string(url.secure ? "https://" : "http://") + url.host + ":" + std::to_string(url.port);
  if (proxy.use) key += "|" + proxy.host + ":" + std::to_string(proxy.port);
  if (url.secure) key += "|" + std::to_string(securityFlags & 0x3380);
  // A streamed body cannot be sent again by the layer, so it takes no
  // chance on a kept connection that the server may be closing.
  std::unique_ptr<Connection> idle = m_streaming ? nullptr : session->TakeIdle(key);
  if (idle) {
    m_connection = std::move(idle);
    return true;
  }
  auto c = std::make_unique<Connection>(session->ioc);
  c->key = key;
  const std::string& host = proxy.use ? proxy.host : url.host;
  uint16_t port = proxy.use ? proxy.port : url.port;
  // Step 1: resolve (blocking on this thread; see the top of the file).
  error_code ec;
  asio::ip::tcp::resolver resolver(session->ioc);
  auto endpoints = resolver.resolve(host, std::to_string(port), ec);
  if (ec) {
    error = MapFailure(ec, nullptr, face);
    return false;
  }
  // Step 2: connect to the first address that answers, within the connect time-out.
  c->tcp.expires_after(std::chrono::milliseconds(timeouts.connectMs));
  ec = Drive(session->ioc, nullptr, [&](auto handler) { c->tcp.async_connect(endpoints, std::move(handler)); });
  c->tcp.expires_never();
  if (ec) {
    error = MapFailure(ec, nullptr, face);
    return false;
  }
  // Asynchronous operations don't care; the receives of a body try first
  // without waiting (Receive), which a blocking socket would turn into a
  // wait without a deadline.
  c->tcp.socket().non_blocking(true, ec);
  if (ec) {
    error = MapFailure(ec, nullptr, face);
    return false;
  }
  // Step 3: through a proxy, HTTPS goes in a CONNECT tunnel. A refusal is
  // this request's reply.
  if (proxy.use && url.secure) {
    std::string authority = url.host + ":" + std::to_string(url.port);
    std::string connectHead = "CONNECT " + authority + " HTTP/1.1\r\nHost: " + authority + "\r\n";
    if (!session->agent.empty()) connectHead += "User-Agent: " + session->agent + "\r\n";
    if (!proxyUser.empty()) {
      connectHead += AuthorizationFor(m_proxyChallenge, proxyUser, proxyPassword, "Proxy-Authorization") + "\r\n";
    }
    connectHead += "\r\n";
    ec = WriteAll(*c, asio::buffer(connectHead), timeouts.sendMs, nullptr);
    if (!ec) {
      auto parser = std::make_unique<http::response_parser<http::buffer_body>>();
      parser->body_limit((std::numeric_limits<std::uint64_t>::max)());
      ec = ReadHeader(*c, *parser, timeouts.receiveMs);
      if (!ec && parser->get().result_int() < 100) ec = http::error::bad_status;
      if (!ec && parser->get().result_int() / 100 != 2) {
        m_connection = std::move(c);
        m_parser = std::move(parser);
        m_bodyDone = m_parser->is_done();
        NoteChallenge(Status());
        m_connectRefused = true;
        return true;
      }
    }
    if (ec) {
      error = MapFailure(ec, nullptr, face);
      return false;
    }
  }
  // Step 4: TLS, checked against the trust store and the security flags.
  if (url.secure) {
    asio::ssl::context* context = session->Ssl(error);
    if (context == nullptr) return false;
    c->tls = std::make_unique<asio::ssl::stream<beast::tcp_stream&>>(c->tcp, *context);
    SSL* ssl = c->tls->native_handle();
    c->check = TlsCheck();
    c->check.securityFlags = securityFlags;
    c->check.host = url.host;
    if (!IsIpLiteral(url.host)) SSL_set_tlsext_host_name(ssl, url.host.c_str());
    SSL_set_ex_data(ssl, CheckIndex(), &c->check);
    SSL_set_verify(ssl, SSL_VERIFY_PEER, VerifyCallback);
    c->tcp.expires_after(std::chrono::milliseconds(timeouts.connectMs));
    ec = Drive(session->ioc, nullptr,
               [&](auto handler) { c->tls->async_handshake(asio::ssl::stream_base::client, std::move(handler)); });
    c->tcp.expires_never();
    if (ec || !CheckHostName(ssl, c->check)) {
      error = MapFailure(ec ? ec : asio::ssl::error::stream_truncated, &c->check, face);
      return false;
    }
    if (face == Face::WinHttp && c->check.clientCertAsked && !noClientCert) {
      error = ZONET_ERR_HTTP_CLIENT_AUTH_CERT_NEEDED;
      return false;
    }
  }
  m_connection = std::move(c);
  return true;
}

bool Request::ReadHead(uint32_t& error) {
  for (;;) {
    m_parser = std::make_unique<http::response_parser<http::buffer_body>>();
    m_parser->body_limit((std::numeric_limits<std::uint64_t>::max)());
    m_pending.clear();
    m_pendingOffset = 0;
    m_bodyDone = false;
    error_code ec = ReadHeader(*m_connection, *m_parser, timeouts.receiveMs);
    if (ec) {
      error = MapFailure(ec, &m_connection->check, face);
      m_parser.reset();
      return false;
    }
    unsigned status = Status();
    // Beast takes any three digits; a status below 100 is no HTTP reply.
    if (status < 100) {
      error = ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE;
      m_parser.reset();
      return false;
    }
    // Interim replies carry no body: the real one follows.
    if (status / 100 == 1 && status != 101) continue;
    NoteChallenge(status);
    if (m_parser->is_done()) FinishBody();
    return true;
  }
}

void Request::FinishBody() {
  m_bodyDone = true;
  if (m_connection && m_parser && m_parser->get().keep_alive() && !m_connectRefused) {
    m_connection->reused = false;
    session->GiveBack(std::move(m_connection));
  }
  m_connection.reset();
}

// Ends the current reply so that the request can go again: a short body is
// read away and the connection kept, a long one costs the connection.
bool Request::DrainOrDrop() {
  if (m_parser && !m_bodyDone) {
    auto length = m_parser->content_length();
    if (!m_connectRefused && (m_parser->chunked() || (length && *length <= kDrainLimit))) {
      char sink[4096];
      size_t got = 0;
      uint32_t ignored = 0;
      uint64_t total = 0;
      while (Read(sink, sizeof sink, got, ignored) && got > 0 && total <= kDrainLimit) total += got;
    }
  }
  if (!m_bodyDone) m_connection.reset();
  m_parser.reset();
  m_connection.reset();
  m_connectRefused = false;
  return true;
}

bool Request::Attempt(const std::string& body, uint64_t contentLength, bool openBody, uint32_t& error) {
  std::string head;
  m_streaming = openBody;
  for (int tries = 0; tries < 2; ++tries) {
    m_connectRefused = false;
    if (!OpenConnection(error)) return false;
    if (m_connectRefused) {
      // The proxy refused the tunnel: its reply stands for the request's.
      if (openBody) {
        // A streamed body cannot go: the caller learns of the refusal from
        // the status, but only while credentials could still change it, so
        // that a caller who resends on every challenge does not loop forever.
        if (!proxyUser.empty()) {
          m_parser.reset();
          m_connection.reset();
        }
        error = ZONET_ERR_HTTP_CONNECTION_ABORTED;
        return false;
      }
      return true;
    }
    bool reused = m_connection->reused;
    // The head is made once: a second try on a fresh connection sends the
    // same bytes (a Digest count included).
    if (head.empty()) {
      head = Head(contentLength, (openBody && (face == Face::WinInet || contentLength > 0)) || !body.empty());
      if (!m_serverChallenge.empty() && (!user.empty() || !password.empty()) && (m_serverSchemes & 9) != 0) {
        head += AuthorizationFor(m_serverChallenge, user, password, "Authorization") + "\r\n";
      }
      if (m_viaProxy && !url.secure && !proxyUser.empty()) {
        head += AuthorizationFor(m_proxyChallenge, proxyUser, proxyPassword, "Proxy-Authorization") + "\r\n";
      }
      head += "\r\n";
    }
    std::vector<asio::const_buffer> buffers{asio::buffer(head)};
    if (!body.empty()) buffers.push_back(asio::buffer(body));
    error_code ec = WriteAll(*m_connection, buffers, timeouts.sendMs, nullptr);
    if (ec) {
      error = MapFailure(ec, &m_connection->check, face);
      m_connection.reset();
      if (reused) continue;  // the server had closed a kept-alive connection
      return false;
    }
    if (openBody) return true;
    if (!ReadHead(error)) {
      m_connection.reset();
      if (reused && (error == ZONET_ERR_HTTP_CONNECTION_ABORTED || error == ZONET_ERR_HTTP_CONNECTION_RESET)) continue;
      return false;
    }
    return true;
  }
  return false;
}

bool Request::Send(const std::string& body, uint64_t contentLength, bool openBody, uint32_t& error) {
  // Whatever is left of an earlier reply goes first.
  DrainOrDrop();
  failure = 0;
  m_deferredError = 0;
  m_bodyOpen = false;
  bool serverTried = false, proxyTried = false;
  int redirects = 0;
  for (;;) {
    if (!Attempt(body, contentLength, openBody, error)) {
      failure = error;
      return false;
    }
    if (openBody) {
      m_bodyOpen = true;
      m_outgoing.clear();
      return true;
    }
    unsigned status = Status();
    // The connection's user and password answer a server's challenge once.
    if (status == 401 && autoAnswer && !serverTried && (!user.empty() || !password.empty()) && (m_serverSchemes & 9) != 0) {
      serverTried = true;
      DrainOrDrop();
      continue;
    }
    // Proxy credentials answer a proxy's challenge once.
    if (status == 407 && autoAnswer && !proxyTried && !proxyUser.empty() && (m_proxySchemes & 9) != 0) {
      proxyTried = true;
      DrainOrDrop();
      continue;
    }
    if (followRedirects && verb == "GET" && IsRedirect(status) && redirects < kRedirectLimit) {
      auto location = m_parser->get().find(http::field::location);
      if (location != m_parser->get().end()) {
        std::string where(location->value());
        Url next = url;
        uint32_t why = 0;
        if (where.find("://") != std::string::npos) {
          if (!ParseUrl(where, next, why)) return true;
        } else if (!where.empty() && where[0] == '/') {
          next.target = where;
        } else {
          size_t slash = url.target.rfind('/');
          next.target = url.target.substr(0, slash + 1) + where;
        }
        if (next.host != url.host || next.port != url.port || next.secure != url.secure) {
          m_serverChallenge.clear();
          m_serverSchemes = 0;
        }
        ++redirects;
        DrainOrDrop();
        url = next;
        continue;
      }
    }
    return true;
  }
}

bool Request::WriteBody(const void* data, size_t size, size_t& written, uint32_t& error) {
  written = 0;
  if (!m_bodyOpen || !m_connection) {
    // After a failed send, its reason: the caller that writes on regardless
    // learns why.
    error = failure != 0 ? failure : static_cast<uint32_t>(ZONET_ERR_HTTP_INCORRECT_HANDLE_STATE);
    return false;
  }
  // Small pieces are gathered and go out together; a piece as large as the
  // gathering goes out at once behind what was gathered. A failure of the
  // connection shows at the write that sends, or at EndBody.
  const size_t kGather = 64 * 1024;
  if (m_outgoing.size() + size >= kGather && !FlushBody(error)) return false;
  if (size < kGather) {
    m_outgoing.insert(m_outgoing.end(), static_cast<const char*>(data), static_cast<const char*>(data) + size);
    written = size;
    return true;
  }
  error_code ec = WriteAll(*m_connection, asio::buffer(data, size), timeouts.sendMs, &written);
  if (ec) {
    error = MapFailure(ec, &m_connection->check, face);
    return false;
  }
  return true;
}

bool Request::FlushBody(uint32_t& error) {
  if (m_outgoing.empty()) return true;
  size_t sent = 0;
  error_code ec = WriteAll(*m_connection, asio::buffer(m_outgoing), timeouts.sendMs, &sent);
  m_outgoing.clear();
  if (ec) {
    error = MapFailure(ec, &m_connection->check, face);
    return false;
  }
  return true;
}

bool Request::EndBody(bool& challenged, uint32_t& error) {
  challenged = false;
  if (!m_bodyOpen || !m_connection) {
    error = ZONET_ERR_HTTP_INCORRECT_HANDLE_STATE;
    return false;
  }
  m_bodyOpen = false;
  if (!FlushBody(error)) {
    failure = error;
    m_connection.reset();
    return false;
  }
  if (!ReadHead(error)) {
    failure = error;
    m_connection.reset();
    return false;
  }
  unsigned status = Status();
  challenged = autoAnswer && ((status == 401 && (!user.empty() || !password.empty()) && (m_serverSchemes & 9) != 0) ||
                             (status == 407 && !proxyUser.empty()));
  if (challenged) DrainOrDrop();
  return true;
}

bool Request::Read(void* buffer, size_t size, size_t& got, uint32_t& error) {
  got = 0;
  if (!m_parser) {
    error = failure != 0 ? failure : static_cast<uint32_t>(ZONET_ERR_HTTP_INCORRECT_HANDLE_STATE);
    return false;
  }
  if (m_pendingOffset < m_pending.size()) {
    got = std::min(size, m_pending.size() - m_pendingOffset);
    std::memcpy(buffer, m_pending.data() + m_pendingOffset, got);
    m_pendingOffset += got;
    return true;
  }
  if (m_deferredError != 0) {
    error = m_deferredError;
    return false;
  }
  while (!m_bodyDone && size > 0) {
    if (!m_connection) {
      error = ZONET_ERR_HTTP_CONNECTION_ABORTED;
      return false;
    }
    auto& body = m_parser->get().body();
    body.data = buffer;
    body.size = size;
    body.more = true;
    error_code ec;
    // Bytes already received are parsed first: one receive serves several
    // reads. More is received only when they run out or can't make a piece.
    bool receive = m_connection->buffer.size() == 0;
    for (;;) {
      if (receive) {
        ec = Receive(*m_connection, timeouts.receiveMs);
        // The end of the connection ends a body that has no length.
        if (ec == asio::error::eof) {
          ec = {};
          m_parser->put_eof(ec);
          break;
        }
        if (ec) break;
      }
      size_t used = m_parser->put(m_connection->buffer.data(), ec);
      m_connection->buffer.consume(used);
      if (ec == http::error::need_buffer || ec == http::error::need_more) ec = {};
      if (ec || body.size != size || m_parser->is_done()) break;
      receive = used == 0 || m_connection->buffer.size() == 0;
    }
    got = size - body.size;
    body.data = nullptr;
    body.size = 0;
    if (ec) {
      error = MapFailure(ec, &m_connection->check, face);
      failure = error;
      m_connection.reset();
      // Bytes that came before the failure are handed out first.
      if (got > 0) {
        m_deferredError = error;
        return true;
      }
      return false;
    }
    if (m_parser->is_done()) FinishBody();
    if (got > 0) break;
  }
  return true;
}

bool Request::Available(size_t& available, uint32_t& error) {
  available = 0;
  if (!m_parser) {
    error = failure != 0 ? failure : static_cast<uint32_t>(ZONET_ERR_HTTP_INCORRECT_HANDLE_STATE);
    return false;
  }
  if (m_pendingOffset < m_pending.size() || m_bodyDone) {
    available = m_pending.size() - m_pendingOffset;
    return true;
  }
  // A body of known length without chunks: what the buffer holds of it can
  // be read without waiting, so it is counted where it lies, not copied
  // aside first (a read then parses it straight into the caller's buffer).
  auto remaining = m_parser->content_length_remaining();
  if (!m_parser->chunked() && remaining && *remaining > 0 && m_connection && m_deferredError == 0) {
    error_code ec;
    if (m_connection->buffer.size() == 0) ec = Receive(*m_connection, timeouts.receiveMs);
    if (!ec) {
      available = static_cast<size_t>(std::min<uint64_t>(m_connection->buffer.size(), *remaining));
      return true;
    }
    if (ec != asio::error::eof) {
      error = MapFailure(ec, &m_connection->check, face);
      failure = error;
      m_connection.reset();
      return false;
    }
    // A close before the end: the read below reports it.
  }
  // Otherwise one read ahead, kept for the reads that follow. The storage
  // stays between calls; while the read fills it, nothing in it is pending.
  m_pending.resize(kReadAhead);
  m_pendingOffset = m_pending.size();
  size_t got = 0;
  bool ok = Read(m_pending.data(), m_pending.size(), got, error);
  m_pending.resize(ok ? got : 0);
  m_pendingOffset = 0;
  if (!ok) return false;
  available = got;
  return true;
}

}  // namespace engine
}  // namespace zonet_http
