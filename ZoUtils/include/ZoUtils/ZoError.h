/// @file
/// The error value of the whole system: a code and a chain of located entries.
#ifndef ZOUTILS_ZOERROR_H
#define ZOUTILS_ZOERROR_H

#include <cstdarg>
#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoUtilsExport.h"

/// Marks a printf-style function so that the compiler checks its arguments:
/// fmt is the position of the format, args of the first argument behind it.
#if defined(__GNUC__)
#define ZO_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ZO_PRINTF_LIKE(fmt, args)
#endif

/// Where an error was made or passed through. The file and function are kept as
/// pointers: they are meant to be string literals, which live for the whole run,
/// so copying a location never copies text.
class ZOUTILS_API FXCodeLocation {
public:
  /// A location; function in the form "Class::Method". A null file or
  /// function reads as "?".
  FXCodeLocation(const char* file, const char* function, int line);
  /// Nothing to release: the texts are not owned.
  ~FXCodeLocation();

  /// The source file's path, as the compiler gave it.
  const char* GetFile() const { return m_file; }
  /// The function's name, "Class::Method".
  const char* GetFunction() const { return m_function; }
  /// The line in the source file.
  int GetLine() const { return m_line; }

private:
  const char* m_file;
  const char* m_function;
  int m_line;
};

/// A location for "Class::Method" at the line where the macro stands.
#define FXLOC(function) FXCodeLocation(__FILE__, (function), __LINE__)

/// How much of an entry AsString(EErrorOutputFormat) shows.
enum EErrorOutputFormat {
  EErrorOutputFormat_Brief = 0,  ///< function and the entry's own text
  EErrorOutputFormat_Full = 1,   ///< the same with file and line
};

/// One entry of an error chain. A domain of errors is a subclass that appends
/// its own text to AsString() and clones itself in Clone().
class ZOUTILS_API FXErrorItem {
public:
  /// An entry that records a copy of location.
  explicit FXErrorItem(const FXCodeLocation& location);
  /// Entries are destroyed through this base.
  virtual ~FXErrorItem();

  /// The entry in the chosen format; the brief form is AsString(), the full
  /// form adds " [file:line]".
  virtual std::string AsString(EErrorOutputFormat format) const;
  /// The entry's text: the location's function for the base class, to which
  /// a subclass appends its own part.
  virtual std::string AsString() const;
  /// A new entry of the most derived class with the same location and contents.
  virtual boost::shared_ptr<FXErrorItem> Clone() const;

  /// The place this entry records.
  const FXCodeLocation& GetLocation() const { return m_location; }

private:
  FXCodeLocation m_location;
};

/// The result of nearly every operation above the flat socket layer. Success
/// holds no entry; an error holds a signed 32-bit code and a chain of entries,
/// the first one where the error was made. Copies share the entries (they are
/// never changed once made), so copying is cheap and safe while another thread
/// destroys another copy of the same chain.
class ZOUTILS_API CZoError {
public:
  /// The no-error value.
  static CZoError Success();

  /// A copy that shares other's entries.
  CZoError(const CZoError& other);
  /// Takes other's code and shares its entries.
  CZoError& operator=(const CZoError& other);
  /// Releases this copy's share of the entries.
  ~CZoError();

  /// An error with that code and that first entry. The code is kept as a
  /// signed 32-bit value, as it is on every platform the library runs on.
  CZoError(long code, boost::shared_ptr<FXErrorItem> item);

  /// True for anything but the no-error value.
  bool IsError() const { return m_isError; }
  /// The error's code; 0 for success.
  long GetErrorCode() const { return m_code; }
  /// Whether the code equals code (compared as 32-bit values).
  bool Is(long code) const { return GetErrorCode() == static_cast<int32_t>(code); }
  /// Whether the code differs from code.
  bool IsNot(long code) const { return !Is(code); }

  /// An independent copy: same code, every entry cloned.
  CZoError Copy() const;

