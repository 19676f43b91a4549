#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include "io/IoInternal.h"

namespace qorimg::io {
namespace {

constexpr std::size_t kCard = 80;

std::string Upper(std::string_view s) {
  std::string out(s);
  for (char &c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// The keyword of a card image as cfitsio reads it (HIERARCH keys included).
std::string KeyOf(const std::string &card) {
  char name[FLEN_KEYWORD] = {};
  int length = 0, status = 0;
  fits_get_keyname(const_cast<char *>(card.c_str()), name, &length, &status);
  return status ? std::string() : Upper(name);
}

// The value field of a card (quoted for strings), empty when it has none.
std::string ValueOf(const std::string &card) {
  char value[FLEN_VALUE] = {}, comment[FLEN_COMMENT] = {};
  int status = 0;
  fits_parse_value(const_cast<char *>(card.c_str()), value, comment, &status);
  fits_clear_errmsg();
  return status ? std::string() : std::string(value);
}

// A FITS string value without its quotes ('' stands for one quote); trailing
// blanks are not significant.
std::string Unquote(const std::string &value) {
  std::string out;
  for (std::size_t i = 1; i + 1 < value.size(); ++i) {
    out += value[i];
    if (value[i] == '\'' && value[i + 1] == '\'') ++i;
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

std::string Quote(const std::string &text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
  if (out.size() < 9) out.append(9 - out.size(), ' ');  // strings are at least 8 characters
  return out + "'";
}

std::string Padded(std::string card) {
  card.resize(kCard, ' ');
  return card;
}

}  // namespace

bool detail::Travels(const std::string &card) {
  switch (fits_get_keyclass(const_cast<char *>(card.c_str()))) {
    case TYP_STRUC_KEY:
    case TYP_CMPRS_KEY:
    case TYP_SCAL_KEY:
    case TYP_NULL_KEY:
    case TYP_CKSUM_KEY:
      return false;
    default:
      return true;
  }
}

std::optional<std::string> FitsHeader::Text(std::string_view key) const {
  const std::string wanted = Upper(key);
  for (const std::string &card : records_)
    if (KeyOf(card) == wanted) {
      const std::string value = ValueOf(card);
      if (value.empty()) return std::nullopt;
      return value.front() == '\'' ? Unquote(value) : value;
    }
  return std::nullopt;
}

std::optional<double> FitsHeader::Number(std::string_view key) const {
  std::optional<std::string> text = Text(key);
  if (!text) return std::nullopt;
  std::string s = *text;
  std::replace(s.begin(), s.end(), 'D', 'E');  // Fortran double exponents
  std::replace(s.begin(), s.end(), 'd', 'e');
  const char *begin = s.c_str();
  char *end = nullptr;
  const double value = std::strtod(begin, &end);
  while (end && *end == ' ') ++end;
  if (end == begin || *end != '\0') return std::nullopt;
  return value;
}

void FitsHeader::Put(std::string_view key, const std::string &formatted, std::string_view comment) {
  char card[FLEN_CARD] = {};
  int status = 0;
  const std::string name(key), note(comment);
  std::string value = formatted;
  fits_make_key(name.c_str(), value.data(), note.c_str(), card, &status);
  if (status) {
    const std::string why = detail::CfitsioText(status);
    throw std::invalid_argument("header card " + name + " " + why);
  }
  const std::string wanted = Upper(key);
  auto it = std::find_if(records_.begin(), records_.end(), [&](const std::string &c) { return KeyOf(c) == wanted; });
  if (it != records_.end())
    *it = Padded(card);
  else
    records_.push_back(Padded(card));
}

void FitsHeader::Set(std::string_view key, const std::string &value, std::string_view comment) {
  Put(key, Quote(value), comment);
}

void FitsHeader::Set(std::string_view key, double value, std::string_view comment) {
  if (!std::isfinite(value)) throw std::invalid_argument("header card " + std::string(key) + ": not a finite number");
  char text[32];
  std::snprintf(text, sizeof text, "%.17G", value);
  std::string s = text;
  if (s.find_first_of(".E") == std::string::npos) s += ".0";  // stays a real number when read back
  Put(key, s, comment);
}

void FitsHeader::Set(std::string_view key, long long value, std::string_view comment) {
  Put(key, std::to_string(value), comment);
}

void FitsHeader::Remove(std::string_view key) {
  const std::string wanted = Upper(key);
  std::erase_if(records_, [&](const std::string &c) { return KeyOf(c) == wanted; });
}

void FitsHeader::AddHistory(const std::string &text) {
  constexpr std::size_t kText = kCard - 8;
  std::size_t at = 0;
  do {
    records_.push_back(Padded("HISTORY " + text.substr(at, kText)));
    at += kText;
  } while (at < text.size());
}

void FitsHeader::AddRecord(std::string card) { records_.push_back(Padded(std::move(card))); }

}  // namespace qorimg::io
