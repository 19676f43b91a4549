// CString: UTF-8 conversion, searching and slicing with clamped arguments,
// printf-style formatting and string-table loading.
#include "platform/String.h"

#include <algorithm>
#include <cstdarg>
#include <cwchar>
#include <vector>

#include "platform/StringResources.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Appends `cp` as UTF-8; surrogates and values beyond U+10FFFF become U+FFFD.
void AppendUtf8(std::string &out, char32_t cp) {
  if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = kReplacement;
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

// Decodes one code point at `in[i]` and advances `i`. Only well-formed sequences
// are accepted (no overlong forms, no surrogates, nothing above U+10FFFF); an
// ill-formed one yields U+FFFD and consumes its longest valid prefix, at least one
// byte, as Unicode recommends for replacement.
char32_t DecodeUtf8(std::string_view in, std::size_t &i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(in[k]); };
  const unsigned char lead = byte(i++);
  if (lead < 0x80) return lead;

  int trailing;
  char32_t cp;
  unsigned char low = 0x80, high = 0xBF;  // range of the first continuation byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    trailing = 1; cp = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trailing = 2; cp = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;        // overlong
    else if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trailing = 3; cp = lead & 0x07;
    if (lead == 0xF0) low = 0x90;        // overlong
    else if (lead == 0xF4) high = 0x8F;  // beyond U+10FFFF
  } else {
    return kReplacement;  // stray continuation byte or impossible lead
  }

  for (int k = 0; k < trailing; ++k) {
    if (i >= in.size()) return kReplacement;
    const unsigned char b = byte(i);
    const unsigned char lo = k == 0 ? low : 0x80;
    const unsigned char hi = k == 0 ? high : 0xBF;
    if (b < lo || b > hi) return kReplacement;  // the offending byte starts the next decode
    cp = (cp << 6) | (b & 0x3F);
    ++i;
  }
  return cp;
}

std::size_t ClampIndex(int i, std::size_t size) {
  if (i <= 0) return 0;
  return std::min(static_cast<std::size_t>(i), size);
}

bool IsBlank(wchar_t c) {
  return c == L' ' || c == L'\t' || c == L'\n' || c == L'\v' || c == L'\f' || c == L'\r';
}

// Formats with the framework's reading of a wide format string: %s and %c take
// wide arguments, %hs, %hc, %S and %C narrow ones, %ls and %lc stay wide. The C
// library reads these the other way round, so they are rewritten before the call.
std::wstring ToCLibraryFormat(const wchar_t *format) {
  std::wstring out;
  for (const wchar_t *p = format; *p;) {
    out += *p;
    if (*p++ != L'%') continue;
    if (*p == L'%') { out += *p++; continue; }
    // Flags, width, precision, then length modifiers.
    while (*p && std::wcschr(L"-+ #0123456789.*'", *p)) out += *p++;
    std::wstring length;
    while (*p && std::wcschr(L"hlLqjzt", *p)) length += *p++;
    wchar_t conversion = *p;
    if (conversion == L's' || conversion == L'c') {
      if (length.empty()) length = L"l";
      else if (length == L"h") length.clear();
    } else if ((conversion == L'S' || conversion == L'C') && length.empty()) {
      conversion = conversion == L'S' ? L's' : L'c';
    }
    out += length;
    if (*p) { out += conversion; ++p; }
  }
  return out;
}

}  // namespace

CString CString::FromUtf8(std::string_view utf8) {
  std::wstring text;
  text.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) text += static_cast<wchar_t>(DecodeUtf8(utf8, i));
  return CString(std::move(text));
}

std::string CString::ToUtf8() const {
  std::string out;
  out.reserve(text_.size());
  // wchar_t is signed here; a negative value lands above U+10FFFF and is replaced.
  for (wchar_t c : text_) AppendUtf8(out, static_cast<char32_t>(c));
  return out;
}

int CString::Find(wchar_t c, int start) const {
  const std::size_t at = text_.find(c, ClampIndex(start, text_.size()));
  return at == std::wstring::npos ? -1 : static_cast<int>(at);
}

int CString::Find(const wchar_t *sub, int start) const {
  if (!sub || start > GetLength()) return -1;
  const std::size_t at = text_.find(sub, ClampIndex(start, text_.size()));
  return at == std::wstring::npos ? -1 : static_cast<int>(at);
}

CString CString::Left(int n) const { return CString(text_.substr(0, ClampIndex(n, text_.size()))); }

// A negative count means the rest of the text.
CString CString::Mid(int first, int n) const {
  const std::size_t from = ClampIndex(first, text_.size());
  const std::size_t count = n < 0 ? std::wstring::npos : static_cast<std::size_t>(n);
  return CString(text_.substr(from, count));
}

CString CString::Right(int n) const {
  const std::size_t count = ClampIndex(n, text_.size());
  return CString(text_.substr(text_.size() - count));
}

CString &CString::Trim() {
  const auto first = std::find_if_not(text_.begin(), text_.end(), IsBlank);
  const auto last = std::find_if_not(text_.rbegin(), std::wstring::reverse_iterator(first), IsBlank).base();
  text_ = std::wstring(first, last);
  return *this;
}

// vswprintf reports a short buffer and a conversion error alike (-1), so the buffer
// grows up to a bound; output that would exceed it, or that cannot be converted,
// leaves the text empty.
void CString::Format(const wchar_t *format, ...) {
  text_.clear();
  if (!format) return;
  const std::wstring cFormat = ToCLibraryFormat(format);
  constexpr std::size_t kMaxChars = std::size_t{1} << 20;
  std::vector<wchar_t> buffer(256);
  while (buffer.size() <= kMaxChars) {
    va_list args;
    va_start(args, format);
    const int written = std::vswprintf(buffer.data(), buffer.size(), cFormat.c_str(), args);
    va_end(args);
    if (written >= 0) {
      text_.assign(buffer.data(), static_cast<std::size_t>(written));
      return;
    }
    buffer.resize(buffer.size() * 2);
  }
}

bool CString::LoadString(UINT id) {
  const wchar_t *text = FindStringResource(id);
  if (!text) {
    text_.clear();
    return false;
  }
  text_ = text;
  return true;
}
