#include "tools/install_plan.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "compat/file_finder.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "compat/unicode.h"
#include "package/replace_rule.h"
#include "starter/config_file.h"
#include "starter/config_file_io.h"
#include "starter/config_locations.h"
#include "starter/starter.h"
#include "starter/starter_state.h"

namespace {

constexpr int kExitConflict = 3;

// Where the installer puts `name` below `dir`: "\" read as "/".
std::string target_path(const std::string& dir, const std::u16string& name) {
  std::string path = dir;
  if (!path.empty() && path.back() != '/' && path.back() != '\\') path += '/';
  std::string relative = utf16_to_utf8(name);
  for (char& c : relative)
    if (c == '\\') c = '/';
  return path + relative;
}

// The installer's rule (replaced_by_package), through the status of what
// stands at the entry's place: nothing there is new; a directory in the way,
// or a place whose status cannot be read (a file where a folder is needed,
// no access), fails the installation; a link that leads nowhere is moved
// aside and replaced.
Action plan_entry(const std::string& dir, const FileEntry& entry) {
  const std::string path = target_path(dir, entry.name);
  struct stat64 st;
  if (stat64(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return lstat64(path.c_str(), &st) == 0 ? Action::kReplace : Action::kNew;
    return Action::kConflict;
  }
  if (S_ISDIR(st.st_mode)) return Action::kConflict;
  return replaced_by_package(st, entry.time) ? Action::kReplace : Action::kKeep;
}

bool entry_exists(const std::u16string& path) {
  FileFinder finder;
  return finder.reset(path);
}

// Whether the installer's probe for a listed directory succeeds. It creates
// its probe file where a temporary file would go (temp_file_directory); a
// plan creates nothing, so it asks the system whether the file could be made.
bool probe_succeeds(const std::u16string& dir) {
  return access(temp_file_directory(narrow_lib(dir)).c_str(), W_OK | X_OK) == 0;
}

}  // namespace

StarterFacts starter_facts() {
  StarterFacts facts;
  std::vector<std::u16string> dirs;
  if (entry_exists(get_local_config_file_path())) {
    get_tmplts_list(dirs, true, false);
    facts.file = get_local_config_file_path();
  } else if (entry_exists(get_local_config_file_path_base())) {
    get_tmplts_list(dirs, true, true);
    if (!dirs.empty()) facts.file = get_local_config_file_path_base();
  }
  std::u16string proposal = zq_app_data_dir(false) + u"/tmplts";
  for (const std::u16string& dir : dirs)
    if (probe_succeeds(dir)) {
      proposal = dir;
      break;
    }
  facts.proposal = clean_proposal(proposal);
  if (!facts.file.empty()) {
    ConfigFile config;
    read_config_file(facts.file, config);
    const std::vector<std::u16string>* listed =
        config.findValues(kConfigFileFieldTemplatesLocation);
    if (listed && !listed->empty()) {
      facts.listsAny = true;
      facts.first = (*listed)[0];
      replace_all(facts.first, u"\\", u"/");
    }
  }
  return facts;
}

const char* action_name(Action action) {
  switch (action) {
    case Action::kNew:
      return "new";
    case Action::kReplace:
      return "replace";
    case Action::kKeep:
      return "keep";
    case Action::kConflict:
      return "conflict";
  }
  return "";
}

std::vector<Action> plan(const std::string& dir, const std::vector<FileEntry>& files) {
  std::vector<Action> actions;
  for (const FileEntry& f : files) actions.push_back(plan_entry(dir, f));
  return actions;
}

PlanCounts::PlanCounts(const std::vector<Action>& actions) {
  for (Action a : actions) ++of[static_cast<int>(a)];
}

int plan_status(const PlanCounts& counts) {
  return counts.of[static_cast<int>(Action::kConflict)] != 0 ? kExitConflict : 0;
}

int print_plan(const std::string& dir, const std::vector<FileEntry>& files, bool named) {
  const std::vector<Action> actions = plan(dir, files);
  if (named) std::printf("directory: %s\n", dir.c_str());
  for (size_t i = 0; i < files.size(); ++i)
    std::printf("%-8s %s\n", action_name(actions[i]), utf16_to_utf8(files[i].name).c_str());
  const PlanCounts counts(actions);
  std::printf("%zu entries: %u new, %u replace, %u keep, %u conflict\n", actions.size(),
              counts.of[0], counts.of[1], counts.of[2], counts.of[3]);
  return plan_status(counts);
}
