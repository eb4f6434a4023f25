/// @file
/// Text: the narrow string class CZoString and the helpers of FXString.
#ifndef ZOUTILS_ZOSTRING_H
#define ZOUTILS_ZOSTRING_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <vector>

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoUtilsExport.h"

/// A narrow text with its own length and buffer. The text is always
/// NUL-terminated and never null; a null const char* reads as empty text.
class ZOUTILS_API CZoString {
public:
  /// Empty text.
  CZoString();
  /// A copy of text; null reads as empty text.
  CZoString(const char* text);  // NOLINT: implicit on purpose, as text literals are passed everywhere
  /// A copy of other's text.
  CZoString(const CZoString& other);
  /// Takes other's buffer; other is left empty.
  CZoString(CZoString&& other) noexcept;
  /// Frees the buffer.
  ~CZoString();

  /// Assigns a copy of other's text.
  CZoString& operator=(const CZoString& other);
  /// Takes other's buffer; other is left empty.
  CZoString& operator=(CZoString&& other) noexcept;
  /// Assigns a copy of text; null reads as empty text.
  CZoString& operator=(const char* text);

  /// Whether the texts are equal; null reads as empty text.
  bool operator==(const char* text) const;
  /// One character by value; '\0' past the end (never a failure).
  char operator[](size_t index);
  /// The text, as c_str().
  operator const char*() const { return c_str(); }
  /// The text, NUL-terminated, never null.
  const char* c_str() const;

  /// A new string: this text followed by other's.
  CZoString operator+(const CZoString& other);
  /// A new string: this text followed by text (a null text reads as empty).
  CZoString operator+(const char* text);
  /// Appends other's text.
  CZoString& operator+=(const CZoString& other);
  /// Appends text; null reads as empty text.
  CZoString& operator+=(const char* text);

  /// Appends "/" unless the text already ends in one.
  CZoString& AppendForwardSlash();
  /// Removes the last character when it is c.
  CZoString& CheckAndRemoveLastCharacter(char c);
  /// Cuts the text at pos; nothing happens when pos is at or past the end.
  CZoString& ChopAt(size_t pos);

  /// Makes the text empty.
  void Clear();
  /// Whether the text is empty.
  bool IsEmpty() const { return m_length == 0; }
  /// The number of characters, without the NUL.
  size_t Length() const { return m_length; }

  /// Index of the first c at or after start; negative when there is none.
  int Find(char c, size_t start) const;
  /// Index of the first occurrence of text at or after start; negative when
  /// there is none or text is null.
  int Find(char* text, size_t start) const;
  /// Index of the last c at or before start; start 0 searches from the end.
  /// Negative when there is none.
  int ReverseFind(char c, size_t start) const;
  /// count characters from start; a count of -1 (or past the end) means to the end.
  CZoString SubStr(size_t start, size_t count) const;
  /// A copy with ASCII letters in upper case.
  CZoString ToUpper() const;

  /// Direct filling: reserve room for size characters and the NUL, write
  /// through GetBuffer(), then ReCalculateLength() to make the length agree
  /// with the first NUL. AllocateBuffer keeps the text and returns false when
  /// memory is short.
  bool AllocateBuffer(size_t size);
  /// Characters the buffer holds without the NUL; 0 while nothing is allocated.
  size_t GetAllocatedSize();
  /// The buffer to write into, room for GetAllocatedSize() characters and
  /// the NUL.
  char* GetBuffer();
  /// Sets the length to where the first NUL stands (at most
  /// GetAllocatedSize(), where a NUL is then written); the new length.
  size_t ReCalculateLength();

private:
  void Assign(const char* text, size_t length);
  void Append(const char* text, size_t length);
  char* m_buffer;     // null while nothing is allocated; c_str() then gives ""
  size_t m_length;
  size_t m_capacity;  // usable characters, not counting the NUL
};

/// The concatenation of text and other, as a new object; null reads as empty
/// text.
ZOUTILS_API CZoString operator+(const char* text, const CZoString& other);

/// Free text helpers on std::string and std::wstring.
namespace FXString {

/// The most characters FormatArgList produces; a longer result is an error.
constexpr size_t kMaxFormattedLength = 64 * 1024;

/// printf into a new string (cut at kMaxFormattedLength). Here and in
/// FormatArgList, %p prints 16 upper-case hexadecimal digits without "0x", as
/// on the designed platform.
ZOUTILS_API std::string Format(const char* format, ...) ZO_PRINTF_LIKE(1, 2);
/// The same from an argument list. An error (ZONET_ERR_NAME_TOO_LONG) means the
/// text did not fit, and out keeps what did; a null format is
/// ZONET_ERR_INVALID_PARAMETER.
ZOUTILS_API CZoError FormatArgList(std::string& out, const char* format, va_list args);

/// Wide (UTF-32) to narrow (UTF-8); a bad sequence becomes U+FFFD.
/// A null pointer converts to an empty string.
ZOUTILS_API std::string ToString(const wchar_t* text);
/// Wide (UTF-32) to narrow (UTF-8); a bad sequence becomes U+FFFD.
ZOUTILS_API std::string ToString(const std::wstring& text);
/// Narrow (UTF-8) to wide (UTF-32); a bad sequence becomes U+FFFD.
/// A null pointer converts to an empty string.
ZOUTILS_API std::wstring ToWstring(const char* text);
/// Narrow (UTF-8) to wide (UTF-32); a bad sequence becomes U+FFFD.
ZOUTILS_API std::wstring ToWstring(const std::string& text);

/// ASCII letters to lower case, in place.
ZOUTILS_API void ToLower(std::string& text);
/// Empties out, then fills it with the pieces of text between separators,
/// empty pieces included. An empty separator gives the whole text as one piece.
/// Only flags 0 is defined.
ZOUTILS_API void Split(const std::string& text, const std::string& separator, std::vector<std::string>& out,
                       unsigned long flags);
/// Removes tail when the text ends with it; true when it did.
ZOUTILS_API bool RemoveRight(std::string& text, const std::string& tail);
/// Replaces every occurrence of from at or after start; the count. An empty
/// from replaces nothing.
ZOUTILS_API int ReplaceAll(std::string& text, const std::string& from, const std::string& to, size_t start);
/// Removes trailing characters that are in the set.
ZOUTILS_API void TrimRight(std::string& text, const std::string& characters);

}  // namespace FXString

#endif  // ZOUTILS_ZOSTRING_H
