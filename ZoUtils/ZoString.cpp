#include "ZoUtils/ZoString.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <sys/types.h>

// ---------------------------------------------------------------- CZoString

namespace {
const char kEmpty[1] = {'\0'};
size_t SafeLength(const char* text) { return text ? std::strlen(text) : 0; }
}  // namespace

CZoString::CZoString() : m_buffer(nullptr), m_length(0), m_capacity(0) {}

CZoString::CZoString(const char* text) : CZoString() { Assign(text, SafeLength(text)); }

CZoString::CZoString(const CZoString& other) : CZoString() { Assign(other.c_str(), other.m_length); }

CZoString::CZoString(CZoString&& other) noexcept
    : m_buffer(other.m_buffer), m_length(other.m_length), m_capacity(other.m_capacity) {
  other.m_buffer = nullptr;
  other.m_length = 0;
  other.m_capacity = 0;
}

CZoString::~CZoString() { std::free(m_buffer); }

CZoString& CZoString::operator=(const CZoString& other) {
  if (this != &other) Assign(other.c_str(), other.m_length);
  return *this;
}

CZoString& CZoString::operator=(CZoString&& other) noexcept {
  if (this != &other) {
    std::free(m_buffer);
    m_buffer = other.m_buffer;
    m_length = other.m_length;
    m_capacity = other.m_capacity;
    other.m_buffer = nullptr;
    other.m_length = 0;
    other.m_capacity = 0;
  }
  return *this;
}

CZoString& CZoString::operator=(const char* text) {
  // The text may point into this very buffer, so it is copied out first.
  if (text != nullptr && m_buffer != nullptr && text >= m_buffer && text <= m_buffer + m_length) {
    CZoString copy(text);
    return *this = std::move(copy);
  }
  Assign(text, SafeLength(text));
  return *this;
}

bool CZoString::operator==(const char* text) const { return std::strcmp(c_str(), text ? text : kEmpty) == 0; }

char CZoString::operator[](size_t index) { return index < m_length ? m_buffer[index] : '\0'; }

size_t CZoString::GetAllocatedSize() { return m_capacity; }

const char* CZoString::c_str() const { return m_buffer ? m_buffer : kEmpty; }

namespace {
// One allocation for the whole result, not one per piece.
CZoString Joined(const char* a, size_t aLength, const char* b, size_t bLength) {
  CZoString result;
  if (!result.AllocateBuffer(aLength + bLength)) throw std::bad_alloc();
  char* out = result.GetBuffer();
  if (aLength) std::memcpy(out, a, aLength);
  if (bLength) std::memcpy(out + aLength, b, bLength);
  out[aLength + bLength] = '\0';
  result.ReCalculateLength();
  return result;
}
}  // namespace

CZoString CZoString::operator+(const CZoString& other) {
  return Joined(c_str(), m_length, other.c_str(), other.m_length);
}

CZoString CZoString::operator+(const char* text) { return Joined(c_str(), m_length, text, SafeLength(text)); }

CZoString operator+(const char* text, const CZoString& other) { return CZoString(text) + other; }

CZoString& CZoString::operator+=(const CZoString& other) {
  if (this == &other) {
    CZoString copy(other);
    Append(copy.c_str(), copy.m_length);
  } else {
    Append(other.c_str(), other.m_length);
  }
  return *this;
}

CZoString& CZoString::operator+=(const char* text) {
  CZoString copy(text);  // text may live in this buffer, which Append may move
  Append(copy.c_str(), copy.m_length);
  return *this;
}

CZoString& CZoString::AppendForwardSlash() {
  if (m_length == 0 || m_buffer[m_length - 1] != '/') Append("/", 1);
  return *this;
}

CZoString& CZoString::CheckAndRemoveLastCharacter(char c) {
  if (m_length > 0 && m_buffer[m_length - 1] == c) m_buffer[--m_length] = '\0';
  return *this;
}

CZoString& CZoString::ChopAt(size_t pos) {
  if (pos < m_length) {
    m_length = pos;
    m_buffer[m_length] = '\0';
  }
  return *this;
}

void CZoString::Clear() {
  m_length = 0;
  if (m_buffer) m_buffer[0] = '\0';
}

int CZoString::Find(char c, size_t start) const {
  for (size_t i = start; i < m_length; ++i) {
    if (m_buffer[i] == c) return static_cast<int>(i);
  }
  return -1;
}

