#include "ZoUtils/ZoError.h"

#include <cstdio>
#include <vector>

#include "ZoPlatform.h"
#include "ZoUtils/ZoString.h"

// ---------------------------------------------------------------- locations

FXCodeLocation::FXCodeLocation(const char* file, const char* function, int line)
    : m_file(file ? file : "?"), m_function(function ? function : "?"), m_line(line) {}

FXCodeLocation::~FXCodeLocation() = default;

// ---------------------------------------------------------------- entries

FXErrorItem::FXErrorItem(const FXCodeLocation& location) : m_location(location) {}

FXErrorItem::~FXErrorItem() = default;

std::string FXErrorItem::AsString(EErrorOutputFormat format) const {
  std::string text = AsString();
  if (format == EErrorOutputFormat_Full) {
    text += FXString::Format(" [%s:%d]", m_location.GetFile(), m_location.GetLine());
  }
  return text;
}

std::string FXErrorItem::AsString() const { return m_location.GetFunction(); }

boost::shared_ptr<FXErrorItem> FXErrorItem::Clone() const { return boost::shared_ptr<FXErrorItem>(new FXErrorItem(*this)); }

namespace {

enum class Domain { System, Int, ErrNo, Http, XNResult, Text };

// An entry with a text of its own: the message of a factory, or of a Push.
class FXErrorItemText : public FXErrorItem {
public:
  FXErrorItemText(const FXCodeLocation& location, Domain domain, long value, std::string text)
      : FXErrorItem(location), m_domain(domain), m_value(value), m_text(std::move(text)) {}

  std::string AsString() const override {
    std::string text = FXErrorItem::AsString();
    if (!m_text.empty()) {
      text += ": ";
      text += m_text;
    }
    switch (m_domain) {
      case Domain::System:
        text += FXString::Format(" (system error %ld: %s)", m_value, zo_platform::ErrorText(m_value).c_str());
        break;
      case Domain::ErrNo:
        text += FXString::Format(" (errno %ld: %s)", m_value, zo_platform::ErrorText(m_value).c_str());
        break;
      case Domain::Int:
        text += FXString::Format(" (internal error %ld)", m_value);
        break;
      case Domain::Http:
        text += FXString::Format(" (HTTP status %ld)", m_value);
        break;
      case Domain::XNResult:
        text += FXString::Format(" (result %ld)", m_value);
        break;
      case Domain::Text:
        break;
    }
    return text;
  }

