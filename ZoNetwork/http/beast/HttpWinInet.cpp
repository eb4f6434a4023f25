// The first client's face of the platform HTTP layer (HttpPlatform.h): root,
// connection and request handles over the engine, with the designed
// platform's options, flags and numbers.
#include <cctype>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/empty_body.hpp>

#include "ZoUtils/ZoErrorCodes.h"
#include "http/HttpInternal.h"
#include "http/HttpPlatform.h"
#include "http/beast/HttpEngine.h"

namespace zonet_http {

using engine::Face;
using engine::Request;
using engine::Session;

namespace {

thread_local uint32_t t_lastError = 0;

enum class Kind { Root, Connect, Request };

struct Object {
  Kind kind;
  uintptr_t parent = 0;  // the handle this one was made on; closing that closes this
  std::shared_ptr<Session> session;
  engine::Timeouts timeouts;
  // Connection handles: the server and the credentials for its challenges.
  std::string host, user, password;
  uint16_t port = 80;
  std::string proxyUser, proxyPassword;
  // Request handles.
  std::unique_ptr<Request> request;
};

// Handles are numbers from a counter, never reused, looked up in one table:
// a handle closed twice, or never made, is refused without touching memory.
std::mutex g_mutex;
std::map<uintptr_t, std::shared_ptr<Object>> g_handles;
uintptr_t g_next = 0x10000;

Handle Register(std::shared_ptr<Object> object, Handle parent = nullptr) {
  object->parent = reinterpret_cast<uintptr_t>(parent);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_next += 4;
  g_handles[g_next] = std::move(object);
  return reinterpret_cast<Handle>(g_next);
}

std::shared_ptr<Object> Find(Handle handle) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto it = g_handles.find(reinterpret_cast<uintptr_t>(handle));
  if (it == g_handles.end()) return nullptr;
  return it->second;
}

bool Fail(uint32_t code) {
  t_lastError = code;
  return false;
}

std::shared_ptr<Object> Get(Handle handle, Kind kind) {
  std::shared_ptr<Object> object = Find(handle);
  if (!object) {
    t_lastError = ZONET_ERR_INVALID_HANDLE;
    return nullptr;
  }
  if (object->kind != kind) {
    t_lastError = ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE;
    return nullptr;
  }
  return object;
}

std::string Text(const char* text) { return text ? std::string(text) : std::string(); }

// Header text: split at CR LF; empty lines are ignored; every other line must
// be "name: value" with a token for a name, or the whole text is refused.
bool ParseHeaderLines(const char* text, uint32_t length, std::vector<std::string>& lines) {
  std::string all = text == nullptr ? std::string()
                                    : (length == 0xFFFFFFFFu ? std::string(text) : std::string(text, length));
  return engine::SplitHeaderLines(all, lines) || Fail(ZONET_ERR_HTTP_INVALID_HEADER);
}

bool SetTimeout(engine::Timeouts& timeouts, uint32_t option, uint32_t value) {
  engine::Timeouts defaults;
  switch (option) {
    case kOptionConnectTimeout: timeouts.connectMs = value ? value : defaults.connectMs; return true;
    case kOptionSendTimeout: timeouts.sendMs = value ? value : defaults.sendMs; return true;
    case kOptionReceiveTimeout: timeouts.receiveMs = value ? value : defaults.receiveMs; return true;
    default: return false;
  }
}

}  // namespace

uint32_t LastError() { return t_lastError; }
void SetLastError(uint32_t code) { t_lastError = code; }

Handle InternetOpen(const char* agent, uint32_t accessType, const char* proxy, const char* bypass, uint32_t) {
  if (accessType != kOpenTypePreconfig && accessType != kOpenTypeDirect && accessType != kOpenTypeProxy) {
    t_lastError = ZONET_ERR_INVALID_PARAMETER;
    return nullptr;
  }
  auto object = std::make_shared<Object>();
  object->kind = Kind::Root;
  object->session = std::make_shared<Session>(Text(agent), accessType, Text(proxy), Text(bypass));
  object->timeouts = object->session->timeouts;
  return Register(std::move(object));
}