int CZoString::Find(char* text, size_t start) const {
  if (text == nullptr || start > m_length) return -1;
  const char* found = std::strstr(c_str() + start, text);
  return found ? static_cast<int>(found - c_str()) : -1;
}

int CZoString::ReverseFind(char c, size_t start) const {
  if (m_length == 0) return -1;
  size_t i = (start == 0 || start >= m_length) ? m_length - 1 : start;
  for (;; --i) {
    if (m_buffer[i] == c) return static_cast<int>(i);
    if (i == 0) return -1;
  }
}

CZoString CZoString::SubStr(size_t start, size_t count) const {
  CZoString result;
  if (start >= m_length) return result;
  size_t n = std::min(count, m_length - start);
  result.Assign(m_buffer + start, n);
  return result;
}

CZoString CZoString::ToUpper() const {
  CZoString result(*this);
  for (size_t i = 0; i < result.m_length; ++i) {
    result.m_buffer[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(result.m_buffer[i])));
  }
  return result;
}

bool CZoString::AllocateBuffer(size_t size) {
  if (size <= m_capacity && m_buffer != nullptr) return true;
  if (size == static_cast<size_t>(-1)) return false;
  char* grown = static_cast<char*>(std::realloc(m_buffer, size + 1));
  if (grown == nullptr) return false;
  if (m_buffer == nullptr) grown[0] = '\0';
  m_buffer = grown;
  m_capacity = size;
  m_buffer[m_capacity] = '\0';  // direct filling can never run past the buffer's end unterminated
  return true;
}

char* CZoString::GetBuffer() {
  if (m_buffer == nullptr && !AllocateBuffer(0)) return nullptr;
  return m_buffer;
}

size_t CZoString::ReCalculateLength() {
  m_length = m_buffer ? strnlen(m_buffer, m_capacity) : 0;
  if (m_buffer) m_buffer[m_length] = '\0';
  return m_length;
}

void CZoString::Assign(const char* text, size_t length) {
  if (length > m_capacity || m_buffer == nullptr) {
    if (!AllocateBuffer(length)) throw std::bad_alloc();
  }
  if (length > 0) std::memmove(m_buffer, text, length);
  m_length = length;
  m_buffer[m_length] = '\0';
}

void CZoString::Append(const char* text, size_t length) {
  if (length == 0) return;
  size_t needed = m_length + length;
  if (needed > m_capacity || m_buffer == nullptr) {
    size_t grown = std::max(needed, m_capacity + m_capacity / 2);
    if (!AllocateBuffer(grown)) throw std::bad_alloc();
  }
  std::memcpy(m_buffer + m_length, text, length);
  m_length = needed;
  m_buffer[m_length] = '\0';
}

// ---------------------------------------------------------------- FXString

namespace FXString {

std::string Format(const char* format, ...) {
  std::string out;
  va_list args;
  va_start(args, format);
  (void)FormatArgList(out, format, args);
  va_end(args);
  return out;
}

}  // namespace FXString

