// Text held inside the program: UTF-16 strings (one code unit per element).
// Conversions to and from the byte encoding of the environment's locale happen
// only where text meets the operating system or the toolkit.
#pragma once

#include <cstdint>
#include <string>

// Path separators. Paths use "/"; "\\" is accepted where Windows-shaped paths
// may arrive (package names, stored configuration values).
inline const std::u16string kPathSeparator = u"/";
inline const std::u16string kBadPathSeparator = u"\\";

// Converts the NUL-terminated byte string `source` (srcLen is ignored: the
// conversion always stops at the first NUL byte) to UTF-16 units. Writes at
// most dstCap units (no terminator) and returns the number of units the whole
// source converts to. Bytes that are not valid in the locale's encoding become
// the units 0xDC80..0xDCFF (byte 0xNN <-> unit 0xDCNN), so nothing fails and
// nothing is lost. A character above U+FFFF becomes a surrogate pair.
// Code page and flags are ignored.
int MultiByteToWideChar(unsigned codePage, unsigned flags, const char* source, int srcLen,
                        char16_t* destination, int dstCap);

// Converts the 0-terminated UTF-16 `source` (srcLen only sizes work space) to
// the locale's encoding. If the result is not empty, the whole destination
// (dstCap bytes) is cleared first and then filled with as many whole
// characters as fit in dstCap bytes (a character is never cut; the
// terminator is there only if it fits). Returns the byte count of the whole
// conversion (terminator not counted). A high surrogate followed by a low
// surrogate is one character, whatever the low one's value; a unit
// 0xDC80..0xDCFF that does not follow a high surrogate turns back into the
// single byte it stands for; a character that a non-UTF-8 locale cannot
// represent is written as '?'. Never fails.
int WideCharToMultiByte(unsigned codePage, unsigned flags, const char16_t* source, int srcLen,
                        char* destination, int dstCap, const char* defaultChar, int* usedDefault);

// Locale bytes -> UTF-16 (stops at an embedded NUL). Never throws on bad bytes.
// In what it returns, every high surrogate is immediately followed by the low
// surrogate of its pair, and every unit 0xDC80..0xDCFF that does not follow a
// high surrogate is an escaped byte.
std::u16string widen_lib(const std::string& s);
// UTF-16 -> locale bytes. Because of the rule above, narrow_lib(widen_lib(b))
// is b for every byte string b without NUL: invalid bytes, characters above
// U+FFFF and escaped bytes beside them included. (The other way round is not
// exact: a lone surrogate has no valid byte form.)
std::string narrow_lib(const std::u16string& s);
// The same conversions over the whole text: a NUL byte and the unit 0 are
// characters like any other (where widen_lib and narrow_lib stop), so
// narrow_all(widen_all(b)) is b for every byte string b.
std::u16string widen_all(const std::string& s);
std::string narrow_all(const std::u16string& s);

// Replaces every non-overlapping occurrence of `from`, left to right, and
// returns the number of replacements. Empty `from` or `text`: no change, 0.
unsigned replace_all(std::u16string& text, const std::u16string& from, const std::u16string& to);

// Leading decimal digits of s, in 32-bit arithmetic (wraps); 0 when s does
// not start with a digit.
uint32_t string_toul(const std::u16string& s);

// Digits of value in radix (2..36, lower-case letters). In radix 10 the top
// bit is read as a sign, for both functions: string_uito(4294967295, 10) is "-1".
std::u16string string_uito(unsigned value, int radix);
std::u16string string_ito(int value, int radix);

// The two texts' narrow forms compared as strcasecmp compares them in the
// current C locale (setlocale): folded byte by byte, so in UTF-8 only
// single-byte letters fold, and under a Turkish locale "I" and "i" differ.
// A unit 0 is compared like any other character, not as the end.
int compare_nocase(const std::u16string& a, const std::u16string& b);

// A byte string that is equal for two texts exactly when compare_nocase says
// they are equal (each byte of narrow_all through tolower in the current
// locale, as strcasecmp folds them). Meant as a hash or map key.
std::string nocase_key(const std::u16string& s);
