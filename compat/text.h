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
// (dstCap bytes) is cleared first and at most dstCap bytes are written, the
// terminator only if it fits. Returns the byte count of the whole conversion
// (terminator not counted). Units 0xDC80..0xDCFF turn back into the single
// bytes they stand for; a surrogate pair becomes its character; a character
// that a non-UTF-8 locale cannot represent is written as '?'. Never fails.
int WideCharToMultiByte(unsigned codePage, unsigned flags, const char16_t* source, int srcLen,
                        char* destination, int dstCap, const char* defaultChar,
                        int* usedDefault);

// Locale bytes -> UTF-16 (stops at an embedded NUL). Never throws on bad bytes.
std::u16string widen_lib(const std::string& s);
// UTF-16 -> locale bytes. widen_lib followed by narrow_lib returns the input
// unchanged, invalid bytes included.
std::string narrow_lib(const std::u16string& s);

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

// strcasecmp of the two strings' locale forms: ASCII letters fold, others not.
int compare_nocase(const std::u16string& a, const std::u16string& b);
