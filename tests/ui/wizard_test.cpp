// The wizard in-process: message boxes, and the flow from welcome to finish
// against real packages in a private world.
#include "wizard_fixture.h"

namespace uitest {

using testsupport::read_file;
using testsupport::snapshot;

using Flow = WizardTest;

// The box's place above the wizard is checked through the accessibility tree.
TEST_F(Flow, RealMessageBoxShowsTheTextAsItIsAndReturnMeansNo) {
  set_message_box_hook(nullptr);
  buildPackage({{"en", "P", "V", ""}});
  CInstallerDlg& dialog = start();
  std::string seen;
  answerDialogs([&](GtkDialog* d) {
    gchar* body = nullptr;
    g_object_get(d, "text", &body, nullptr);
    GtkWidget* byDefault = gtk_window_get_default_widget(GTK_WINDOW(d));
    seen = std::string(body) + "|" + gtk_window_get_title(GTK_WINDOW(d)) +
           (gtk_window_get_modal(GTK_WINDOW(d)) ? "|modal" : "") +
           (byDefault && gtk_dialog_get_response_for_widget(d, byDefault) == GTK_RESPONSE_NO
                ? "|No by default"
                : "");
    g_free(body);
    return int(GTK_RESPONSE_YES);
  });
  EXPECT_EQ(messageBox(&dialog, u"Really? 100% %s %d", kMessageBoxQuestion), kAnswerYes);
  EXPECT_EQ(seen, "Really? 100% %s %d|Test installer|modal|No by default");
}

TEST_F(Flow, WalkThroughInstallsRecordsTheDirectoryAndOpensTheDescription) {
  buildPackage({{"ru", "Шаблоны", "Поставщик", "/docs/missing.html"},
                {"en", "Demo Templates", "Demo Vendor", "\\docs\\read me $HOME \"1\".html"}});
  const std::string old = m_root / "old";
  ASSERT_EQ(g_mkdir_with_parents(old.c_str(), 0700), 0);
  testsupport::write_file(m_cfg, "ConfigurationTemplatesLocation=" + old + "\n");
  testsupport::SlowRun slow(150);
  g_holdFinishingPause = true;
  CInstallerDlg& dialog = start();
  const auto w = dialog.widgets();
  CLICK(w.next);
  CLICK(w.back);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepWelcome);
  EXPECT_FALSE(gtk_widget_is_sensitive(w.back));
  CLICK(w.next);
  GtkEntry* entry = GTK_ENTRY(dialog.dirSelectPage()->entry());
  EXPECT_EQ(gtk_entry_get_text(entry), old) << "the starter's directory is proposed";
  // Browse: the real folder chooser; what it shows once accepted goes into
  // the entry (it loads folders asynchronously).
  answerDialogs([&](GtkDialog* d) {
    GtkFileChooser* fc = GTK_FILE_CHOOSER(d);
    gchar* now = gtk_file_chooser_get_filename(fc);
    const bool ready = now && m_src == now;
    g_free(now);
    if (!ready) gtk_file_chooser_set_filename(fc, m_src.c_str());
    return ready ? int(GTK_RESPONSE_ACCEPT) : kAskAgain;
  });
  CLICK(dialog.dirSelectPage()->browseButton());
  EXPECT_EQ(gtk_entry_get_text(entry), m_src);
  // An empty or relative path is refused; Escape asks, and No or a closed
  // box keep the wizard.
  const std::string refusal = box(GTK_MESSAGE_OTHER, text("IDS_SETUP_EMPTYTARGET"));
  for (const char* typed : {"", "templates", "C:\\dir\\sub", "~user/x", ".~/x"}) {
    gtk_entry_set_text(entry, typed);
    m_boxes.clear();
    m_answers = {GTK_RESPONSE_OK};
    CLICK(w.next);
    EXPECT_EQ(m_boxes, std::vector<std::string>{refusal}) << typed;
    ASSERT_EQ(dialog.step(), CInstallerDlg::kStepDirectory) << typed;
  }
  m_boxes.clear();
  m_answers = {GTK_RESPONSE_NO, GTK_RESPONSE_DELETE_EVENT};
  uitest::Post(w.window, GDK_KEY_PRESS, GDK_Escape);
  uitest::Post(w.window, GDK_KEY_PRESS, GDK_Escape);
  uitest::Pump();
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepDirectory);
  const std::string question = box(GTK_MESSAGE_QUESTION, text("IDS_ACCEPT_CANCEL"));
  EXPECT_EQ(m_boxes, (std::vector<std::string>{question, question}));

  // "~" is the home folder, "\" is read as "/"; the absolute folder is used.
  gtk_entry_set_text(entry, "~/my templates\\sub");
  const std::string target = m_home + "/my templates/sub";
  // Each published state is held 150 ms with nothing else going on: only the
  // worker's wake-up can get the loop to show it.
  std::vector<double> shown;
  everyTick([&] {
    if (!dialog.progressPage()) return true;
    g_signal_connect(dialog.progressPage()->bar(), "notify::fraction",
                     G_CALLBACK(+[](GObject* bar, GParamSpec*, gpointer v) {
                       const double f = gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(bar));
                       if (f > 0) static_cast<std::vector<double>*>(v)->push_back(f);
                     }),
                     &shown);
    return false;
  });
  CLICK(w.next);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  // The success page is up and the directory recorded as soon as the last
  // file is in place; the worker's finishing pause is still going on.
  EXPECT_TRUE(dialog.workerRunning());
  EXPECT_EQ(read_file(m_cfg), "ConfigurationTemplatesLocation=" + target +
                                  "\nConfigurationTemplatesLocation=" + old + "\n");
  EXPECT_EQ(label(dialog.successPage()->label()), text("IDS_SUCCESS_FINISH") + "\n\n" + target);
  EXPECT_EQ(shown, (std::vector<double>{0.33, 0.66, 1.0}));
  ProgressPage& progress = *dialog.progressPage();
  EXPECT_EQ(label(progress.statusLabel()), text("IDS_INSTALL_FINISH"));
  progress.setProgress(99);
  EXPECT_EQ(label(progress.statusLabel()), text("IDS_PROGRESS_START")) << "finished only at 100";
  EXPECT_FALSE(gtk_widget_is_sensitive(w.cancel));
  // Finish, with the check box as it came (checked), closes the window at
  // once; the program waits for the worker's pause before it ends.
  CLICK(w.next);
  EXPECT_FALSE(gtk_widget_get_visible(w.window));
  EXPECT_EQ(read_file(m_opened), target + "/" + kDoc + "\n");
}