  /// Adds an entry that records location on the way up; the code and earlier
  /// entries never change. Returns this object.
  CZoError& Push(const FXCodeLocation& location);
  /// Push(location) with a printf-formatted text in the entry; a null format
  /// gives an entry without text.
  CZoError& Push(const FXCodeLocation& location, const char* format, ...) ZO_PRINTF_LIKE(3, 4);
  /// Adds a ready-made entry; a null one adds nothing. Returns this object.
  CZoError& Push(boost::shared_ptr<FXErrorItem> item);

  /// The number of entries in the chain; 0 for success.
  size_t GetItemCount() const;
  /// The entry at index (0 is where the error was made), or null past the end.
  boost::shared_ptr<FXErrorItem> GetItem(size_t index) const;

  /// The whole chain as text, every entry in chain order, one per line, behind
  /// a first line with the code. "Success" for the no-error value.
  std::string AsString() const;

private:
  CZoError();
  struct Node;
  int32_t m_code;
  bool m_isError;
  // Newest entry first; nodes are immutable and shared between copies.
  boost::shared_ptr<const Node> m_head;
};

/// Factories of errors by domain, and the tests that recognise them. Every
/// factory takes the location first; a format is printf-style, and a null
/// format gives an entry without text.
///
/// Codes: a system error keeps the plain number (errno, or the negative EAI_*
/// code of the resolver). The other domains live in ranges no errno or EAI code
/// reaches: ErrorErrNo 0x01000000 + n, ErrorInt 0x02000000 + n, ErrorXNResult
/// 0x03000000 + n (n in the low 16 bits), and ErrorHttp -(0x00100000 + status),
/// negative so that a caller can tell a refused request by the sign. The curl
/// domain's pattern (bits 16 to 27 equal to 0xDD0) is left free.
namespace FXErrorUtil {

/// A system-domain error: the code is code as it stands (an errno, a negative
/// EAI_* code, or a ZONET_ERR_* value), the text the system's own for it.
ZOUTILS_API CZoError ErrorWin32(const FXCodeLocation& location, unsigned long code);
/// ErrorWin32(location, code) with the caller's printf-formatted text.
ZOUTILS_API CZoError ErrorWin32(const FXCodeLocation& location, unsigned long code, const char* format, ...)
    ZO_PRINTF_LIKE(3, 4);
/// An internal error of the library's request layer; code 0x02000000 + code.
ZOUTILS_API CZoError ErrorInt(const FXCodeLocation& location, int code, const char* format, ...) ZO_PRINTF_LIKE(3, 4);
/// A C-library error number (a ZONET_ERRNO_* value); code 0x01000000 + code,
/// recognised by IsErrNo().
ZOUTILS_API CZoError ErrorErrNo(const FXCodeLocation& location, int code, const char* format, ...)
    ZO_PRINTF_LIKE(3, 4);
/// An HTTP status from a server; code -(0x00100000 + status), recognised by
/// IsHttp().
ZOUTILS_API CZoError ErrorHttp(const FXCodeLocation& location, int status);
/// One of the product's own result codes; code 0x03000000 + code.
ZOUTILS_API CZoError ErrorXNResult(const FXCodeLocation& location, int code, const char* format, ...)
    ZO_PRINTF_LIKE(3, 4);

/// Whether error is the HTTP status status, as ErrorHttp() made it.
ZOUTILS_API bool IsHttp(const CZoError& error, int status);
/// The negation of IsHttp().
ZOUTILS_API bool IsNotHttp(const CZoError& error, int status);
/// Whether error is the C-library error number code, as ErrorErrNo() made it;
/// a system-domain error with the same small number is not.
ZOUTILS_API bool IsErrNo(const CZoError& error, int code);

/// The text the system gives for a system-domain code: strerror for errno
/// numbers, gai_strerror for the negative resolver codes.
ZOUTILS_API std::string SystemErrorText(long code);

}  // namespace FXErrorUtil

#endif  // ZOUTILS_ZOERROR_H
