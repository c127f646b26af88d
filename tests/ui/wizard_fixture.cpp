#include "wizard_fixture.h"

#include <dirent.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "app/resources.h"
#include "compat/text.h"
#include "tools/tpk_writer.h"
#include "ui/wizard_pages.h"

namespace uitest {

std::string text(const char* key) { return narrow_lib(LoadResString(key)); }

void put_file(const std::string& path, const std::string& bytes) {
  const std::string dir = path.substr(0, path.rfind('/'));
  ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
  testsupport::write_file(path, bytes);
}

WizardTest::WizardTest()
    : m_home(m_root / "home"),
      m_tmp(m_root / "tmp"),
      m_kit(m_root / "kit"),
      m_src(m_root / "src"),
      m_bin(m_root / "bin") {}

WizardTest::~WizardTest() = default;

void WizardTest::SetUp() {
  for (const std::string& dir : {m_home + "/.local/share", m_tmp, m_kit, m_src, m_bin})
    ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
  m_homeEnv = std::make_unique<testsupport::ScopedEnv>("HOME", m_home);
  m_tmpEnv = std::make_unique<testsupport::ScopedEnv>("TMPDIR", m_tmp);
  // The desktop opener is a stub that records what it was asked to open.
  put_file(m_bin + "/xdg-open", "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done >> '" +
                                    m_root.path() + "/opened.log'\n");
  ASSERT_EQ(std::system(("chmod +x '" + m_bin + "/xdg-open'").c_str()), 0);
  const char* path = std::getenv("PATH");
  m_pathEnv = std::make_unique<testsupport::ScopedEnv>(
      "PATH", m_bin + ":" + (path ? path : "/usr/bin:/bin"));
  char cwd[PATH_MAX];
  ASSERT_TRUE(getcwd(cwd, sizeof cwd));
  m_oldCwd = cwd;
  ASSERT_EQ(chdir(m_kit.c_str()), 0);

  set_message_box_hook([this](GtkMessageType type, GtkButtonsType buttons, const std::string& title,
                              const std::string& body) {
    m_boxes.push_back({type, buttons, title, body});
    if (m_answers.empty()) {
      ADD_FAILURE() << "unexpected message box: " << body;
      return int(GTK_RESPONSE_DELETE_EVENT);
    }
    int answer = m_answers.front();
    m_answers.pop_front();
    return answer;
  });
  set_folder_chooser_hook([this](std::string& folder) {
    if (m_chosenFolder.empty()) return false;
    folder = m_chosenFolder;
    return true;
  });
}

void WizardTest::TearDown() {
  m_dialog.reset();
  gtktest::Pump();
  set_message_box_hook(nullptr);
  set_folder_chooser_hook(nullptr);
  set_resource_lang(kLangEn);
  EXPECT_TRUE(m_answers.empty()) << m_answers.size() << " scripted answer(s) not used";
  EXPECT_EQ(chdir(m_oldCwd.c_str()), 0);
}

void WizardTest::source(const std::string& name, const std::string& bytes) {
  put_file(m_src + "/" + name, bytes);
}

void WizardTest::buildPackage(const std::vector<Language>& languages) {
  tpk::Header header;
  header.kind = languages.empty() ? 0 : 1;
  for (const Language& l : languages) {
    header.languages.push_back({tpk::utf8_to_utf16(l.code), tpk::utf8_to_utf16(l.product),
                                tpk::utf8_to_utf16(l.vendor), tpk::utf8_to_utf16(l.document)});
  }
  std::vector<tpk::SourceFile> files;
  std::vector<std::string> warnings;
  std::string error;
  ASSERT_TRUE(tpk::collect_tree(m_src, "", files, warnings, error)) << error;
  ASSERT_TRUE(tpk::write_package(m_kit + "/plom8.tpk", header, files, 6, nullptr, error)) << error;
}

void WizardTest::homeFile(const std::string& relative, const std::string& bytes) {
  put_file(m_home + "/" + relative, bytes);
}

CInstallerDlg& WizardTest::construct(const std::u16string& language, bool silent) {
  m_dialog.reset();
  m_dialog = std::make_unique<CInstallerDlg>(1, m_argv, silent, "Test installer", language, true);
  return *m_dialog;
}

CInstallerDlg& WizardTest::start(const std::u16string& language, bool silent) {
  CInstallerDlg& dialog = construct(language, silent);
  EXPECT_TRUE(dialog.OnInitDialog()) << "package not loaded";
  dialog.showMainWindow();
  dialog.showWelcomePage();
  gtktest::Pump();
  return dialog;
}

void WizardTest::toDirectoryPage(const std::string& path) {
  CInstallerDlg& dialog = *m_dialog;
  CLICK(dialog.widgets().next);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepDirectory);
  gtk_entry_set_text(GTK_ENTRY(dialog.dirSelectPage()->entry()), path.c_str());
}

std::string WizardTest::opened() const {
  const std::string log = m_root / "opened.log";
  return testsupport::exists(log) ? testsupport::read_file(log) : "";
}

std::vector<std::string> WizardTest::tmpEntries() const {
  std::vector<std::string> names;
  if (DIR* dir = opendir(m_tmp.c_str())) {
    while (dirent* e = readdir(dir)) {
      std::string name = e->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
  }
  return names;
}

}  // namespace uitest