namespace {

// One conversion with its own argument, appended to out; false when the C
// library refuses the conversion.
template <typename T>
bool AppendConversion(std::string& out, const std::string& piece, T value) {
  char small[128];
  const int n = std::snprintf(small, sizeof small, piece.c_str(), value);
  if (n < 0) return false;
  if (static_cast<size_t>(n) < sizeof small) {
    out.append(small, static_cast<size_t>(n));
    return true;
  }
  const size_t at = out.size();
  out.resize(at + static_cast<size_t>(n) + 1);
  std::snprintf(&out[at], static_cast<size_t>(n) + 1, piece.c_str(), value);
  out.resize(at + static_cast<size_t>(n));
  return true;
}

// Whether format has a %p conversion; "%%" and plain text don't count.
bool HasPointerConversion(const char* format) {
  for (const char* p = std::strchr(format, '%'); p != nullptr; p = std::strchr(p, '%')) {
    ++p;
    if (*p == '%') {
      ++p;
      continue;
    }
    p += std::strspn(p, "-+ #0'123456789.*$hlLjzt");
    if (*p == 'p') return true;
    if (*p == '\0') return false;
  }
  return false;
}

// The designed platform prints %p as 16 upper-case hexadecimal digits with
// no "0x" of its own (so "0x%p" reads "0x000000000000001A"), where glibc
// writes "0x1a" and "(nil)". A format with a pointer is therefore printed one
// conversion at a time, each argument taken with the type its conversion
// names, the pointer by that rule and everything else by the C library.
// False for what this walk does not take (positional arguments, %n, an
// unknown conversion): the C library then prints the whole format.
bool FormatWithPointers(std::string& out, const char* p, va_list args) {
  va_list ap;
  va_copy(ap, args);
  bool ok = true;
  while (ok && *p != '\0') {
    if (*p != '%') {
      const size_t run = std::strcspn(p, "%");
      out.append(p, run);
      p += run;
      continue;
    }
    ++p;
    if (*p == '%') {
      out += '%';
      ++p;
      continue;
    }
    std::string flags;
    while (*p != '\0' && std::strchr("-+ #0'", *p) != nullptr) flags += *p++;
    std::string width;
    if (*p == '*') {
      ++p;
      const int given = va_arg(ap, int);
      // A negative width is a left-justified one.
      if (given < 0) flags += '-';
      width = std::to_string(given < 0 ? -static_cast<long>(given) : static_cast<long>(given));
    } else {
      while (std::isdigit(static_cast<unsigned char>(*p))) width += *p++;
    }
    std::string precision;
    if (*p == '.') {
      ++p;
      if (*p == '*') {
        ++p;
        // A negative precision counts as none.
        const int given = va_arg(ap, int);
        if (given >= 0) precision = "." + std::to_string(given);
      } else {
        precision = ".";
        while (std::isdigit(static_cast<unsigned char>(*p))) precision += *p++;
      }
    }
    std::string length;
    while (*p != '\0' && std::strchr("hlLjzt", *p) != nullptr) length += *p++;
    const char conversion = *p;
    if (conversion == '\0' || conversion == '$') {
      ok = false;
      break;
    }
    ++p;
    if (conversion == 'p') {
      char digits[17];
      std::snprintf(digits, sizeof digits, "%016" PRIXPTR, reinterpret_cast<uintptr_t>(va_arg(ap, void*)));
      const bool left = flags.find('-') != std::string::npos;
      ok = AppendConversion(out, std::string("%") + (left ? "-" : "") + width + "s", digits);
      continue;
    }
    const std::string piece = "%" + flags + width + precision + length + conversion;
    switch (conversion) {
      case 'd':
      case 'i':
        if (length.empty() || length == "h" || length == "hh") ok = AppendConversion(out, piece, va_arg(ap, int));
        else if (length == "l") ok = AppendConversion(out, piece, va_arg(ap, long));
        else if (length == "ll") ok = AppendConversion(out, piece, va_arg(ap, long long));
        else if (length == "j") ok = AppendConversion(out, piece, va_arg(ap, intmax_t));
        else if (length == "z") ok = AppendConversion(out, piece, va_arg(ap, ssize_t));
        else if (length == "t") ok = AppendConversion(out, piece, va_arg(ap, ptrdiff_t));
        else ok = false;
        break;
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        if (length.empty() || length == "h" || length == "hh") ok = AppendConversion(out, piece, va_arg(ap, unsigned));
        else if (length == "l") ok = AppendConversion(out, piece, va_arg(ap, unsigned long));
        else if (length == "ll") ok = AppendConversion(out, piece, va_arg(ap, unsigned long long));
        else if (length == "j") ok = AppendConversion(out, piece, va_arg(ap, uintmax_t));
        else if (length == "z") ok = AppendConversion(out, piece, va_arg(ap, size_t));
        else if (length == "t") ok = AppendConversion(out, piece, va_arg(ap, ptrdiff_t));
        else ok = false;
        break;
      case 'c':
        if (length.empty()) ok = AppendConversion(out, piece, va_arg(ap, int));
        else if (length == "l") ok = AppendConversion(out, piece, va_arg(ap, wint_t));
        else ok = false;
        break;
      case 's':
        if (length.empty()) ok = AppendConversion(out, piece, va_arg(ap, const char*));
        else if (length == "l") ok = AppendConversion(out, piece, va_arg(ap, const wchar_t*));
        else ok = false;
        break;
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        if (length.empty() || length == "l") ok = AppendConversion(out, piece, va_arg(ap, double));
        else if (length == "L") ok = AppendConversion(out, piece, va_arg(ap, long double));
        else ok = false;
        break;
      default:
        ok = false;
        break;
    }
  }
  va_end(ap);
  return ok;
}

}  // namespace

