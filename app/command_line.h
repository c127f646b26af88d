// The installer's command line: [usecwd] followed by options -S and -L<code>,
// or a request for the usage text or the version.
#pragma once

#include <string>

#include "texts/resources.h"

// What the command line and the locale choose for a run.
struct LaunchOptions {
  bool silent = false;                  // -S: install without asking
  bool useCwd = false;                  // first argument "usecwd": package in the working dir
  LangIdType langId = kLangNone;        // never kLangNone after parsing
  std::u16string languageCode = u"en";  // code of langId, or "en" when no code was recognised
};

// Reads argv[1..argc-1]. "usecwd" counts only as argument 1. An option starts
// with "-" or "/" and is named by its second character alone, in any case: S
// sets silent; L takes the rest of the argument as a language code and ends
// the scan. Anything else is ignored. Without a known -L code the language
// comes from setlocale(LC_ALL, "") (called only then; this sets the process
// locale) through the first two characters of the locale name; English when
// that fails. Does not select the resource language.
LaunchOptions parse_command_line(int argc, char** argv);

// What a start is asked for before any installation option counts.
enum class LaunchRequest { kRun, kHelp, kVersion };

// Looks at the first argument only (where "usecwd" also stands): exactly
// "--help", "-h" or "/?" asks for the usage, "--version" for the version;
// anything else, and these words anywhere else, is kRun. The option scan of
// parse_command_line ignores all four words as unknown options.
LaunchRequest launch_request(int argc, char** argv);