TEST_F(Flow, DirectoryWithALatin1NameIsShownReadablyAndUsedByteForByte) {
  buildPackage({{"en", "P", "V", ""}});
  const std::string latin1 = m_root / "caf\xE9", shown = m_root / "caf\xEF\xBF\xBD";  // U+FFFD
  ASSERT_EQ(g_mkdir_with_parents(latin1.c_str(), 0700), 0);
  testsupport::write_file(m_cfg, "ConfigurationTemplatesLocation=" + latin1 + "\n");
  g_holdFinishingPause = true;
  CInstallerDlg& dialog = start();
  CLICK(dialog.widgets().next);
  DirSelectPage& page = *dialog.dirSelectPage();
  GtkEntry* entry = GTK_ENTRY(page.entry());
  EXPECT_EQ(gtk_entry_get_text(entry), shown);
  // A folder chosen with the browse button is shown and kept the same way.
  set_folder_chooser_hook([&](std::string& folder) {
    folder = m_root / "\xC0t\xE9";
    return true;
  });
  CLICK(page.browseButton());
  set_folder_chooser_hook(nullptr);
  EXPECT_EQ(gtk_entry_get_text(entry), m_root / "\xEF\xBF\xBDt\xEF\xBF\xBD");
  EXPECT_EQ(narrow_lib(page.getPath()), m_root / "\xC0t\xE9");
  // An edited path is taken as typed, the replacement character included.
  gtk_entry_set_text(entry, (shown + "/sub").c_str());
  EXPECT_EQ(narrow_lib(page.getPath()), shown + "/sub");
  // Back and Next again propose the listed directory, which is taken as it is.
  CLICK(dialog.widgets().back);
  CLICK(dialog.widgets().next);
  EXPECT_EQ(gtk_entry_get_text(entry), shown);
  CLICK(dialog.widgets().next);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_EQ(read_file(latin1 + "/trade/retail/template.xml"), "<template id=\"retail\"/>\n");
  EXPECT_FALSE(testsupport::exists(m_root / "caf")) << "nothing went to the cut name";
  EXPECT_EQ(read_file(m_cfg), "ConfigurationTemplatesLocation=" + latin1 + "\n");
  // The success page names the folder readably. Its close button closes it
  // at once, the worker's finishing pause going on.
  EXPECT_EQ(label(dialog.successPage()->label()), text("IDS_SUCCESS_FINISH") + "\n\n" + shown);
  uitest::Post(dialog.widgets().window, GDK_DELETE);
  uitest::Pump();
  EXPECT_TRUE(dialog.workerRunning());
  EXPECT_FALSE(gtk_widget_get_visible(dialog.widgets().window));
}

