// The platform HTTP layer: the narrow set of operations that the platform HTTP
// clients are written against, with the designed platform's handles, flags,
// options and error numbers. ZoHTTP.cpp (and the second client) call only
// this header; the implementation on Boost.Beast, Boost.Asio and OpenSSL is
// in beast/. Internal: nothing here is exported.
//
// Every operation runs on the caller's thread and starts no thread: the
// layer drives asynchronous operations with deadlines on an io_context of
// the session's own, on the calling thread, until they finish. Nothing is
// made before the first InternetOpen.
//
// Failures return null or false and leave the reason in the calling thread's
// last error (LastError()), a ZONET_ERR_HTTP_* number of the one error table
// or ZONET_ERR_INVALID_HANDLE / ZONET_ERR_INVALID_PARAMETER.
#ifndef ZONET_HTTP_HTTPPLATFORM_H
#define ZONET_HTTP_HTTPPLATFORM_H

#include <cstddef>
#include <cstdint>

namespace zonet_http {

// An opaque handle: a value the layer hands out and checks; never a pointer
// into memory. A closed handle stays invalid for the life of the process.
using Handle = void*;

// Open types.
constexpr uint32_t kOpenTypePreconfig = 0;  // the user's setting: http_proxy, https_proxy, no_proxy
constexpr uint32_t kOpenTypeDirect = 1;
constexpr uint32_t kOpenTypeProxy = 3;  // the proxy and bypass lists given to InternetOpen

constexpr uint32_t kServiceHttp = 3;

// Request flags.
constexpr uint32_t kFlagSecure = 0x00800000;
constexpr uint32_t kFlagReload = 0x80000000;
constexpr uint32_t kFlagNoCacheWrite = 0x04000000;
constexpr uint32_t kFlagKeepConnection = 0x00400000;
constexpr uint32_t kFlagNoAutoRedirect = 0x00200000;

// Header modifiers.
constexpr uint32_t kAddReqFlagAdd = 0x20000000;

// HttpQueryInfo levels.
constexpr uint32_t kQueryStatusCode = 19;
constexpr uint32_t kQueryRawHeadersCrlf = 22;
constexpr uint32_t kQueryFlagNumber = 0x20000000;

// HttpSendRequestEx flag.
constexpr uint32_t kHsrInitiate = 8;

// Options.
constexpr uint32_t kOptionConnectTimeout = 2;
constexpr uint32_t kOptionSendTimeout = 5;
constexpr uint32_t kOptionReceiveTimeout = 6;
constexpr uint32_t kOptionSecurityFlags = 31;
constexpr uint32_t kOptionProxyUsername = 43;
constexpr uint32_t kOptionProxyPassword = 44;

// Security flags.
constexpr uint32_t kSecurityFlagSecure = 0x00000001;
constexpr uint32_t kSecurityFlagIgnoreRevocation = 0x00000080;
constexpr uint32_t kSecurityFlagIgnoreUnknownCa = 0x00000100;
constexpr uint32_t kSecurityFlagIgnoreWrongUsage = 0x00000200;
constexpr uint32_t kSecurityFlagIgnoreCertCnInvalid = 0x00001000;
constexpr uint32_t kSecurityFlagIgnoreCertDateInvalid = 0x00002000;

// The record of HttpSendRequestEx; only the size and the total length are read.
struct InternetBuffers {
  uint32_t dwStructSize = 56;
  InternetBuffers* Next = nullptr;
  const char* lpcszHeader = nullptr;
  uint32_t dwHeadersLength = 0;
  uint32_t dwHeadersTotal = 0;
  void* lpvBuffer = nullptr;
  uint32_t dwBufferLength = 0;
  uint32_t dwBufferTotal = 0;
  uint32_t dwOffsetLow = 0;
  uint32_t dwOffsetHigh = 0;
};

// The reason for the calling thread's latest failure.
uint32_t LastError();
void SetLastError(uint32_t code);

Handle InternetOpen(const char* agent, uint32_t accessType, const char* proxy, const char* bypass, uint32_t flags);
Handle InternetConnect(Handle internet, const char* server, uint16_t port, const char* user, const char* password,
                       uint32_t service, uint32_t flags, uintptr_t context);
Handle HttpOpenRequest(Handle connect, const char* verb, const char* objectName, const char* version,
                       const char* referrer, const char** acceptTypes, uint32_t flags, uintptr_t context);
bool HttpAddRequestHeaders(Handle request, const char* headers, uint32_t length, uint32_t modifiers);
bool HttpSendRequest(Handle request, const char* headers, uint32_t headersLength, const void* optional,
                     uint32_t optionalLength);
bool HttpSendRequestEx(Handle request, const InternetBuffers* buffersIn, InternetBuffers* buffersOut,
                       uint32_t flags, uintptr_t context);
bool InternetWriteFile(Handle request, const void* data, uint32_t size, uint32_t* written);
bool HttpEndRequest(Handle request, InternetBuffers* buffersOut, uint32_t flags, uintptr_t context);
bool HttpQueryInfo(Handle request, uint32_t infoLevel, void* buffer, uint32_t* bufferLength, uint32_t* index);
bool InternetQueryDataAvailable(Handle request, uint32_t* available, uint32_t flags, uintptr_t context);
bool InternetReadFile(Handle handle, void* buffer, uint32_t size, uint32_t* read);
bool InternetQueryOption(Handle handle, uint32_t option, void* buffer, uint32_t* bufferLength);
bool InternetSetOption(Handle handle, uint32_t option, const void* buffer, uint32_t bufferLength);
Handle InternetOpenUrl(Handle internet, const char* url, const char* headers, uint32_t headersLength, uint32_t flags,
                       uintptr_t context);
bool InternetCloseHandle(Handle handle);

}  // namespace zonet_http

#endif  // ZONET_HTTP_HTTPPLATFORM_H