Handle InternetConnect(Handle internet, const char* server, uint16_t port, const char* user, const char* password,
                       uint32_t service, uint32_t, uintptr_t) {
  std::shared_ptr<Object> root = Get(internet, Kind::Root);
  if (!root) return nullptr;
  if (service != kServiceHttp || server == nullptr || *server == '\0') {
    t_lastError = ZONET_ERR_INVALID_PARAMETER;
    return nullptr;
  }
  auto object = std::make_shared<Object>();
  object->kind = Kind::Connect;
  object->session = root->session;
  object->timeouts = root->timeouts;
  object->host = server;
  object->port = port == 0 ? 80 : port;
  object->user = Text(user);
  object->password = Text(password);
  return Register(std::move(object), internet);
}

Handle HttpOpenRequest(Handle connect, const char* verb, const char* objectName, const char* version,
                       const char* referrer, const char** acceptTypes, uint32_t flags, uintptr_t) {
  std::shared_ptr<Object> parent = Get(connect, Kind::Connect);
  if (!parent) return nullptr;
  auto object = std::make_shared<Object>();
  object->kind = Kind::Request;
  object->session = parent->session;
  object->timeouts = parent->timeouts;
  object->request = std::make_unique<Request>(parent->session, Face::WinInet);
  Request& r = *object->request;
  r.timeouts = parent->timeouts;
  r.verb = verb && *verb ? verb : "GET";
  if (version && *version) r.version = version;
  r.referrer = Text(referrer);
  for (const char** a = acceptTypes; a && *a; ++a) r.accept.push_back(*a);
  r.url.secure = (flags & kFlagSecure) != 0;
  r.url.host = parent->host;
  r.url.port = parent->port;
  // The object goes out with a leading "/"; a whole URL goes out as it is.
  std::string name = Text(objectName);
  std::string lower = name.substr(0, 8);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  bool absolute = lower.compare(0, 7, "http://") == 0 || lower.compare(0, 8, "https://") == 0;
  r.url.target = engine::EscapeTarget(absolute || (!name.empty() && name[0] == '/') ? name : "/" + name);
  r.user = parent->user;
  r.password = parent->password;
  r.proxyUser = parent->proxyUser;
  r.proxyPassword = parent->proxyPassword;
  r.followRedirects = (flags & kFlagNoAutoRedirect) == 0;
  return Register(std::move(object), connect);
}

bool HttpAddRequestHeaders(Handle request, const char* headers, uint32_t length, uint32_t) {
  std::shared_ptr<Object> object = Get(request, Kind::Request);
  if (!object) return false;
  return ParseHeaderLines(headers, length, object->request->extraHeaders);
}

bool HttpSendRequest(Handle request, const char* headers, uint32_t headersLength, const void* optional,
                     uint32_t optionalLength) {
  std::shared_ptr<Object> object = Get(request, Kind::Request);
  if (!object) return false;
  Request& r = *object->request;
  std::vector<std::string> saved = r.extraHeaders;
  if (headers != nullptr && !ParseHeaderLines(headers, headersLength, r.extraHeaders)) return false;
  std::string body = optional ? std::string(static_cast<const char*>(optional), optionalLength) : std::string();
  uint32_t error = 0;
  bool ok = r.Send(body, body.size(), false, error);
  r.extraHeaders = saved;
  return ok ? true : Fail(error);
}

bool HttpSendRequestEx(Handle request, const InternetBuffers* buffersIn, InternetBuffers*, uint32_t, uintptr_t) {
  std::shared_ptr<Object> object = Get(request, Kind::Request);
  if (!object) return false;
  uint64_t total = buffersIn ? buffersIn->dwBufferTotal : 0;
  uint32_t error = 0;
  return object->request->Send(std::string(), total, true, error) ? true : Fail(error);
}

