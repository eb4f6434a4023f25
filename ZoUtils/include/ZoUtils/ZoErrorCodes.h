/**
 * @file
 * The library's own fixed error codes, in one table.
 *
 * Errors that come from a system call travel as that call's own number (errno,
 * or the EAI_* code of the resolver). The codes below are the ones the library
 * makes itself; each has a name, the number it has on Windows and the number
 * it has on Linux, chosen by meaning. Code compares against the names, never
 * against numbers, so the same source builds for either platform.
 *
 * This header compiles as C and as C++.
 */
#ifndef ZOUTILS_ZOERRORCODES_H
#define ZOUTILS_ZOERRORCODES_H

#include "ZoUtils/ZoUtilsExport.h"

#ifndef _WIN32
#include <errno.h>
#include <netdb.h>
/* A strict ISO C compile (-std=c11) hides the resolver's codes; these are
 * glibc's fixed values. */
#ifndef EAI_NONAME
/** The resolver's "name or service not known" (glibc's value). */
#define EAI_NONAME -2
#endif
#ifndef EAI_AGAIN
/** The resolver's "temporary failure" (glibc's value). */
#define EAI_AGAIN -3
#endif
#ifndef EAI_FAIL
/** The resolver's "non-recoverable failure" (glibc's value). */
#define EAI_FAIL -4
#endif
#endif

/**
 * The table: XX(name, windows, linux, meaning) for every fixed code. Expand
 * it with a macro of those four arguments to generate from it (the
 * ::ZONET_ERROR_CODE enumeration and ZONET_ErrorCodeName() are made so).
 *
 * Two names may share one Linux number where Linux has no finer word; the
 * comment on each says which Windows code it stands for.
 */
