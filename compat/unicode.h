// UTF-16 units and UTF-8 bytes, whatever the locale: surrogate pairs, the
// escape units that carry bytes which are not valid text, and the UTF-8 form
// of a character. The locale conversions (text.h) and the package tools are
// built on these, so each rule is written once.
#pragma once

#include <cstddef>
#include <string>

// A byte that is not valid text is held as the unit 0xDC00 + byte, always in
// 0xDC80..0xDCFF (a byte below 0x80 is valid), and turns back into the byte.
constexpr char16_t kEscapeBase = 0xDC00;

inline bool is_escape_unit(char16_t u) { return u >= 0xDC80 && u <= 0xDCFF; }
inline bool is_high_surrogate(char16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
inline bool is_low_surrogate(char16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// Appends `cp` as one unit, or as a surrogate pair above U+FFFF.
void put_utf16(char32_t cp, std::u16string& out);
// Appends the UTF-8 bytes of `cp` (a lone surrogate in the three-byte form).
void put_utf8(char32_t cp, std::string& out);

// The character that starts at s[i] (n units in all); i moves past it. A
// high surrogate followed by a low one (0xDC80..0xDCFF included) is one
// character; a unit 0xDC80..0xDCFF that does not follow a high surrogate is
// the byte it escapes (`escaped` is set and the byte returned); any other
// unit, a lone surrogate included, is the character of its own value.
char32_t next_character(const char16_t* s, size_t n, size_t& i, bool& escaped);

// Appends the units of the n UTF-8 bytes at s: a NUL byte is the unit 0, a
// byte that does not start a complete valid sequence its escape unit.
void append_utf8_as_utf16(const char* s, size_t n, std::u16string& out);

// The whole text between UTF-8 and UTF-16 (NUL and the unit 0 included), by
// the rules above: utf16_to_utf8(utf8_to_utf16(b)) is b for every byte string.
std::u16string utf8_to_utf16(const std::string& text);
std::string utf16_to_utf8(const std::u16string& text);
