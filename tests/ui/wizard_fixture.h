// A private world for one wizard: HOME, TMPDIR, a distribution kit folder
// (the working directory, so the dialog runs with useCwd), an xdg-open stub
// on PATH, and scripted answers for every message box.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "gtk_test_support.h"
#include "support/test_support.h"
#include "ui/installer_dlg.h"
#include "ui/message_box.h"

namespace uitest {

// One message box as the seam saw it.
struct Box {
  GtkMessageType type;
  GtkButtonsType buttons;
  std::string title;
  std::string text;
};

// A language record of a test package: code, product, vendor, document.
struct Language {
  std::string code, product, vendor, document;
};

// UTF-8 text of a resource key in the current language.
std::string text(const char* key);

class WizardTest : public ::testing::Test {
 protected:
  WizardTest();
  ~WizardTest() override;
  void SetUp() override;
  void TearDown() override;

  // root/src/name := bytes (folders created).
  void source(const std::string& name, const std::string& bytes);
  // Packs root/src into root/kit/plom8.tpk with these language records
  // (none: a single-language header without texts).
  void buildPackage(const std::vector<Language>& languages);
  // root/home/relative := bytes (folders created).
  void homeFile(const std::string& relative, const std::string& bytes);
  // A dialog on the kit, initialised, with its window and welcome page up.
  CInstallerDlg& start(const std::u16string& language = u"en", bool silent = false);
  // Constructed only: no package loaded, no window.
  CInstallerDlg& construct(const std::u16string& language, bool silent);
  // Goes from the welcome page to the directory page and types `path`.
  void toDirectoryPage(const std::string& path);

  // Arguments the xdg-open stub was started with, one per line.
  std::string opened() const;
  // Names in TMPDIR (working files that were left behind).
  std::vector<std::string> tmpEntries() const;

  testsupport::TempDir m_root;
  std::string m_home, m_tmp, m_kit, m_src, m_bin;
  std::unique_ptr<testsupport::ScopedEnv> m_homeEnv, m_tmpEnv, m_pathEnv;
  std::string m_oldCwd;
  std::unique_ptr<CInstallerDlg> m_dialog;
  std::vector<Box> m_boxes;
  std::deque<int> m_answers;
  std::string m_chosenFolder;
  char m_arg0[16] = "installer";
  char* m_argv[2] = {m_arg0, nullptr};
};

// Makes the directories of `path` and writes `bytes` there.
void put_file(const std::string& path, const std::string& bytes);

}  // namespace uitest