#define ZONET_ERROR_CODE_MAP(XX)                                                                 \
  /* Object layer, through ErrorWin32 */                                                         \
  XX(ZONET_ERR_INVALID_PARAMETER, 87, EINVAL, "invalid argument")                                \
  XX(ZONET_ERR_INVALID_STATE, 774, EBADFD, "wrong object state, socket closed, time-out")        \
  XX(ZONET_ERR_NOT_ENOUGH_MEMORY, 8, ENOMEM, "out of memory (flat layer and interface walk)")    \
  XX(ZONET_ERR_OUTOFMEMORY, 14, ENOMEM, "out of memory (descriptor sets, blacklist)")           \
  XX(ZONET_ERR_INVALID_DATA, 13, EBADMSG, "data that cannot be read as what it should be")       \
  XX(ZONET_ERR_NOT_SUPPORTED, 50, EOPNOTSUPP, "not supported on this system")                    \
  XX(ZONET_ERR_NO_DATA, 232, ENODATA, "no data")                                                 \
  XX(ZONET_ERR_BUFFER_OVERFLOW, 111, EOVERFLOW, "the answer does not fit the buffer given")    \
  XX(ZONET_ERR_NO_MORE_ITEMS, 259, ENOENT, "end of a walk")                                      \
  XX(ZONET_ERR_NOT_FOUND, 1168, ENOENT, "not found")                                             \
  XX(ZONET_ERR_EMPTY, 4306, ENODATA, "an empty file")                                            \
  XX(ZONET_ERR_MOD_NOT_FOUND, 126, ELIBACC, "a library could not be loaded")                     \
  XX(ZONET_ERR_PROC_NOT_FOUND, 127, ENOSYS, "a function was not found in a loaded library")      \
  /* Socket layer */                                                                             \
  XX(ZONET_ERR_NOT_SOCKET, 10038, ENOTSOCK, "not a socket")                                      \
  XX(ZONET_ERR_AF_NOT_SUPPORTED, 10047, EAFNOSUPPORT, "no address of a usable family")           \
  XX(ZONET_ERR_INSUFFICIENT_BUFFER, 122, ENOBUFS, "the buffer given is too small for the answer") \
  XX(ZONET_ERR_INVALID_HANDLE, 6, EBADF, "a handle that is not (or no longer) open")             \
  /* Platform HTTP layer: the designed platform's own numbers on both platforms (Linux has no \
   * words for these meanings, and they are positive, which the transfers rely on) */         \
  XX(ZONET_ERR_HTTP_TIMEOUT, 12002, 12002, "the operation timed out")                            \
  XX(ZONET_ERR_HTTP_INTERNAL_ERROR, 12004, 12004, "internal error of the HTTP layer")            \
  XX(ZONET_ERR_HTTP_INVALID_URL, 12005, 12005, "the URL is invalid")                             \
  XX(ZONET_ERR_HTTP_UNRECOGNIZED_SCHEME, 12006, 12006, "the URL's scheme is not supported")      \
  XX(ZONET_ERR_HTTP_NAME_NOT_RESOLVED, 12007, 12007, "the server name could not be resolved")    \
  XX(ZONET_ERR_HTTP_INVALID_OPTION, 12009, 12009, "an unknown option")                           \
  XX(ZONET_ERR_HTTP_BAD_OPTION_LENGTH, 12010, 12010, "an option value of the wrong size")        \
  XX(ZONET_ERR_HTTP_LOGIN_FAILURE, 12015, 12015, "the server asked for a logon that could not be given") \
  XX(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE, 12018, 12018, "a handle of the wrong type")           \
  XX(ZONET_ERR_HTTP_INCORRECT_HANDLE_STATE, 12019, 12019, "a call out of order on a handle")     \
  XX(ZONET_ERR_HTTP_CANNOT_CONNECT, 12029, 12029, "the connection to the server failed")         \
  XX(ZONET_ERR_HTTP_CONNECTION_ABORTED, 12030, 12030, "the connection was aborted or ended early") \
  XX(ZONET_ERR_HTTP_CONNECTION_RESET, 12031, 12031, "the connection was reset")                  \
  XX(ZONET_ERR_HTTP_FORCE_RETRY, 12032, 12032, "send the whole request again")                   \
  XX(ZONET_ERR_HTTP_SEC_CERT_DATE_INVALID, 12037, 12037, "the certificate is expired or not yet valid") \
  XX(ZONET_ERR_HTTP_SEC_CERT_CN_INVALID, 12038, 12038, "the certificate's name does not match")  \
  XX(ZONET_ERR_HTTP_CLIENT_AUTH_CERT_NEEDED, 12044, 12044, "the server asks for a client certificate") \
  XX(ZONET_ERR_HTTP_INVALID_CA, 12045, 12045, "the certificate's authority is not trusted")      \
  XX(ZONET_ERR_HTTP_HEADER_NOT_FOUND, 12150, 12150, "no reply, or no such header in it")          \
  XX(ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE, 12152, 12152, "the server's reply cannot be read")  \
  XX(ZONET_ERR_HTTP_INVALID_HEADER, 12153, 12153, "a header line that is not \"name: value\"")  \
  XX(ZONET_ERR_HTTP_SECURITY_CHANNEL_ERROR, 12157, 12157, "secure channel failure (first client's numbering)") \
  XX(ZONET_ERR_HTTP_BAD_AUTO_PROXY_SCRIPT, 12166, 12166, "the proxy configuration script does not evaluate") \
  XX(ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT, 12167, 12167, "the proxy configuration script cannot be fetched") \
  XX(ZONET_ERR_HTTP_AUTODETECTION_FAILED, 12180, 12180, "proxy auto-detection found no script") \
  XX(ZONET_ERR_HTTP_SECURE_FAILURE, 12175, 12175, "secure channel failure (second client's numbering)") \
  /* Resolver: EAI_* codes on Linux, negative numbers */                                         \
  XX(ZONET_ERR_HOST_NOT_FOUND, 11001, EAI_NONAME, "host not found, or a DNS name collision")     \
  XX(ZONET_ERR_TRY_AGAIN, 11002, EAI_AGAIN, "temporary resolver failure")                        \
  XX(ZONET_ERR_NO_RECOVERY, 11003, EAI_FAIL, "non-recoverable resolver failure")                 \
  /* Flat-layer codes of the library's own */                                                    \
  XX(ZONET_ERR_NAME_TOO_LONG, 7, ENAMETOOLONG, "a text or path does not fit")                    \
  XX(ZONET_ERR_NO_ADDRESS, 22, EADDRNOTAVAIL, "no address to try")                               \
  /* C-library numbers, through ErrorErrNo */                                                    \
  XX(ZONET_ERRNO_TIMEDOUT, 137, ETIMEDOUT, "timed out")                                          \
  XX(ZONET_ERRNO_IO, 5, EIO, "input/output error")                                               \
  XX(ZONET_ERRNO_AFNOSUPPORT, 102, EAFNOSUPPORT, "address family not supported")

#ifdef _WIN32
#define ZONET_ERROR_CODE_ENUM_(name, win, lnx, text) name = (win),
#else
#define ZONET_ERROR_CODE_ENUM_(name, win, lnx, text) name = (lnx),
#endif

/**
 * The fixed codes as constants, one per row of ZONET_ERROR_CODE_MAP, each
 * with this platform's number. The ZONET_ERR_* codes belong to the system
 * domain (FXErrorUtil::ErrorWin32, or a flat function's result), the
 * ZONET_ERRNO_* codes to the C-library domain (FXErrorUtil::ErrorErrNo).
 */
enum ZONET_ERROR_CODE { ZONET_ERROR_CODE_MAP(ZONET_ERROR_CODE_ENUM_) };

#undef ZONET_ERROR_CODE_ENUM_

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The name of a fixed code ("ZONET_ERR_INVALID_STATE"), or NULL when the number
 * is none of them. Where two names share a number the first of the table is
 * given. The text is static.
 */
ZOUTILS_API const char* ZONET_ErrorCodeName(int code);

#ifdef __cplusplus
}
#endif

#endif /* ZOUTILS_ZOERRORCODES_H */