TEST_F(Flow, CancelDuringInstallationAsksFromEveryWayOutAndRollsBack) {
  for (int i = 0; i < 30; ++i) source("many/file" + std::to_string(i) + ".txt", "new contents\n");
  buildPackage({{"en", "P", "V", std::string("/") + kDoc}});
  testsupport::write_file(m_dest + "/" + kDoc, "mine\n");
  const testsupport::Snapshot before = snapshot(m_dest);
  testsupport::SlowRun slow(40);
  CInstallerDlg& dialog = start();
  toDirectoryPage(m_dest);
  // Closing the window and Cancel answered No, then Escape answered Yes.
  // Once the run stops, Escape and the close button ask nothing more: the
  // window closes when the run has rolled back.
  m_answers = {GTK_RESPONSE_NO, GTK_RESPONSE_NO, GTK_RESPONSE_YES};
  int actions = 0;
  everyTick([&] {
    const auto w = dialog.widgets();
    if (dialog.step() != CInstallerDlg::kStepProgress ||
        gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(dialog.progressPage()->bar())) <= 0)
      return true;
    if (actions == 0) uitest::Post(w.window, GDK_DELETE);
    if (actions == 1) gtk_button_clicked(GTK_BUTTON(w.cancel));
    if (actions == 2) {
      uitest::Post(w.window, GDK_KEY_PRESS, GDK_Escape);
      uitest::Post(w.window, GDK_KEY_PRESS, GDK_Escape);
      uitest::Post(w.window, GDK_DELETE);
    }
    return ++actions < 3;
  });
  CLICK(dialog.widgets().next);  // returns once the run has rolled back
  EXPECT_EQ(m_boxes,
            std::vector<std::string>(3, box(GTK_MESSAGE_QUESTION, text("IDS_ACCEPT_CANCEL"))));
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepError) << "a final page, no error box";
  EXPECT_EQ(dialog.widgets().window, nullptr);
  EXPECT_TRUE(snapshot(m_dest) == before) << "the target is as it was";
  EXPECT_EQ(read_file(m_opened), "") << "the description is opened only after success";
  m_dialog.reset();
  EXPECT_TRUE(snapshot(m_tmp).empty()) << "the working file goes with the dialog";
}

TEST_F(Flow, FailedRunShowsTheErrorThenTheErrorPage) {
  buildPackage({{"en", "P", "V", ""}});
  // One of the package's files would land where a folder stands.
  ASSERT_EQ(g_mkdir_with_parents((m_dest + "/trade/retail/settings.ini/in").c_str(), 0700), 0);
  CInstallerDlg& dialog = start();
  toDirectoryPage(m_dest);
  m_answers = {GTK_RESPONSE_OK};
  CLICK(dialog.widgets().next);
  // The interface text, then where and why.
  EXPECT_EQ(m_boxes,
            std::vector<std::string>{
                box(GTK_MESSAGE_ERROR, text("IDS_INSTALL_ERROR") + "\ncannot move aside " + m_dest +
                                           "/trade/retail/settings.ini: " + g_strerror(EISDIR))});
  EXPECT_EQ(finalText(), text("IDS_ERROR_FINISH"));
  // Escape on a final page still asks; Yes closes the window.
  m_answers = {GTK_RESPONSE_YES};
  uitest::Post(dialog.widgets().window, GDK_KEY_PRESS, GDK_Escape);
  uitest::Pump();
  EXPECT_EQ(dialog.widgets().window, nullptr);
}

