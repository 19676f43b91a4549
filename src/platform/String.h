// Wide-character text in the framework's manner (wchar_t, UTF-32 on Linux),
// with UTF-8 helpers for callers that hold narrow text.
#pragma once
#include <string>
#include <string_view>
#include "Export.h"
#include "platform/WinTypes.h"

class QORIMG_API CString {
public:
  CString() = default;
  CString(const wchar_t *text) : text_(text ? text : L"") {}
  CString(std::wstring text) : text_(std::move(text)) {}
  // A negative length, or a null text, gives the empty text.
  CString(const wchar_t *text, int length)
      : text_(text ? text : L"", text && length > 0 ? static_cast<std::size_t>(length) : 0) {}

  static CString FromUtf8(std::string_view utf8);
  std::string ToUtf8() const;

  int GetLength() const { return static_cast<int>(text_.size()); }
  bool IsEmpty() const { return text_.empty(); }
  void Empty() { text_.clear(); }
  const wchar_t *GetString() const { return text_.c_str(); }
  operator const wchar_t *() const { return text_.c_str(); }
  const std::wstring &str() const { return text_; }
  wchar_t GetAt(int i) const { return text_.at(static_cast<std::size_t>(i)); }

  CString &operator+=(const CString &o) { text_ += o.text_; return *this; }
  CString &operator+=(const wchar_t *o) { text_ += (o ? o : L""); return *this; }
  CString &operator+=(wchar_t c) { text_ += c; return *this; }
  friend CString operator+(CString a, const CString &b) { a += b; return a; }
  bool operator==(const CString &o) const { return text_ == o.text_; }
  bool operator==(const wchar_t *o) const { return text_ == (o ? o : L""); }
  bool operator<(const CString &o) const { return text_ < o.text_; }

  int Find(wchar_t c, int start = 0) const;
  int Find(const wchar_t *sub, int start = 0) const;
  CString Left(int n) const;
  CString Mid(int first, int n = -1) const;
  CString Right(int n) const;
  CString &Trim();

  // printf-style formatting with wide format strings, read as the framework reads
  // them: %s and %c take wide arguments, %hs, %hc, %S and %C narrow ones.
  void Format(const wchar_t *format, ...);
  // Loads text `id` of the library's string table; false (and empty) when there is none.
  bool LoadString(UINT id);

private:
  std::wstring text_;
};
