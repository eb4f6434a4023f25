// How the tool shows what the library said: a head line that names the
// error's domain and number the way a person looks them up ("errno 110
// ETIMEDOUT", "resolver EAI_NONAME", the library's own ZONET_ERR_* name), then
// every entry of the chain with its place in the source.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <string>
#include <vector>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnCURLError.h"
#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoErrorCodes.h"
#include "commands.h"

namespace zonet {

namespace {

// The library's fixed names that stand for number on this platform. The
// ZONET_ERRNO_* rows are numbers of the C-library domain (ErrorErrNo), the
// others numbers of the system domain (ErrorWin32); wantErrNoRows picks which.
// Several names may share one number, so all of them are given.
std::string FixedNames(long number, bool wantErrNoRows) {
  struct Row {
    const char* name;
    long value;
  };
#define ZONET_TOOL_ROW_(name, win, lnx, text) {#name, static_cast<long>(name)},
  static const Row rows[] = {ZONET_ERROR_CODE_MAP(ZONET_TOOL_ROW_)};
#undef ZONET_TOOL_ROW_
  static const char kErrNoPrefix[] = "ZONET_ERRNO_";
  std::string names;
  for (const Row& row : rows) {
    const bool errNoRow = std::strncmp(row.name, kErrNoPrefix, sizeof kErrNoPrefix - 1) == 0;
    if (row.value != number || errNoRow != wantErrNoRows) continue;
    if (!names.empty()) names += ", ";
    names += row.name;
  }
  return names;
}

// glibc names every errno it knows; a number it does not know has no name.
std::string ErrnoName(long number) {
  const char* name = number > 0 ? strerrorname_np(static_cast<int>(number)) : nullptr;
  return name != nullptr ? name : "";
}

// The resolver's codes have no name function of their own.
std::string ResolverName(long code) {
  switch (code) {
#define ZONET_TOOL_EAI_(name) \
  case name:                  \
    return #name;
    ZONET_TOOL_EAI_(EAI_BADFLAGS)
    ZONET_TOOL_EAI_(EAI_NONAME)
    ZONET_TOOL_EAI_(EAI_AGAIN)
    ZONET_TOOL_EAI_(EAI_FAIL)
    ZONET_TOOL_EAI_(EAI_FAMILY)
    ZONET_TOOL_EAI_(EAI_SOCKTYPE)
    ZONET_TOOL_EAI_(EAI_SERVICE)
    ZONET_TOOL_EAI_(EAI_MEMORY)
    ZONET_TOOL_EAI_(EAI_SYSTEM)
    ZONET_TOOL_EAI_(EAI_OVERFLOW)
#ifdef EAI_NODATA
    ZONET_TOOL_EAI_(EAI_NODATA)
#endif
#ifdef EAI_ADDRFAMILY
    ZONET_TOOL_EAI_(EAI_ADDRFAMILY)
#endif
#ifdef EAI_INPROGRESS
    ZONET_TOOL_EAI_(EAI_INPROGRESS)
    ZONET_TOOL_EAI_(EAI_CANCELED)
    ZONET_TOOL_EAI_(EAI_NOTCANCELED)
    ZONET_TOOL_EAI_(EAI_ALLDONE)
    ZONET_TOOL_EAI_(EAI_INTR)
#endif
#ifdef EAI_IDN_ENCODE
    ZONET_TOOL_EAI_(EAI_IDN_ENCODE)
#endif
#undef ZONET_TOOL_EAI_
    default:
      return "";
  }
}

std::string Join(const std::string& head, const std::string& name) { return name.empty() ? head : head + " " + name; }

// " (ZONET_ERRNO_A)" or " (also ZONET_ERR_A, ZONET_ERR_B)", or nothing.
std::string Aka(const std::string& names, const char* lead = "") {
  return names.empty() ? "" : std::string(" (") + lead + names + ")";
}

// Where a domain's range starts, asked of the library's own factory rather
// than copied from it: the code that the factory makes for the value 0.
const FXCodeLocation& Here() {
  static const FXCodeLocation here(__FILE__, "zonet::DescribeCode", __LINE__);
  return here;
}

// The head line: domain, number and name, then the system's text where the
// domain has one.
std::string DescribeCode(const CZoError& error) {
  if (!error.IsError()) return "Success";
  const long code = error.GetErrorCode();

  // C-library numbers made by ErrorErrNo: IsErrNo recognises exactly them.
  const long errNoBase = FXErrorUtil::ErrorErrNo(Here(), 0, "%s", "").GetErrorCode();
  const long errNo = code - errNoBase;
  if (errNo >= 0 && errNo <= 0xFFFF && FXErrorUtil::IsErrNo(error, static_cast<int>(errNo))) {
    return "errno " + std::to_string(errNo) + Join("", ErrnoName(errNo)) + Aka(FixedNames(errNo, true)) + ": " +
           FXErrorUtil::SystemErrorText(errNo);
  }
  // HTTP statuses made by ErrorHttp: IsHttp recognises exactly them.
  const long status = FXErrorUtil::ErrorHttp(Here(), 0).GetErrorCode() - code;
  if (status >= 0 && status <= 0xFFFF && FXErrorUtil::IsHttp(error, static_cast<int>(status))) {
    return "HTTP status " + std::to_string(status);
  }
  // The internal and result domains have no test; a code is theirs when the
  // factory makes the same code again from the value.
  const long internal = code - FXErrorUtil::ErrorInt(Here(), 0, "%s", "").GetErrorCode();
  if (internal >= 0 && internal <= 0xFFFF &&
      FXErrorUtil::ErrorInt(Here(), static_cast<int>(internal), "%s", "").GetErrorCode() == code) {
    return "internal error " + std::to_string(internal);
  }
  const long result = code - FXErrorUtil::ErrorXNResult(Here(), 0, "%s", "").GetErrorCode();
  if (result >= 0 && result <= 0xFFFF &&
      FXErrorUtil::ErrorXNResult(Here(), static_cast<int>(result), "%s", "").GetErrorCode() == code) {
    return "result " + std::to_string(result);
  }

  // curl's codes, recognised by the domain's own read-back; 0 is the domain's
  // "no code of curl's", a request the server refused.
  const int curl = XnCURL::GetXnCURL(error);
  if (curl >= 0 && XnCURL::IsXnCURL(error, curl)) {
    if (curl == 0) return "curl 0: the server refused the request";
    return "curl " + std::to_string(curl) + ": " +
           CurlWrapper::xn_curl_easy_strerror(static_cast<CURLcode>(curl));
  }

  // Everything else is a system number as it came: errno when positive, the
  // resolver's EAI_* code when negative. The library's own fixed codes are
  // numbers of this domain too, and on Linux a fixed code is the errno of the
  // same meaning, so the number alone cannot tell which of the two made it:
  // the names that share it are shown as "also", and the chain's text tells.
  if (code > 0) {
    const std::string errnoName = ErrnoName(code);
    if (!errnoName.empty()) {
      return "errno " + std::to_string(code) + " " + errnoName + Aka(FixedNames(code, false), "also ") + ": " +
             FXErrorUtil::SystemErrorText(code);
    }
  } else if (code < 0) {
    const std::string resolverName = ResolverName(code);
    if (!resolverName.empty()) {
      return "resolver " + resolverName + Aka(FixedNames(code, false), "also ") + ": " + FXErrorUtil::SystemErrorText(code);
    }
  }
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(code));
  return "code " + std::to_string(code) + " (" + hex + ")";
}

// The file's own name: the build's absolute paths say nothing more.
const char* BaseName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

}  // namespace

void PrintError(const CZoError& error) {
  std::string text = "zonet: " + DescribeCode(error) + "\n";
  const size_t count = error.GetItemCount();
  for (size_t i = 0; i < count; ++i) {
    boost::shared_ptr<FXErrorItem> item = error.GetItem(i);
    if (!item) continue;
    const FXCodeLocation& where = item->GetLocation();
    text += "  " + item->AsString() + " [" + BaseName(where.GetFile()) + ":" + std::to_string(where.GetLine()) + "]\n";
  }
  std::fputs(text.c_str(), stderr);
}

int Fail(const CZoError& error) {
  PrintError(error);
  return 1;
}

int UsageError(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::fputs("zonet: ", stderr);
  std::vfprintf(stderr, format, args);
  std::fputs("\n", stderr);
  va_end(args);
  return 2;
}

}  // namespace zonet
