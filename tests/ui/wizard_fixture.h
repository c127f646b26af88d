// A private world for one wizard: HOME, TMPDIR, a kit folder as working
// directory (useCwd), an xdg-open stub recording its arguments, and scripted
// answers for message boxes.
#pragma once

#include <gdk/gdkkeysyms.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <memory>

#include "compat/text.h"
#include "support/slow_run.h"
#include "support/test_support.h"
#include "texts/resources.h"
#include "tools/tpk_writer.h"
#include "ui/installer_dlg.h"
#include "ui/message_box.h"
#include "ui/wizard_pages.h"

// In-process GTK 2: the test binary runs with the GDK lock held (test timers
// are added with gdk_threads_add_timeout so they hold it too), on the X
// display of tests/with-xvfb.sh.
namespace uitest {

// While set, a run's finishing pause goes on: the worker is still busy after
// the success page, as in the program's one-second pause. TearDown ends it.
extern std::atomic<bool> g_holdFinishingPause;

// Runs every pending GTK event, idle and redraw, without blocking.
inline void Pump() {
  gdk_flush();
  while (gtk_events_pending()) gtk_main_iteration();
}

// Queues an event for the window (a key press, or the window manager's close
// request); Pump or a wizard loop delivers it.
inline void Post(GtkWidget* window, GdkEventType type, guint keyval = 0) {
  GdkEvent* event = gdk_event_new(type);
  event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
  event->any.send_event = TRUE;
  if (type == GDK_KEY_PRESS) event->key.keyval = keyval;
  gdk_event_put(event);
  gdk_event_free(event);
}

// Clicks a button only if a user could (on screen, sensitive): fails the test otherwise.
#define CLICK(w)                                                               \
  do {                                                                         \
    ASSERT_TRUE(gtk_widget_get_mapped(w) && gtk_widget_is_sensitive(w)) << #w; \
    gtk_button_clicked(GTK_BUTTON(w));                                         \
    ::uitest::Pump();                                                          \
  } while (0)

// UTF-8 text of a resource key in the current language.
inline std::string text(const char* key) { return narrow_lib(LoadResString(key)); }
inline std::string label(GtkWidget* w) { return gtk_label_get_text(GTK_LABEL(w)); }
// A message box as the tests see it: "<kind> <title>: <text>".
inline std::string box(GtkMessageType type, const std::string& body,
                       const std::string& title = "Test installer") {
  static const char* const kinds[] = {"info", "warning", "question", "error", "other"};
  return std::string(kinds[type]) + " " + title + ": " + body;
}

class WizardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const std::string& dir : {m_home + "/.local/share", m_tmp, m_kit})
      ASSERT_EQ(g_mkdir_with_parents(dir.c_str(), 0700), 0);
    testsupport::write_file(m_root / "bin/xdg-open",
                            "#!/bin/sh\nprintf '%s\\n' \"$@\" >> '" + m_opened + "'\n");
    std::filesystem::permissions(m_root / "bin/xdg-open", std::filesystem::perms::owner_all);
    std::filesystem::current_path(m_kit);
    source("trade/retail/template.xml", "<template id=\"retail\"/>\n");
    source("trade/retail/settings.ini", "[Company]\nCurrency=EUR\n");
    source(kDoc, "<html>description</html>\n");
    set_message_box_hook([this](GtkMessageType type, GtkButtonsType, const std::string& title,
                                const std::string& body) {
      m_boxes.push_back(box(type, body, title));
      EXPECT_FALSE(m_answers.empty()) << "unexpected message box: " << body;
      if (m_answers.empty()) return int(GTK_RESPONSE_DELETE_EVENT);
      const int answer = m_answers.front();
      m_answers.pop_front();
      return answer;
    });
  }
  void TearDown() override {
    if (m_tick) g_source_remove(m_tick);
    g_holdFinishingPause = false;
    m_dialog.reset();
    uitest::Pump();
    set_message_box_hook(nullptr);
    set_resource_lang(kLangEn);
    EXPECT_TRUE(m_answers.empty()) << m_answers.size() << " scripted answer(s) not used";
    std::filesystem::current_path(m_oldCwd);
  }

  void source(const std::string& name, const std::string& bytes) {
    testsupport::write_file(m_src + "/" + name, bytes);
  }
  // Packs the sources into kit/plom8.tpk with records {code, product, vendor,
  // document} (none: a header without language texts).
  void buildPackage(const std::vector<std::vector<std::string>>& languages) {
    tpk::Header header;
    header.kind = languages.empty() ? 0 : 1;
    for (const auto& l : languages)
      header.languages.push_back({tpk::utf8_to_utf16(l[0]), tpk::utf8_to_utf16(l[1]),
                                  tpk::utf8_to_utf16(l[2]), tpk::utf8_to_utf16(l[3])});
    std::vector<tpk::SourceFile> files;
    std::vector<std::string> warnings;
    std::string error;
    ASSERT_TRUE(tpk::collect_tree(m_src, "", files, warnings, error)) << error;
    ASSERT_TRUE(tpk::write_package(m_kit + "/plom8.tpk", header, files, 6, nullptr, error))
        << error;
  }
  // A dialog on the kit; unless silent, with its window and welcome page up.
  CInstallerDlg& start(const std::u16string& language = u"en", bool silent = false) {
    m_dialog.reset();  // the old window goes before the new one comes
    m_dialog.reset(new CInstallerDlg(1, m_argv, silent, "Test installer", language, true));
    if (silent) return *m_dialog;
    EXPECT_TRUE(m_dialog->OnInitDialog());
    m_dialog->showMainWindow();
    m_dialog->showWelcomePage();
    uitest::Pump();
    return *m_dialog;
  }
  // From the welcome page to the directory page, then types `path`.
  void toDirectoryPage(const std::string& path) {
    CLICK(m_dialog->widgets().next);
    ASSERT_EQ(m_dialog->step(), CInstallerDlg::kStepDirectory);
    gtk_entry_set_text(GTK_ENTRY(m_dialog->dirSelectPage()->entry()), path.c_str());
  }
  // Text of the error or cancelled page when one is shown.
  std::string finalText() const {
    MessagePage* page = m_dialog->finalMessagePage();
    return page ? label(page->label()) : "(no final page)";
  }
  // Calls tick() every 10 ms from the main loop (also inside the wizard's
  // own loops and modal dialogs) until it returns false.
  void everyTick(std::function<bool()> tick) {
    if (m_tick) g_source_remove(m_tick);
    m_tickFn = std::move(tick);
    m_tick = gdk_threads_add_timeout(
        10,
        [](gpointer self) -> gboolean {
          auto* test = static_cast<WizardTest*>(self);
          return test->m_tickFn() ? TRUE : (test->m_tick = 0, FALSE);
        },
        this);
  }
  // Answers real modal dialogs (gtk_dialog_run): answer(dialog) returns the
  // response, or kAskAgain to be asked again on the next tick.
  static constexpr int kAskAgain = 1000;
  void answerDialogs(std::function<int(GtkDialog*)> answer) {
    everyTick([answer] {
      GList* tops = gtk_window_list_toplevels();
      for (GList* l = tops; l; l = l->next) {
        if (!GTK_IS_DIALOG(l->data) || !gtk_widget_get_mapped(GTK_WIDGET(l->data))) continue;
        const int response = answer(GTK_DIALOG(l->data));
        if (response != kAskAgain) gtk_dialog_response(GTK_DIALOG(l->data), response);
        break;
      }
      g_list_free(tops);
      return true;
    });
  }

  static constexpr const char* kDoc = "docs/read me $HOME \"1\".html";  // one of the sources
  testsupport::TempDir m_root;
  const std::string m_home = m_root / "home", m_tmp = m_root / "tmp", m_kit = m_root / "kit",
                    m_src = m_root / "src", m_opened = m_root / "opened.log",
                    m_dest = m_root / "dest", m_cfg = m_home + "/.Orvo/zelbrun/zelbrun.cfg";
  testsupport::ScopedEnv m_homeEnv{"HOME", m_home}, m_tmpEnv{"TMPDIR", m_tmp},
      m_pathEnv{"PATH", m_root / "bin:" + getenv("PATH")};
  const std::filesystem::path m_oldCwd = std::filesystem::current_path();
  std::unique_ptr<CInstallerDlg> m_dialog;
  std::vector<std::string> m_boxes;
  std::deque<int> m_answers;
  guint m_tick = 0;
  std::function<bool()> m_tickFn;
  char m_arg0[10] = "installer";
  char* m_argv[2] = {m_arg0, nullptr};
};

}  // namespace uitest
