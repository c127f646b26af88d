#include "compat/unicode.h"

namespace {

// Length of the valid UTF-8 sequence at s (n bytes available) and its code
// point, or 0 when the bytes there are not a complete valid sequence.
size_t utf8_sequence(const unsigned char* s, size_t n, char32_t& cp) {
  unsigned char b = s[0];
  size_t len;
  char32_t min;
  if (b < 0x80) {
    cp = b;
    return 1;
  } else if (b >= 0xC2 && b <= 0xDF) {
    len = 2, cp = b & 0x1F, min = 0x80;
  } else if (b >= 0xE0 && b <= 0xEF) {
    len = 3, cp = b & 0x0F, min = 0x800;
  } else if (b >= 0xF0 && b <= 0xF4) {
    len = 4, cp = b & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (n < len) return 0;
  for (size_t i = 1; i < len; ++i) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (s[i] & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

}  // namespace

void put_utf16(char32_t cp, std::u16string& out) {
  if (cp < 0x10000) {
    out.push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

void put_utf8(char32_t cp, std::string& out) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

char32_t next_character(const char16_t* s, size_t n, size_t& i, bool& escaped) {
  const char16_t u = s[i++];
  escaped = false;
  if (is_high_surrogate(u) && i < n && is_low_surrogate(s[i]))
    return 0x10000 + ((char32_t(u) - 0xD800) << 10) + (char32_t(s[i++]) - 0xDC00);
  if (is_escape_unit(u)) {
    escaped = true;
    return u & 0xFF;
  }
  return u;
}

void append_utf8_as_utf16(const char* src, size_t n, std::u16string& out) {
  const auto* s = reinterpret_cast<const unsigned char*>(src);
  size_t i = 0;
  while (i < n) {
    if (s[i] < 0x80) {
      out.push_back(s[i++]);
      continue;
    }
    char32_t cp;
    size_t len = utf8_sequence(s + i, n - i, cp);
    if (len == 0) {
      out.push_back(static_cast<char16_t>(kEscapeBase | s[i]));
      ++i;
    } else {
      put_utf16(cp, out);
      i += len;
    }
  }
}

std::u16string utf8_to_utf16(const std::string& text) {
  std::u16string out;
  out.reserve(text.size());
  append_utf8_as_utf16(text.data(), text.size(), out);
  return out;
}

std::string utf16_to_utf8(const std::u16string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    bool escaped;
    const char32_t cp = next_character(text.data(), text.size(), i, escaped);
    if (escaped)
      out.push_back(static_cast<char>(cp));
    else
      put_utf8(cp, out);
  }
  return out;
}
