/// @file
/// The error domain of curl failures: a CZoError whose code is curl's code
/// ORed with 0xEDD00000, with chain entries that show curl's code.
#ifndef ZONETWORK_XNCURLERROR_H
#define ZONETWORK_XNCURLERROR_H

#include <string>

#include <boost/shared_ptr.hpp>

#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"

/// The request layer over libcurl and its error domain.
namespace XnCURL {

/// The domain's pattern: bit 29 set and 0xDD0 in bits 16 to 27. A code of the
/// domain is curl's code ORed with it (not added, and not masked first).
const unsigned int XNCURL_ERROR_DOMAIN = 0xEDD00000u;

/// One entry of an error's chain that records a curl code.
class ZONET_API FXErrorItemXnCURL : public FXErrorItem {
public:
  /// An entry at location for curl's code, kept as the caller gave it.
  FXErrorItemXnCURL(const FXCodeLocation& location, int code);
  /// Nothing of its own to release.
  ~FXErrorItemXnCURL() override;
  using FXErrorItem::AsString;
  /// The location's text followed directly by "/XnCURL.<code>.0x<CODE>".
  std::string AsString() const override;
  /// A new entry with the same location and code.
  boost::shared_ptr<FXErrorItem> Clone() const override;
  /// The curl code as the caller gave it, not ORed.
  int GetCode() const { return m_code; }

protected:
  /// The curl code as the caller gave it, not ORed.
  int m_code;
};

/// An entry with a curl code and a formatted description.
class ZONET_API FXErrorItemXnCURLDescription : public FXErrorItemXnCURL {
public:
  /// An entry at location for code, with the text description.
  FXErrorItemXnCURLDescription(const FXCodeLocation& location, int code, const std::string& description);
  /// Nothing of its own to release.
  ~FXErrorItemXnCURLDescription() override;
  using FXErrorItem::AsString;
  /// The text of FXErrorItemXnCURL::AsString(), then "-", then the description.
  std::string AsString() const override;
  /// A new entry with the same location, code and text.
  boost::shared_ptr<FXErrorItem> Clone() const override;
  /// The description.
  const std::string& GetDescription() const { return m_description; }

protected:
  /// The formatted text.
  std::string m_description;
};

/// A new error of the domain for curl's code (0 too: the result is never
/// Success).
ZONET_API CZoError ErrorXnCURL(const FXCodeLocation& location, int code);
/// The same with a printf-formatted description. A null or empty format
/// gives the form without text; a text too long for FXString::FormatArgList
/// begins with "[BUFFEROVERFLOW] ".
ZONET_API CZoError ErrorXnCURL(const FXCodeLocation& location, int code, const char* format, ...)
    ZO_PRINTF_LIKE(3, 4);
/// Adds an entry for code to error; error's own code does not change.
/// Returns error.
ZONET_API CZoError& PushXnCURL(CZoError& error, const FXCodeLocation& location, int code);
/// The same with a description; a null or empty format gives the plain form.
ZONET_API CZoError& PushXnCURL(CZoError& error, const FXCodeLocation& location, int code, const char* format, ...)
    ZO_PRINTF_LIKE(4, 5);
/// curl's code out of an error of the domain; 0 for no error, -1 for an
/// error of another domain.
ZONET_API int GetXnCURL(const CZoError& error);
/// Whether error's code is code ORed with the domain's pattern.
ZONET_API bool IsXnCURL(const CZoError& error, int code);
/// The negation of IsXnCURL(), as CZoError::IsNot has it.
ZONET_API bool IsNotXnCURL(const CZoError& error, int code);

}  // namespace XnCURL

#endif  // ZONETWORK_XNCURLERROR_H
