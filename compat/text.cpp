#include "compat/text.h"

#include <langinfo.h>
#include <locale.h>
#include <wchar.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "compat/unicode.h"

namespace {

// The byte encoding of the environment's locale, re-checked whenever the
// locale variables change. UTF-8 (and the plain C locale, whose ASCII is a
// subset of it) is decoded directly; any other encoding goes through libc.
class EnvLocale {
 public:
  ~EnvLocale() {
    if (m_locale) freelocale(m_locale);
  }

  void refresh() {
    std::string key;
    for (const char* var : {"LC_ALL", "LC_CTYPE", "LANG"}) {
      const char* v = std::getenv(var);
      key += v ? v : "";
      key += '\n';
    }
    if (m_ready && key == m_key) return;
    m_key = key;
    m_ready = true;
    if (m_locale) freelocale(m_locale);
    m_locale = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(0));
    if (!m_locale) m_locale = newlocale(LC_CTYPE_MASK, "C", static_cast<locale_t>(0));
    const char* codeset = m_locale ? nl_langinfo_l(CODESET, m_locale) : "UTF-8";
    m_utf8 = std::strcmp(codeset, "UTF-8") == 0 || std::strcmp(codeset, "ANSI_X3.4-1968") == 0;
  }

  bool utf8() const { return m_utf8; }
  locale_t handle() const { return m_locale; }

 private:
  std::string m_key;
  bool m_ready = false;
  bool m_utf8 = true;
  locale_t m_locale = static_cast<locale_t>(0);
};

EnvLocale& env_locale() {
  thread_local EnvLocale locale;
  locale.refresh();
  return locale;
}

// Appends the units of the first n bytes of s, stopping at a NUL byte when
// `stopAtNul`, else turning it into the unit 0.
void decode(const char* src, size_t n, std::u16string& out, bool stopAtNul = true) {
  const auto* s = reinterpret_cast<const unsigned char*>(src);
  const size_t end = stopAtNul ? strnlen(src, n) : n;
  EnvLocale& loc = env_locale();
  if (loc.utf8()) {
    append_utf8_as_utf16(src, end, out);
    return;
  }
  mbstate_t state{};
  locale_t previous = uselocale(loc.handle());
  size_t i = 0;
  while (i < end) {
    if (s[i] == 0) {
      out.push_back(0);
      state = mbstate_t{};
      ++i;
      continue;
    }
    wchar_t wc;
    size_t r = mbrtowc(&wc, src + i, end - i, &state);
    if (r == static_cast<size_t>(-1) || r == static_cast<size_t>(-2) || r == 0) {
      out.push_back(static_cast<char16_t>(kEscapeBase | s[i]));
      state = mbstate_t{};
      ++i;
    } else {
      put_utf16(static_cast<char32_t>(wc), out);
      i += r;
    }
  }
  uselocale(previous);
}

// Appends the bytes of the first n units of s, stopping at a 0 unit when
// `stopAtZero`, else turning it into a NUL byte. A high surrogate followed by
// a low one (DC80..DCFF included) is one character; a unit DC80..DCFF not
// preceded by a high surrogate gives back the byte it escapes; a lone
// surrogate is written in the three-byte form; a unit a non-UTF-8 locale
// cannot represent becomes '?'. When `ends` is given, the end offset of
// every character written is appended to it.
void encode(const char16_t* s, size_t n, std::string& out, std::vector<size_t>* ends = nullptr,
            bool stopAtZero = true) {
  EnvLocale& loc = env_locale();
  locale_t previous = static_cast<locale_t>(0);
  if (!loc.utf8()) previous = uselocale(loc.handle());
  mbstate_t state{};
  for (size_t i = 0; i < n && (s[i] != 0 || !stopAtZero);) {
    if (s[i] == 0) {
      out.push_back('\0');
      state = mbstate_t{};
      ++i;
      if (ends) ends->push_back(out.size());
      continue;
    }
    bool escaped;
    const char32_t cp = next_character(s, n, i, escaped);
    if (escaped) {
      out.push_back(static_cast<char>(cp));
    } else if (loc.utf8()) {
      put_utf8(cp, out);
    } else {
      char buf[MB_LEN_MAX];
      size_t r = wcrtomb(buf, static_cast<wchar_t>(cp), &state);
      if (r == static_cast<size_t>(-1)) {
        out.push_back('?');
        state = mbstate_t{};
      } else {
        out.append(buf, r);
      }
    }
    if (ends) ends->push_back(out.size());
  }
  if (!loc.utf8()) uselocale(previous);
}

