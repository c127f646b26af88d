#include "app/usage.h"

#include <cstdio>

#include "project_version.h"
#include "texts/resources.h"

namespace {

const char kUsage[] =
    "Usage: installer [usecwd] [-S] [-L<code>]\n"
    "       installer --help | -h | /?\n"
    "       installer --version\n"
    "\n"
    "Installs the configuration templates of the package plom8.tpk into a\n"
    "template directory chosen in a wizard, then lists that directory first in\n"
    "the starter program's configuration.\n"
    "\n"
    "  usecwd     (first argument only) take plom8.tpk from the current\n"
    "             directory instead of the installer's own directory\n"
    "  -S         silent: install into the proposed directory without asking;\n"
    "             without a display no window is shown and the messages go to\n"
    "             standard error. With a display an error still shows its box\n"
    "             and waits for it to be closed: env -u DISPLAY installer -S runs\n"
    "             headless.\n"
    "  -L<code>   interface language, one of\n"
    "             CODES\n"
    "             Arguments after the first -L are not read (a -S after it is\n"
    "             ignored). Without a known code the locale decides, else English.\n"
    "\n"
    "An option starts with \"-\" or \"/\" and only its second character counts, in\n"
    "either case (/s and -Silent mean -S). Anything else is ignored, --help, -h,\n"
    "/? and --version too when they are not the first argument.\n"
    "\n"
    "Files:\n"
    "  plom8.tpk  the package, in the folder of the installer program, or in\n"
    "             the current directory with usecwd\n"
    "  ~/.Orvo/zelbrun/zelbrun.cfg\n"
    "             the starter's per-user configuration (when it is missing,\n"
    "             ~/.Orvo/zelbrunt/zelbrun.cfg is read instead; the shared\n"
    "             ~/.plom8//.Orvo/zelbrun/zelbrun.cfg is read too). The first\n"
    "             writable directory of its ConfigurationTemplatesLocation list is\n"
    "             proposed, else ~/.plom8/Orvo/plom8//tmplts.\n"
    "  $TMPDIR    (else /tmp) the unpacked package and the backups of replaced\n"
    "             files while the installation runs\n"
    "\n"
    "Exit status:\n"
    "  With a display: 0, whatever the outcome (the wizard shows it).\n"
    "  Silent (-S) without a display:\n"
    "    0  installed\n"
    "    1  failed; the template directory is as it was\n"
    "    2  installed, but the starter's configuration could not be updated\n"
    "       (standard error says why)\n"
    "    3  cancelled by an interrupt (Ctrl+C, SIGTERM, SIGHUP); the template\n"
    "       directory is as it was\n"
    "    4  failed, and something could not be put back; the backup directory\n"
    "       is kept and named on standard error\n"
    "  Without a display and without -S the wizard cannot start: 1.\n"
    "  --help and --version: 0.\n";

}  // namespace

std::string installer_usage() {
  std::string codes;
  for (const std::string& code : get_lang_codes()) codes += (codes.empty() ? "" : " ") + code;
  std::string text = kUsage;
  text.replace(text.find("CODES"), 5, codes);
  return text;
}

std::string installer_version() { return std::string("installer ") + TPL_PROJECT_VERSION + "\n"; }

int answer_launch_request(LaunchRequest request) {
  const std::string text =
      request == LaunchRequest::kVersion ? installer_version() : installer_usage();
  const bool written = std::fputs(text.c_str(), stdout) >= 0;
  return std::fflush(stdout) == 0 && written ? 0 : 1;
}
