#include "app/command_line.h"

#include <clocale>
#include <cstring>

#include "compat/text.h"

LaunchOptions parse_command_line(int argc, char** argv) {
  LaunchOptions options;

  int first = 1;
  if (argc > 1 && argv[1] && std::strcmp(argv[1], "usecwd") == 0) {
    options.useCwd = true;
    first = 2;
  }

  // Only the first -L counts; nothing after it is examined.
  const char* requestedCode = nullptr;
  for (int i = first; i < argc && !requestedCode; ++i) {
    const char* arg = argv[i];
    if (!arg || (arg[0] != '-' && arg[0] != '/')) continue;
    switch (arg[1]) {
      case 'S':
      case 's':
        options.silent = true;
        break;
      case 'L':
      case 'l':
        requestedCode = arg + 2;
        break;
      default:
        break;
    }
  }

  if (requestedCode) {
    LangIdType id = get_lang_id_by_lang_code(requestedCode);
    if (id != kLangNone) {
      options.langId = id;
      options.languageCode = widen_lib(requestedCode);
    }
  }

  if (options.langId == kLangNone) {
    const char* localeName = std::setlocale(LC_ALL, "");
    if (!localeName) {
      options.langId = kLangEn;
    } else {
      std::string code = std::string(localeName).substr(0, 2);
      LangIdType id = get_lang_id_by_lang_code(code);
      if (id != kLangNone) {
        options.langId = id;
        options.languageCode = widen_lib(code);
      } else {
        options.langId = kLangEn;
      }
    }
  }
  return options;
}

LaunchRequest launch_request(int argc, char** argv) {
  const char* arg = argc > 1 ? argv[1] : nullptr;
  if (!arg) return LaunchRequest::kRun;
  if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "/?") == 0)
    return LaunchRequest::kHelp;
  if (std::strcmp(arg, "--version") == 0) return LaunchRequest::kVersion;
  return LaunchRequest::kRun;
}