TEST_F(Flow, StarterWriteFailureIsShownAndTheWizardGoesOn) {
  buildPackage({{"en", "P", "V", std::string("/") + kDoc}});
  ASSERT_EQ(g_mkdir_with_parents(m_cfg.c_str(), 0700), 0);  // a folder in the file's place
  g_holdFinishingPause = true;
  CInstallerDlg& dialog = start();
  toDirectoryPage(m_dest);
  m_answers = {GTK_RESPONSE_OK};
  CLICK(dialog.widgets().next);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_EQ(m_boxes, std::vector<std::string>{
                         box(GTK_MESSAGE_ERROR, text("IDS_INSTALL_ERROR") + "\ncannot write " +
                                                    m_cfg + ": " + g_strerror(EISDIR))});
  EXPECT_TRUE(testsupport::exists(m_dest + "/trade/retail/template.xml"));
  // Finish with the check box cleared opens nothing.
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(dialog.successPage()->checkBox()), FALSE);
  CLICK(dialog.widgets().next);
  EXPECT_FALSE(gtk_widget_get_visible(dialog.widgets().window));
  EXPECT_EQ(read_file(m_opened), "");
}

TEST_F(Flow, SilentRunInstallsWithoutABoxOrRefusesWithOne) {
  // The box: the interface text, and below it what failed where, and why.
  const auto refused = [&](const char* key, const std::string& cause,
                           const std::string& finalPage) {
    const testsupport::Snapshot kitBefore = snapshot(m_kit);
    m_boxes.clear();
    m_answers = {GTK_RESPONSE_OK};
    start(u"en", true).DoModal();
    EXPECT_EQ(m_boxes, std::vector<std::string>{box(GTK_MESSAGE_ERROR, text(key) + cause)});
    EXPECT_EQ(finalText(), finalPage);
    EXPECT_TRUE(snapshot(m_kit) == kitBefore) << key << ": nothing written in the kit";
  };
  const std::string package = m_kit + "/plom8.tpk";
  testsupport::write_file(package, std::string(10, '\0'));
  refused("IDS_ERROR_DAMAGEDSOURCE",
          "\ncannot unpack " + package + ": not a valid compressed stream", "(no final page)");
  buildPackage({{"en", "P", "V", std::string("/") + kDoc}});
  testsupport::write_file(m_cfg, "ConfigurationTemplatesLocation=http://example.org/templates\n");
  refused("IDS_SETUP_EMPTYTARGET", "", text("IDS_ERROR_FINISH"));
  // A usable target: installed with no box, and the description is not opened.
  testsupport::write_file(m_cfg, "ConfigurationTemplatesLocation=" + m_dest + "\n");
  m_boxes.clear();
  start(u"en", true).DoModal();
  EXPECT_EQ(m_dialog->step(), CInstallerDlg::kStepSuccess);
  EXPECT_TRUE(m_boxes.empty());
  EXPECT_TRUE(testsupport::exists(m_dest + "/trade/retail/template.xml"));
  EXPECT_FALSE(testsupport::exists(m_opened));
}

TEST_F(Flow, WelcomeTextAndDescriptionFollowTheInterfaceLanguage) {
  buildPackage({{"EN", "Prod", "Vend", "/en.html"},
                {"ru", "Продукт", "", ""},
                {"de", "", "Anbieter", "\\de\\x.html"}});
  const std::string product = text("IDS_DEFPRODUCT"), vendor = text("IDS_DEFPROVIDER");
  struct Case {
    std::u16string language;
    std::string product, vendor, document;
  } cases[] = {
      {u"en", "Prod", "Vend", "/en.html"},         // code differs only in case
      {u"ru", "Продукт", vendor, "/en.html"},      // empty document: the English one
      {u"de", product, "Anbieter", "/de/x.html"},  // "\" read as "/"
      {u"kk", product, vendor, "/en.html"},        // no record at all
  };
  for (const Case& c : cases) {
    CInstallerDlg& dialog = start(c.language);
    EXPECT_EQ(label(dialog.welcomePage()->label()),
              text("IDS_WELCOME_TITLE") + " " + c.product + " (" + c.vendor + ").");
    EXPECT_EQ(narrow_lib(dialog.documentPath()), narrow_lib(dialog.targetDirectory()) + c.document)
        << narrow_lib(c.language);
  }
}

}  // namespace uitest