namespace FXString {

CZoError FormatArgList(std::string& out, const char* format, va_list args) {
  out.clear();
  if (format == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("FXString::FormatArgList"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid input parameter, format is NULL");
  }
  if (HasPointerConversion(format)) {
    std::string whole;
    if (FormatWithPointers(whole, format, args)) {
      if (whole.size() <= kMaxFormattedLength) {
        out.swap(whole);
        return CZoError::Success();
      }
      out.assign(whole, 0, kMaxFormattedLength);
      return FXErrorUtil::ErrorWin32(FXLOC("FXString::FormatArgList"), ZONET_ERR_NAME_TOO_LONG,
                                     "Formatted text of %zu characters does not fit in %zu", whole.size(),
                                     kMaxFormattedLength);
    }
  }
  char small[256];
  va_list copy;
  va_copy(copy, args);
  int needed = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (needed < 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("FXString::FormatArgList"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid format");
  }
  if (static_cast<size_t>(needed) < sizeof small) {
    out.assign(small, static_cast<size_t>(needed));
    return CZoError::Success();
  }
  size_t keep = std::min(static_cast<size_t>(needed), kMaxFormattedLength);
  out.resize(keep + 1);
  va_copy(copy, args);
  std::vsnprintf(&out[0], keep + 1, format, copy);
  va_end(copy);
  out.resize(keep);
  if (static_cast<size_t>(needed) > kMaxFormattedLength) {
    return FXErrorUtil::ErrorWin32(FXLOC("FXString::FormatArgList"), ZONET_ERR_NAME_TOO_LONG,
                                   "Formatted text of %d characters does not fit in %zu", needed,
                                   kMaxFormattedLength);
  }
  return CZoError::Success();
}

namespace {
const wchar_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, uint32_t cp) {
  if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = kReplacement;
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

std::string Narrow(const wchar_t* text, size_t length) {
  std::string out;
  out.reserve(length);
  for (size_t i = 0; i < length; ++i) AppendUtf8(out, static_cast<uint32_t>(text[i]));
  return out;
}

std::wstring Widen(const char* text, size_t length) {
  std::wstring out;
  out.reserve(length);
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  size_t i = 0;
  while (i < length) {
    unsigned char c = s[i];
    size_t extra;
    uint32_t cp;
    uint32_t minimum;
    if (c < 0x80) {
      out += static_cast<wchar_t>(c);
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      extra = 1, cp = c & 0x1F, minimum = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
      extra = 2, cp = c & 0x0F, minimum = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
      extra = 3, cp = c & 0x07, minimum = 0x10000;
    } else {
      out += kReplacement;
      ++i;
      continue;
    }
    size_t j = 1;
    for (; j <= extra && i + j < length && (s[i + j] & 0xC0) == 0x80; ++j) cp = (cp << 6) | (s[i + j] & 0x3F);
    if (j <= extra || cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      out += kReplacement;
      i += j;  // the bytes read so far make one bad sequence
      continue;
    }
    out += static_cast<wchar_t>(cp);
    i += j;
  }
  return out;
}
}  // namespace

std::string ToString(const wchar_t* text) { return text ? Narrow(text, std::wcslen(text)) : std::string(); }
std::string ToString(const std::wstring& text) { return Narrow(text.data(), text.size()); }
std::wstring ToWstring(const char* text) { return text ? Widen(text, std::strlen(text)) : std::wstring(); }
std::wstring ToWstring(const std::string& text) { return Widen(text.data(), text.size()); }

void ToLower(std::string& text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

void Split(const std::string& text, const std::string& separator, std::vector<std::string>& out,
           unsigned long /*flags*/) {
  out.clear();
  if (separator.empty()) {
    out.push_back(text);
    return;
  }
  size_t from = 0;
  for (;;) {
    size_t at = text.find(separator, from);
    if (at == std::string::npos) {
      out.push_back(text.substr(from));
      return;
    }
    out.push_back(text.substr(from, at - from));
    from = at + separator.size();
  }
}

bool RemoveRight(std::string& text, const std::string& tail) {
  if (tail.size() > text.size() || text.compare(text.size() - tail.size(), tail.size(), tail) != 0) return false;
  text.erase(text.size() - tail.size());
  return true;
}

int ReplaceAll(std::string& text, const std::string& from, const std::string& to, size_t start) {
  if (from.empty()) return 0;
  int count = 0;
  for (size_t at = text.find(from, start); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
    ++count;
  }
  return count;
}

void TrimRight(std::string& text, const std::string& characters) {
  size_t keep = text.find_last_not_of(characters);
  text.erase(keep == std::string::npos ? 0 : keep + 1);
}

}  // namespace FXString