  boost::shared_ptr<FXErrorItem> Clone() const override {
    return boost::shared_ptr<FXErrorItem>(new FXErrorItemText(*this));
  }

private:
  Domain m_domain;
  long m_value;
  std::string m_text;
};

constexpr int32_t kErrNoBase = 0x01000000;
constexpr int32_t kIntBase = 0x02000000;
constexpr int32_t kXNResultBase = 0x03000000;
constexpr int32_t kHttpBase = 0x00100000;

int32_t InRange(int32_t base, int code) { return base | (static_cast<int32_t>(code) & 0xFFFF); }
int32_t HttpCode(int status) { return -(kHttpBase + (status & 0xFFFF)); }

std::string FormatList(const char* format, va_list args) {
  std::string out;
  if (format != nullptr) (void)FXString::FormatArgList(out, format, args);
  return out;
}

// Declares text as the printf text of the enclosing variadic function's
// arguments behind format. A macro, since only that function can reach them.
#define ZO_TEXT_OF_ARGUMENTS(text, format) \
  va_list text##Args;                      \
  va_start(text##Args, format);            \
  std::string text = FormatList(format, text##Args);       \
  va_end(text##Args)

CZoError Make(const FXCodeLocation& location, int32_t code, Domain domain, long value, std::string text) {
  return CZoError(code, boost::shared_ptr<FXErrorItem>(new FXErrorItemText(location, domain, value, std::move(text))));
}

}  // namespace

// ---------------------------------------------------------------- the error

struct CZoError::Node {
  boost::shared_ptr<FXErrorItem> item;
  boost::shared_ptr<const Node> next;  // the entry pushed before this one
};

CZoError::CZoError() : m_code(0), m_isError(false) {}

CZoError CZoError::Success() { return CZoError(); }

CZoError::CZoError(const CZoError& other) = default;
CZoError& CZoError::operator=(const CZoError& other) = default;
CZoError::~CZoError() = default;

CZoError::CZoError(long code, boost::shared_ptr<FXErrorItem> item)
    : m_code(static_cast<int32_t>(code)), m_isError(true) {
  if (item) m_head.reset(new Node{std::move(item), nullptr});
}

CZoError CZoError::Copy() const {
  // The chain is held newest first; clones are pushed oldest first so the
  // copy keeps the order.
  std::vector<const FXErrorItem*> items;
  for (const Node* node = m_head.get(); node != nullptr; node = node->next.get()) items.push_back(node->item.get());
  CZoError copy(*this);
  copy.m_head.reset();
  for (auto it = items.rbegin(); it != items.rend(); ++it) copy.Push((*it)->Clone());
  return copy;
}

CZoError& CZoError::Push(const FXCodeLocation& location) {
  return Push(boost::shared_ptr<FXErrorItem>(new FXErrorItem(location)));
}

CZoError& CZoError::Push(const FXCodeLocation& location, const char* format, ...) {
  ZO_TEXT_OF_ARGUMENTS(text, format);
  return Push(boost::shared_ptr<FXErrorItem>(new FXErrorItemText(location, Domain::Text, 0, std::move(text))));
}

CZoError& CZoError::Push(boost::shared_ptr<FXErrorItem> item) {
  if (item) m_head.reset(new Node{std::move(item), m_head});
  return *this;
}

size_t CZoError::GetItemCount() const {
  size_t n = 0;
  for (const Node* node = m_head.get(); node != nullptr; node = node->next.get()) ++n;
  return n;
}

boost::shared_ptr<FXErrorItem> CZoError::GetItem(size_t index) const {
  size_t count = GetItemCount();
  if (index >= count) return boost::shared_ptr<FXErrorItem>();
  const Node* node = m_head.get();
  for (size_t steps = count - 1 - index; steps > 0; --steps) node = node->next.get();
  return node->item;
}

std::string CZoError::AsString() const {
  if (!m_isError) return "Success";
  std::vector<const FXErrorItem*> items;
  for (const Node* node = m_head.get(); node != nullptr; node = node->next.get()) items.push_back(node->item.get());
  // The table's name is not shown: several names share one Linux number, and
  // a system error that happens to carry it would be misnamed.
  std::string text = FXString::Format("Error %ld", GetErrorCode());
  for (auto it = items.rbegin(); it != items.rend(); ++it) {
    text += "\n  ";
    text += (*it)->AsString();
  }
  return text;
}

// ---------------------------------------------------------------- factories

namespace FXErrorUtil {

CZoError ErrorWin32(const FXCodeLocation& location, unsigned long code) {
  // Codes travel as 32-bit values; a negative resolver code passed through the
  // unsigned parameter comes back to its own value here.
  int32_t value = static_cast<int32_t>(code);
  return Make(location, value, Domain::System, value, std::string());
}

CZoError ErrorWin32(const FXCodeLocation& location, unsigned long code, const char* format, ...) {
  ZO_TEXT_OF_ARGUMENTS(text, format);
  int32_t value = static_cast<int32_t>(code);
  return Make(location, value, Domain::System, value, std::move(text));
}

CZoError ErrorInt(const FXCodeLocation& location, int code, const char* format, ...) {
  ZO_TEXT_OF_ARGUMENTS(text, format);
  return Make(location, InRange(kIntBase, code), Domain::Int, code, std::move(text));
}

CZoError ErrorErrNo(const FXCodeLocation& location, int code, const char* format, ...) {
  ZO_TEXT_OF_ARGUMENTS(text, format);
  return Make(location, InRange(kErrNoBase, code), Domain::ErrNo, code, std::move(text));
}

CZoError ErrorHttp(const FXCodeLocation& location, int status) {
  return Make(location, HttpCode(status), Domain::Http, status, std::string());
}

CZoError ErrorXNResult(const FXCodeLocation& location, int code, const char* format, ...) {
  ZO_TEXT_OF_ARGUMENTS(text, format);
  return Make(location, InRange(kXNResultBase, code), Domain::XNResult, code, std::move(text));
}

bool IsHttp(const CZoError& error, int status) { return error.IsError() && error.Is(HttpCode(status)); }

bool IsNotHttp(const CZoError& error, int status) { return !IsHttp(error, status); }

bool IsErrNo(const CZoError& error, int code) { return error.IsError() && error.Is(InRange(kErrNoBase, code)); }

std::string SystemErrorText(long code) { return zo_platform::ErrorText(code); }

}  // namespace FXErrorUtil

// ---------------------------------------------------------------- code names

extern "C" const char* ZONET_ErrorCodeName(int code) {
#define ZONET_ERROR_CODE_NAME_(name, win, lnx, text) \
  if (code == name) return #name;
  ZONET_ERROR_CODE_MAP(ZONET_ERROR_CODE_NAME_)
#undef ZONET_ERROR_CODE_NAME_
  return nullptr;
}
