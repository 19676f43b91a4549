// Settings from an INI file, read afresh at each call (settings are read rarely).
//
// The file: `[section]` lines, `name = value` lines, whole-line comments starting
// with ';' or '#', blank lines. Section and key names match without regard to
// ASCII case; surrounding blanks are trimmed. When a key appears more than once in
// its section, the last one counts. A value must be one number and nothing else.
#include "sibling/Registry.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

namespace {

std::string SettingsPath() {
  if (const char *path = std::getenv("QORIMG_SETTINGS"); path && *path) return path;
  if (const char *config = std::getenv("XDG_CONFIG_HOME"); config && *config)
    return std::string(config) + "/qorimg/settings.ini";
  if (const char *home = std::getenv("HOME"); home && *home) return std::string(home) + "/.config/qorimg/settings.ini";
  return {};
}

std::string_view TrimBlanks(std::string_view s) {
  constexpr std::string_view kBlanks = " \t\r\n\v\f";
  const std::size_t first = s.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(kBlanks) - first + 1);
}

bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The raw text of the setting, if the file has it.
std::optional<std::string> FindValue(const CString &section, const CString &name) {
  const std::string path = SettingsPath();
  if (path.empty()) return std::nullopt;
  std::ifstream file(path);
  if (!file) return std::nullopt;

  const std::string wantedSection = section.ToUtf8();
  const std::string wantedName = name.ToUtf8();
  std::optional<std::string> found;
  bool inSection = false;
  std::string line;
  for (bool first = true; std::getline(file, line); first = false) {
    std::string_view text = line;
    if (first && text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);  // byte-order mark
    text = TrimBlanks(text);
    if (text.empty() || text.front() == ';' || text.front() == '#') continue;
    if (text.front() == '[') {
      inSection = text.back() == ']' &&
                  EqualIgnoringAsciiCase(TrimBlanks(text.substr(1, text.size() - 2)), wantedSection);
      continue;
    }
    const std::size_t equals = text.find('=');
    if (!inSection || equals == std::string_view::npos) continue;
    if (EqualIgnoringAsciiCase(TrimBlanks(text.substr(0, equals)), wantedName))
      found = std::string(TrimBlanks(text.substr(equals + 1)));
  }
  return found;
}

// The whole token must be the number.
template <class T>
std::optional<T> ParseNumber(const std::string &token) {
  T value{};
  const char *end = token.data() + token.size();
  const auto [stop, error] = std::from_chars(token.data(), end, value);
  if (token.empty() || error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

int CRegistry::Read(const CString &section, const CString &name, int defaultValue, int *value, int) {
  if (!value) return 0;
  *value = defaultValue;
  const auto text = FindValue(section, name);
  const auto parsed = text ? ParseNumber<int>(*text) : std::nullopt;
  if (!parsed) return 0;
  *value = *parsed;
  return 1;
}

// Infinities and NaN are refused: no setting wants them.
int CRegistry::Read(const CString &section, const CString &name, double defaultValue, double *value) {
  if (!value) return 0;
  *value = defaultValue;
  const auto text = FindValue(section, name);
  const auto parsed = text ? ParseNumber<double>(*text) : std::nullopt;
  if (!parsed || !std::isfinite(*parsed)) return 0;
  *value = *parsed;
  return 1;
}