size_t units_before_zero(const char16_t* s) {
  size_t n = 0;
  while (s[n] != 0) ++n;
  return n;
}

}  // namespace

int MultiByteToWideChar(unsigned, unsigned, const char* source, int, char16_t* destination,
                        int dstCap) {
  std::u16string units;
  decode(source, std::strlen(source), units);
  int count = static_cast<int>(units.size());
  if (count == 0) return 0;
  int copy = count < dstCap ? count : dstCap;
  if (copy > 0) std::memcpy(destination, units.data(), copy * sizeof(char16_t));
  return count;
}

int WideCharToMultiByte(unsigned, unsigned, const char16_t* source, int, char* destination,
                        int dstCap, const char*, int*) {
  std::string bytes;
  std::vector<size_t> ends;
  encode(source, units_before_zero(source), bytes, &ends);
  int count = static_cast<int>(bytes.size());
  if (count != 0 && dstCap > 0) {
    // As many whole characters as fit; the terminator only if it fits too.
    std::memset(destination, 0, dstCap);
    size_t fit = 0;
    for (size_t end : ends) {
      if (end > static_cast<size_t>(dstCap)) break;
      fit = end;
    }
    std::memcpy(destination, bytes.data(), fit);
  }
  return count;
}

std::u16string widen_lib(const std::string& s) {
  std::u16string out;
  out.reserve(s.size());
  decode(s.data(), s.size(), out);
  return out;
}

std::string narrow_lib(const std::u16string& s) {
  std::string out;
  out.reserve(s.size());
  encode(s.data(), s.size(), out);
  return out;
}

std::u16string widen_all(const std::string& s) {
  std::u16string out;
  out.reserve(s.size());
  decode(s.data(), s.size(), out, false);
  return out;
}

std::string narrow_all(const std::u16string& s) {
  std::string out;
  out.reserve(s.size());
  encode(s.data(), s.size(), out, nullptr, false);
  return out;
}

unsigned replace_all(std::u16string& text, const std::u16string& from, const std::u16string& to) {
  if (from.empty() || text.empty()) return 0;
  unsigned count = 0;
  if (from.size() == to.size()) {
    for (size_t pos = text.find(from); pos != std::u16string::npos;
         pos = text.find(from, pos + to.size())) {
      text.replace(pos, from.size(), to);
      ++count;
    }
    return count;
  }
  std::vector<size_t> positions;
  for (size_t pos = text.find(from); pos != std::u16string::npos;
       pos = text.find(from, pos + from.size()))
    positions.push_back(pos);
  if (positions.empty()) return 0;
  std::u16string result;
  result.reserve(text.size() + positions.size() * to.size() - positions.size() * from.size());
  size_t start = 0;
  for (size_t pos : positions) {
    result.append(text, start, pos - start);
    result.append(to);
    start = pos + from.size();
  }
  result.append(text, start, std::u16string::npos);
  text.swap(result);
  return static_cast<unsigned>(positions.size());
}

uint32_t string_toul(const std::u16string& s) {
  uint32_t value = 0;
  for (char16_t c : s) {
    if (c < u'0' || c > u'9') break;
    value = value * 10u + static_cast<uint32_t>(c - u'0');
  }
  return value;
}

std::u16string string_uito(unsigned value, int radix) {
  bool negative = false;
  if (radix == 10 && static_cast<int>(value) < 0) {
    negative = true;
    value = 0u - value;
  }
  const unsigned base = static_cast<unsigned>(radix);
  std::u16string digits;
  do {
    unsigned d = value % base;
    digits.push_back(static_cast<char16_t>(d < 10 ? u'0' + d : u'a' + (d - 10)));
    value /= base;
  } while (value != 0);
  if (negative) digits.push_back(u'-');
  return std::u16string(digits.rbegin(), digits.rend());
}

std::u16string string_ito(int value, int radix) {
  return string_uito(static_cast<unsigned>(value), radix);
}

int compare_nocase(const std::u16string& a, const std::u16string& b) {
  // Byte by byte as strcasecmp folds and orders them (unsigned), except
  // that a NUL byte is compared like any other instead of ending the text.
  return nocase_key(a).compare(nocase_key(b));
}

std::string nocase_key(const std::u16string& s) {
  std::string key = narrow_all(s);
  for (char& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return key;
}
