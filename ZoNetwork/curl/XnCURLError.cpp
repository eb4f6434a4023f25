#include "ZoNetwork/XnCURLError.h"

#include <cstdarg>
#include <cstdint>

#include "ZoUtils/ZoString.h"

namespace XnCURL {

FXErrorItemXnCURL::FXErrorItemXnCURL(const FXCodeLocation& location, int code)
    : FXErrorItem(location), m_code(code) {}

FXErrorItemXnCURL::~FXErrorItemXnCURL() = default;

std::string FXErrorItemXnCURL::AsString() const {
  return FXErrorItem::AsString() + FXString::Format("/XnCURL.%d.0x%X", m_code, static_cast<unsigned int>(m_code));
}

boost::shared_ptr<FXErrorItem> FXErrorItemXnCURL::Clone() const {
  return boost::shared_ptr<FXErrorItem>(new FXErrorItemXnCURL(GetLocation(), m_code));
}

FXErrorItemXnCURLDescription::FXErrorItemXnCURLDescription(const FXCodeLocation& location, int code,
                                                           const std::string& description)
    : FXErrorItemXnCURL(location, code), m_description(description) {}

FXErrorItemXnCURLDescription::~FXErrorItemXnCURLDescription() = default;

std::string FXErrorItemXnCURLDescription::AsString() const {
  return FXErrorItemXnCURL::AsString() + "-" + m_description;
}

boost::shared_ptr<FXErrorItem> FXErrorItemXnCURLDescription::Clone() const {
  return boost::shared_ptr<FXErrorItem>(new FXErrorItemXnCURLDescription(GetLocation(), m_code, m_description));
}

namespace {

// The domain's code: an OR, so a negative curl code sets the high bits too.
long DomainCode(int code) {
  return static_cast<int32_t>(static_cast<uint32_t>(code) | XNCURL_ERROR_DOMAIN);
}

// The entry for code with the formatted text, or the plain entry for a null
// or empty format.
boost::shared_ptr<FXErrorItem> MakeItem(const FXCodeLocation& location, int code, const char* format,
                                        va_list args) {
  if (format == nullptr || format[0] == '\0') {
    return boost::shared_ptr<FXErrorItem>(new FXErrorItemXnCURL(location, code));
  }
  std::string text;
  CZoError formatted = FXString::FormatArgList(text, format, args);
  // The formatting error itself is dropped; the text says that it was cut.
  std::string description = formatted.IsError() ? "[BUFFEROVERFLOW] " + text : text;
  return boost::shared_ptr<FXErrorItem>(new FXErrorItemXnCURLDescription(location, code, description));
}

}  // namespace

CZoError ErrorXnCURL(const FXCodeLocation& location, int code) {
  return CZoError(DomainCode(code), boost::shared_ptr<FXErrorItem>(new FXErrorItemXnCURL(location, code)));
}

CZoError ErrorXnCURL(const FXCodeLocation& location, int code, const char* format, ...) {
  va_list args;
  va_start(args, format);
  boost::shared_ptr<FXErrorItem> item = MakeItem(location, code, format, args);
  va_end(args);
  return CZoError(DomainCode(code), item);
}

CZoError& PushXnCURL(CZoError& error, const FXCodeLocation& location, int code) {
  return error.Push(boost::shared_ptr<FXErrorItem>(new FXErrorItemXnCURL(location, code)));
}

CZoError& PushXnCURL(CZoError& error, const FXCodeLocation& location, int code, const char* format, ...) {
  va_list args;
  va_start(args, format);
  boost::shared_ptr<FXErrorItem> item = MakeItem(location, code, format, args);
  va_end(args);
  return error.Push(item);
}

int GetXnCURL(const CZoError& error) {
  if (!error.IsError()) return 0;
  uint32_t code = static_cast<uint32_t>(error.GetErrorCode());
  if ((code & 0x20000000u) == 0) return -1;
  if (((code >> 16) & 0xFFFu) == 0xDD0u) return static_cast<int>(code & 0xFFFFu);
  return -1;
}

bool IsXnCURL(const CZoError& error, int code) { return error.Is(DomainCode(code)); }

bool IsNotXnCURL(const CZoError& error, int code) { return error.IsNot(DomainCode(code)); }

}  // namespace XnCURL