bool InternetWriteFile(Handle request, const void* data, uint32_t size, uint32_t* written) {
  if (written) *written = 0;
  std::shared_ptr<Object> object = Get(request, Kind::Request);
  if (!object) return false;
  if (data == nullptr && size > 0) return Fail(ZONET_ERR_INVALID_PARAMETER);
  size_t done = 0;
  uint32_t error = 0;
  if (!object->request->WriteBody(data, size, done, error)) return Fail(error);
  if (written) *written = static_cast<uint32_t>(done);
  return true;
}

bool HttpEndRequest(Handle request, InternetBuffers*, uint32_t, uintptr_t) {
  std::shared_ptr<Object> object = Get(request, Kind::Request);
  if (!object) return false;
  bool challenged = false;
  uint32_t error = 0;
  if (!object->request->EndBody(challenged, error)) return Fail(error);
  // A challenge that the held credentials can answer: the caller sends the
  // whole request again, and the next send carries them.
  if (challenged) return Fail(ZONET_ERR_HTTP_FORCE_RETRY);
  return true;
}

bool HttpQueryInfo(Handle request, uint32_t infoLevel, void* buffer, uint32_t* bufferLength, uint32_t*) {
  std::shared_ptr<Object> object = Get(request, Kind::Request);
  if (!object) return false;
  Request& r = *object->request;
  if (bufferLength == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  // No reply: a failed send keeps its reason, so a caller that asks for the
  // status after a failure learns why.
  if (!r.HaveReply()) return Fail(r.failure != 0 ? r.failure : static_cast<uint32_t>(ZONET_ERR_HTTP_HEADER_NOT_FOUND));
  uint32_t level = infoLevel & 0xFFFF;
  std::string text;
  if (level == kQueryStatusCode) {
    if (infoLevel & kQueryFlagNumber) {
      if (*bufferLength < 4 || buffer == nullptr) {
        *bufferLength = 4;
        return Fail(ZONET_ERR_INSUFFICIENT_BUFFER);
      }
      uint32_t status = r.Status();
      std::memcpy(buffer, &status, 4);
      *bufferLength = 4;
      return true;
    }
    text = std::to_string(r.Status());
  } else if (level == kQueryRawHeadersCrlf) {
    text = r.RawHeaders();
  } else {
    return Fail(ZONET_ERR_HTTP_HEADER_NOT_FOUND);
  }
  if (buffer == nullptr || *bufferLength < text.size() + 1) {
    *bufferLength = static_cast<uint32_t>(text.size() + 1);
    return Fail(ZONET_ERR_INSUFFICIENT_BUFFER);
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  *bufferLength = static_cast<uint32_t>(text.size());
  return true;
}

bool InternetQueryDataAvailable(Handle request, uint32_t* available, uint32_t, uintptr_t) {
  std::shared_ptr<Object> object = Get(request, Kind::Request);
  if (!object) return false;
  if (available == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  size_t count = 0;
  uint32_t error = 0;
  if (!object->request->Available(count, error)) return Fail(error);
  *available = static_cast<uint32_t>(count);
  return true;
}

bool InternetReadFile(Handle handle, void* buffer, uint32_t size, uint32_t* read) {
  if (read) *read = 0;
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  if (read == nullptr || (buffer == nullptr && size > 0)) return Fail(ZONET_ERR_INVALID_PARAMETER);
  size_t got = 0;
  uint32_t error = 0;
  if (!object->request->Read(buffer, size, got, error)) return Fail(error);
  *read = static_cast<uint32_t>(got);
  return true;
}

bool InternetQueryOption(Handle handle, uint32_t option, void* buffer, uint32_t* bufferLength) {
  std::shared_ptr<Object> object = Find(handle);
  if (!object) return Fail(ZONET_ERR_INVALID_HANDLE);
  if (bufferLength == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  uint32_t value = 0;
  switch (option) {
    case kOptionConnectTimeout: value = object->timeouts.connectMs; break;
    case kOptionSendTimeout: value = object->timeouts.sendMs; break;
    case kOptionReceiveTimeout: value = object->timeouts.receiveMs; break;
    case kOptionSecurityFlags:
      if (object->kind != Kind::Request) return Fail(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE);
      value = object->request->securityFlags | (object->request->url.secure ? kSecurityFlagSecure : 0);
      break;
    case kOptionProxyUsername:
    case kOptionProxyPassword: {
      if (object->kind == Kind::Root) return Fail(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE);
      const std::string& text = object->kind == Kind::Request
                                    ? (option == kOptionProxyUsername ? object->request->proxyUser
                                                                      : object->request->proxyPassword)
                                    : (option == kOptionProxyUsername ? object->proxyUser : object->proxyPassword);
      if (buffer == nullptr || *bufferLength < text.size() + 1) {
        *bufferLength = static_cast<uint32_t>(text.size() + 1);
        return Fail(ZONET_ERR_INSUFFICIENT_BUFFER);
      }
      std::memcpy(buffer, text.c_str(), text.size() + 1);
      *bufferLength = static_cast<uint32_t>(text.size());
      return true;
    }
    default: return Fail(ZONET_ERR_HTTP_INVALID_OPTION);
  }
  if (buffer == nullptr || *bufferLength < 4) {
    *bufferLength = 4;
    return Fail(ZONET_ERR_INSUFFICIENT_BUFFER);
  }
  std::memcpy(buffer, &value, 4);
  *bufferLength = 4;
  return true;
}

bool InternetSetOption(Handle handle, uint32_t option, const void* buffer, uint32_t bufferLength) {
  std::shared_ptr<Object> object = Find(handle);
  if (!object) return Fail(ZONET_ERR_INVALID_HANDLE);
  switch (option) {
    case kOptionConnectTimeout:
    case kOptionSendTimeout:
    case kOptionReceiveTimeout: {
      if (buffer == nullptr || bufferLength != 4) return Fail(ZONET_ERR_HTTP_BAD_OPTION_LENGTH);
      uint32_t value;
      std::memcpy(&value, buffer, 4);
      SetTimeout(object->timeouts, option, value);
      if (object->kind == Kind::Request) SetTimeout(object->request->timeouts, option, value);
      return true;
    }
    case kOptionSecurityFlags: {
      if (object->kind != Kind::Request) return Fail(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE);
      if (buffer == nullptr || bufferLength != 4) return Fail(ZONET_ERR_HTTP_BAD_OPTION_LENGTH);
      uint32_t value;
      std::memcpy(&value, buffer, 4);
      // Revocation is not checked on this system; its flag is taken and kept.
      object->request->securityFlags = value & ~kSecurityFlagSecure;
      return true;
    }
    case kOptionProxyUsername:
    case kOptionProxyPassword: {
      if (object->kind == Kind::Root) return Fail(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE);
      std::string text = buffer ? std::string(static_cast<const char*>(buffer), bufferLength) : std::string();
      text = text.c_str();  // a length that counts a NUL ends there
      if (object->kind == Kind::Request) {
        (option == kOptionProxyUsername ? object->request->proxyUser : object->request->proxyPassword) = text;
      } else {
        (option == kOptionProxyUsername ? object->proxyUser : object->proxyPassword) = text;
      }
      return true;
    }
    default: return Fail(ZONET_ERR_HTTP_INVALID_OPTION);
  }
}

Handle InternetOpenUrl(Handle internet, const char* url, const char* headers, uint32_t headersLength, uint32_t flags,
                       uintptr_t) {
  std::shared_ptr<Object> root = Get(internet, Kind::Root);
  if (!root) return nullptr;
  if (url == nullptr) {
    t_lastError = ZONET_ERR_INVALID_PARAMETER;
    return nullptr;
  }
  auto object = std::make_shared<Object>();
  object->kind = Kind::Request;
  object->session = root->session;
  object->timeouts = root->timeouts;
  object->request = std::make_unique<Request>(root->session, Face::WinInet);
  Request& r = *object->request;
  r.timeouts = root->timeouts;
  uint32_t why = 0;
  if (!engine::ParseUrl(url, r.url, why)) {
    t_lastError = why;
    return nullptr;
  }
  r.verb = "GET";
  r.accept.push_back("*/*");
  r.followRedirects = (flags & kFlagNoAutoRedirect) == 0;
  if (headers != nullptr && !ParseHeaderLines(headers, headersLength, r.extraHeaders)) return nullptr;
  uint32_t error = 0;
  if (!r.Send(std::string(), 0, false, error)) {
    t_lastError = error;
    return nullptr;
  }
  return Register(std::move(object), internet);
}

bool InternetCloseHandle(Handle handle) {
  // Closing a handle closes the handles made on it, as on the designed
  // platform: a page handle left open by its caller goes with the root.
  std::vector<std::shared_ptr<Object>> closing;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_handles.find(reinterpret_cast<uintptr_t>(handle));
    if (it == g_handles.end()) return Fail(ZONET_ERR_INVALID_HANDLE);
    std::vector<uintptr_t> ids{it->first};
    for (size_t i = 0; i < ids.size(); ++i) {
      for (const auto& entry : g_handles) {
        if (entry.second->parent == ids[i]) ids.push_back(entry.first);
      }
    }
    // Children first, so that requests go before their session.
    for (size_t i = ids.size(); i-- > 0;) {
      auto found = g_handles.find(ids[i]);
      closing.push_back(std::move(found->second));
      g_handles.erase(found);
    }
  }
  // The objects (and, with the last of a session, its connections and
  // io_context) go here, outside the lock.
  for (auto& object : closing) object.reset();
  return true;
}

}  // namespace zonet_http

namespace zonet_internal {

size_t HttpOpenHandleCount() {
  std::lock_guard<std::mutex> lock(zonet_http::g_mutex);
  return zonet_http::g_handles.size();
}

bool HttpParseReplyHead(const char* data, size_t size, unsigned& status,
                        std::vector<std::pair<std::string, std::string>>& fields, uint32_t& error) {
  namespace http = boost::beast::http;
  status = 0;
  fields.clear();
  http::response_parser<http::empty_body> parser;
  parser.eager(false);
  boost::system::error_code ec;
  size_t used = 0;
  while (used < size && !parser.is_header_done()) {
    size_t n = parser.put(boost::asio::buffer(data + used, size - used), ec);
    if (ec || n == 0) break;
    used += n;
  }
  if (ec == http::error::need_more || (!ec && !parser.is_header_done())) ec = http::error::partial_message;
  if (!ec && parser.get().result_int() < 100) ec = http::error::bad_status;
  if (ec) {
    error = zonet_http::engine::MapFailure(ec, nullptr, zonet_http::engine::Face::WinInet);
    return false;
  }
  status = parser.get().result_int();
  for (const auto& field : parser.get()) fields.emplace_back(std::string(field.name_string()), std::string(field.value()));
  return true;
}

std::string HttpChooseProxy(const std::string& list, const std::string& bypass, bool secure, const std::string& host) {
  auto choice = zonet_http::engine::ChooseProxy(list, bypass, secure, host);
  return choice.use ? choice.host + ":" + std::to_string(choice.port) : std::string();
}

std::string HttpChooseProxyFromEnvironment(bool secure, const std::string& host) {
  auto choice = zonet_http::engine::ChooseProxyFromEnvironment(secure, host);
  return choice.use ? choice.host + ":" + std::to_string(choice.port) : std::string();
}

}  // namespace zonet_internal
