#include "starter/starter_state.h"

#include "compat/file_finder.h"
#include "compat/shell.h"
#include "starter/config_locations.h"
#include "starter/starter.h"

namespace {

const std::u16string kDefaultTemplatesDirName = u"tmplts";

// Whether there is an entry at `path` whose status can be read (a link that
// leads nowhere is missing). A starter file that is not a regular file still
// decides which file is to be written; reading it gives nothing and writing
// it fails, which the user is told.
bool file_exists(const std::u16string& path) {
  FileFinder finder;
  return finder.reset(path);
}

// Removes the first occurrence of `part`, if any.
void erase_first(std::u16string& text, const std::u16string& part) {
  size_t pos = text.find(part);
  if (pos != std::u16string::npos) text.erase(pos, part.size());
}

}  // namespace

std::u16string clean_proposal(std::u16string proposal) {
  for (const char16_t* remote : {u"http://", u"https://", u"ftp://"})
    if (proposal.find(remote) != std::u16string::npos) proposal.clear();
  erase_first(proposal, u"file://");
  std::u16string cleaned;
  cleaned.reserve(proposal.size());
  for (char16_t c : proposal)
    if (c != u'\n' && c != u'\r') cleaned.push_back(c);
  return cleaned;
}

StarterState read_starter_state() {
  StarterState state;
  bool baseExists = file_exists(get_local_config_file_path_base());
  bool ordinaryExists = file_exists(get_local_config_file_path());
  if (ordinaryExists) {
    get_tmplts_list(state.templateDirs, true, false);
    state.writeOrdinary = true;
  } else if (baseExists) {
    get_tmplts_list(state.templateDirs, true, true);
    state.writeBase = !state.templateDirs.empty();
  }

  std::u16string proposal;
  bool found = false;
  for (const std::u16string& dir : state.templateDirs) {
    if (isWritePermitted(dir)) {
      proposal = dir;
      found = true;
      break;
    }
  }
  if (!found) proposal = zq_app_data_dir(false) + u"/" + kDefaultTemplatesDirName;
  state.proposal = clean_proposal(proposal);
  return state;
}

Status record_template_dir(StarterState& state, const std::u16string& targetDir) {
  std::u16string dir = targetDir;
  if (!dir.empty() && (dir.back() == u'/' || dir.back() == u'\\')) dir.pop_back();
  if (!state.writeOrdinary && !state.writeBase) {
    state.templateDirs.insert(state.templateDirs.begin(), dir);
    return Status{};
  }
  // Each file is read again just before it is written, so the list written
  // is the target followed by what that file lists now.
  for (bool base : {false, true}) {
    if (!(base ? state.writeBase : state.writeOrdinary)) continue;
    std::vector<std::u16string> written;
    Status status = Starter(base).prependTmpltsDir(dir, written);
    if (!status.ok()) return status;
    state.templateDirs = written;
  }
  return Status{};
}
