// The wizard in-process: message boxes, pages, and the flow from welcome to
// finish against real packages in a private world.
#include <gdk/gdkkeysyms.h>
#include <unistd.h>

#include "app/resources.h"
#include "compat/text.h"
#include "gtk_test_support.h"
#include "support/test_support.h"
#include "ui/message_box.h"
#include "ui/wizard_pages.h"
#include "wizard_fixture.h"

namespace {

using testsupport::exists;
using testsupport::read_file;
using testsupport::snapshot;
using uitest::text;

class TitledOwner : public CWnd {
 public:
  std::u16string getTitle() const override { return u"Установка"; }
};

TEST(MessageBox, FlagsChooseKindAndButtonsAndResponsesMapToAnswers) {
  struct Case {
    unsigned flags;
    GtkMessageType type;
    GtkButtonsType buttons;
  } cases[] = {
      {0x01000001, GTK_MESSAGE_ERROR, GTK_BUTTONS_OK},
      {0x02000002, GTK_MESSAGE_QUESTION, GTK_BUTTONS_YES_NO},
      {1, GTK_MESSAGE_OTHER, GTK_BUTTONS_OK},
      {0x01000002, GTK_MESSAGE_ERROR, GTK_BUTTONS_YES_NO},
      {0x02000000, GTK_MESSAGE_QUESTION, GTK_BUTTONS_OK},
      {0x03000002, GTK_MESSAGE_OTHER, GTK_BUTTONS_YES_NO},
      {0x00000102, GTK_MESSAGE_OTHER, GTK_BUTTONS_YES_NO},
      {0x00000201, GTK_MESSAGE_OTHER, GTK_BUTTONS_OK},
  };
  struct Answer {
    int response;
    unsigned answer;
  } answers[] = {
      {GTK_RESPONSE_YES, 1},    {GTK_RESPONSE_NO, 2},    {GTK_RESPONSE_OK, 3},
      {GTK_RESPONSE_CANCEL, 0}, {GTK_RESPONSE_CLOSE, 0}, {GTK_RESPONSE_DELETE_EVENT, 0},
      {GTK_RESPONSE_ACCEPT, 0}, {GTK_RESPONSE_NONE, 0},
  };
  TitledOwner owner;
  for (const Case& c : cases) {
    for (const Answer& a : answers) {
      GtkMessageType seenType = GTK_MESSAGE_INFO;
      GtkButtonsType seenButtons = GTK_BUTTONS_NONE;
      std::string seenTitle, seenText;
      set_message_box_hook([&](GtkMessageType t, GtkButtonsType b, const std::string& title,
                               const std::string& body) {
        seenType = t;
        seenButtons = b;
        seenTitle = title;
        seenText = body;
        return a.response;
      });
      EXPECT_EQ(messageBox(&owner, u"100% готово %s", c.flags), a.answer)
          << std::hex << c.flags << " response " << std::dec << a.response;
      EXPECT_EQ(seenType, c.type) << std::hex << c.flags;
      EXPECT_EQ(seenButtons, c.buttons) << std::hex << c.flags;
      EXPECT_EQ(seenTitle, "Установка");
      EXPECT_EQ(seenText, "100% готово %s");
    }
  }
  std::string title = "unset";
  set_message_box_hook(
      [&](GtkMessageType, GtkButtonsType, const std::string& t, const std::string&) {
        title = t;
        return int(GTK_RESPONSE_OK);
      });
  messageBox(nullptr, u"x", 1);
  EXPECT_EQ(title, "") << "a box without owner has no title of ours";
  set_message_box_hook(nullptr);
}

TEST(MessageBox, RealBoxShowsTheTextAsItIsAndAnswers) {
  TitledOwner owner;
  struct Case {
    int response;
    unsigned answer;
  } cases[] = {{GTK_RESPONSE_YES, 1}, {GTK_RESPONSE_NO, 2}, {GTK_RESPONSE_DELETE_EVENT, 0}};
  for (const Case& c : cases) {
    std::string seenText, seenTitle;
    bool modal = false;
    gtktest::DialogResponder responder([&](GtkDialog* d) {
      seenText = gtktest::MessageText(d);
      seenTitle = gtk_window_get_title(GTK_WINDOW(d)) ? gtk_window_get_title(GTK_WINDOW(d)) : "";
      modal = gtk_window_get_modal(GTK_WINDOW(d));
      return c.response;
    });
    EXPECT_EQ(messageBox(&owner, u"Really? 100% %s %d", kMessageBoxQuestion), c.answer);
    EXPECT_EQ(responder.answered(), 1);
    EXPECT_EQ(seenText, "Really? 100% %s %d");
    EXPECT_EQ(seenTitle, "Установка");
    EXPECT_TRUE(modal);
  }
}

// A window with a page area to put pages into.
struct PageArea {
  PageArea() {
    window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    fixed = gtk_fixed_new();
    gtk_container_add(GTK_CONTAINER(window), fixed);
    image = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 158, 286);
    gtk_widget_show_all(window);
  }
  ~PageArea() {
    gtk_widget_destroy(window);
    g_object_unref(image);
  }
  GtkWidget* window;
  GtkWidget* fixed;
  GdkPixbuf* image;
};

TEST(Pages, ProgressShowsFinishedTextOnlyAtExactlyHundred) {
  PageArea area;
  ProgressPage page(area.fixed, 480);
  EXPECT_EQ(gtktest::LabelText(page.statusLabel()), text("IDS_PROGRESS_START"));
  struct Case {
    int percent;
    const char* key;
  } cases[] = {{0, "IDS_PROGRESS_START"},  {1, "IDS_PROGRESS_START"},   {37, "IDS_PROGRESS_START"},
               {99, "IDS_PROGRESS_START"}, {100, "IDS_INSTALL_FINISH"}, {5, "IDS_PROGRESS_START"}};
  for (const Case& c : cases) {
    page.setProgress(c.percent);
    EXPECT_EQ(gtktest::LabelText(page.statusLabel()), text(c.key)) << c.percent;
    EXPECT_DOUBLE_EQ(gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(page.bar())),
                     c.percent / 100.0);
  }
  EXPECT_EQ(page.widgets().size(), 2u);
}

TEST(Pages, DirectoryEntryAndFolderChooser) {
  PageArea area;
  DirSelectPage page(area.fixed, area.image);
  for (GtkWidget* w : page.widgets()) gtk_widget_show(w);
  EXPECT_EQ(page.getPath(), u"");
  page.setPath(u"/srv/Шаблоны/ტესტი");
  EXPECT_EQ(page.getPath(), u"/srv/Шаблоны/ტესტი");

  int calls = 0;
  bool choose = false;
  set_folder_chooser_hook([&](std::string& folder) {
    ++calls;
    if (choose) folder = "/chosen/папка";
    return choose;
  });
  CLICK(page.browseButton());
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(page.getPath(), u"/srv/Шаблоны/ტესტი") << "a cancelled chooser changes nothing";
  choose = true;
  CLICK(page.browseButton());
  EXPECT_EQ(page.getPath(), u"/chosen/папка");
  set_folder_chooser_hook(nullptr);
}

TEST(Pages, RealFolderChooserPicksAFolderAndCancelKeepsTheEntry) {
  testsupport::TempDir dir;
  PageArea area;
  DirSelectPage page(area.fixed, area.image);
  page.setPath(u"/before");
  {
    gtktest::DialogResponder cancel([](GtkDialog* d) {
      EXPECT_EQ(gtk_file_chooser_get_action(GTK_FILE_CHOOSER(d)),
                GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER);
      return int(GTK_RESPONSE_CANCEL);
    });
    page.showDirDialog();
  }
  EXPECT_EQ(page.getPath(), u"/before");
  gtktest::DialogResponder accept([&](GtkDialog* d) {
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(d);
    gchar* now = gtk_file_chooser_get_filename(chooser);
    const bool ready = now && dir.path() == now;
    g_free(now);
    if (ready) return int(GTK_RESPONSE_ACCEPT);
    gtk_file_chooser_set_filename(chooser, dir.path().c_str());
    return gtktest::DialogResponder::kAskAgain;
  });
  page.showDirDialog();
  EXPECT_EQ(narrow_lib(page.getPath()), dir.path());
}

// ---------------------------------------------------------------- the flow

class Flow : public uitest::WizardTest {
 protected:
  void SetUp() override {
    uitest::WizardTest::SetUp();
    source("trade/retail/template.xml", "<template id=\"retail\"/>\n");
    source("trade/retail/settings.ini", "[Company]\nCurrency=EUR\n");
    source("docs/read me $HOME \"1\".html", "<html>description</html>\n");
  }
  static std::string cfgPath() { return ".Orvo/zelbrun/zelbrun.cfg"; }
};

TEST_F(Flow, WalkThroughInstallsRecordsTheDirectoryAndOpensTheDescription) {
  buildPackage({{"ru", "Шаблоны", "Поставщик", "/docs/missing.html"},
                {"en", "Demo Templates", "Demo Vendor", "\\docs\\read me $HOME \"1\".html"}});
  const std::string old = m_root / "old";
  ASSERT_EQ(std::system(("mkdir -p '" + old + "'").c_str()), 0);
  homeFile(cfgPath(), "ConfigurationTemplatesLocation=" + old + "\n");

  CInstallerDlg& dialog = start();
  const auto w = dialog.widgets();
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepWelcome);
  EXPECT_EQ(gtktest::LabelText(dialog.welcomePage()->label()),
            text("IDS_WELCOME_TITLE") + " Demo Templates (Demo Vendor).");
  EXPECT_FALSE(gtk_widget_is_sensitive(w.back));
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(w.window)), "Test installer");

  CLICK(w.next);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepDirectory);
  EXPECT_EQ(narrow_lib(dialog.dirSelectPage()->getPath()), old)
      << "the starter's directory is proposed";

  // Backslashes are read as separators.
  std::string typed = m_root / "dest\\sub";
  gtk_entry_set_text(GTK_ENTRY(dialog.dirSelectPage()->entry()), typed.c_str());
  CLICK(w.next);
  const std::string dest = m_root / "dest/sub";
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_TRUE(m_boxes.empty());
  EXPECT_EQ(read_file(dest + "/trade/retail/settings.ini"), "[Company]\nCurrency=EUR\n");
  EXPECT_DOUBLE_EQ(gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(dialog.progressPage()->bar())),
                   1.0);
  EXPECT_EQ(
      read_file(m_home + "/" + cfgPath()),
      "ConfigurationTemplatesLocation=" + dest + "\nConfigurationTemplatesLocation=" + old + "\n");

  // The final page's buttons, and the check box that starts checked.
  EXPECT_FALSE(gtk_widget_get_visible(w.back));
  EXPECT_FALSE(gtk_widget_is_sensitive(w.cancel));
  EXPECT_EQ(gtk_button_get_label(GTK_BUTTON(w.next)), text("IDS_WIZARD_FINISH"));
  EXPECT_TRUE(gtk_widget_has_default(w.next));
  EXPECT_TRUE(dialog.successPage()->isShowReadmeChecked());

  CLICK(w.next);  // Finish
  EXPECT_EQ(dialog.widgets().window, nullptr) << "Finish closes the window";
  EXPECT_EQ(opened(), dest + "/docs/read me $HOME \"1\".html\n");
}

TEST_F(Flow, FinishWithTheBoxClearedOpensNothing) {
  buildPackage({{"en", "P", "V", "/docs/read me $HOME \"1\".html"}});
  CInstallerDlg& dialog = start();
  toDirectoryPage(m_root / "dest");
  CLICK(dialog.widgets().next);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(dialog.successPage()->checkBox()), FALSE);
  CLICK(dialog.widgets().next);
  EXPECT_EQ(dialog.widgets().window, nullptr);
  EXPECT_EQ(opened(), "");
  EXPECT_FALSE(exists(m_home + "/" + cfgPath())) << "no starter configuration: nothing is written";
}

TEST_F(Flow, BackEmptyPathAndEscapeAnsweredNoThenYes) {
  buildPackage({});
  CInstallerDlg& dialog = start();
  const auto w = dialog.widgets();
  const std::string proposal = narrow_lib(dialog.targetDirectory());
  EXPECT_EQ(gtktest::LabelText(dialog.welcomePage()->label()), text("IDS_WELCOME_TITLE") + " " +
                                                                   text("IDS_DEFPRODUCT") + " (" +
                                                                   text("IDS_DEFPROVIDER") + ").");

  CLICK(w.next);
  CLICK(w.back);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepWelcome);
  EXPECT_FALSE(gtk_widget_is_sensitive(w.back));

  toDirectoryPage("");
  m_answers = {GTK_RESPONSE_OK};
  CLICK(w.next);
  ASSERT_EQ(m_boxes.size(), 1u);
  EXPECT_EQ(m_boxes[0].type, GTK_MESSAGE_OTHER);
  EXPECT_EQ(m_boxes[0].buttons, GTK_BUTTONS_OK);
  EXPECT_EQ(m_boxes[0].text, text("IDS_SETUP_EMPTYTARGET"));
  EXPECT_EQ(m_boxes[0].title, "Test installer");
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepDirectory);

  // Escape: No and a closed box keep the wizard; Yes closes it.
  m_answers = {GTK_RESPONSE_NO, GTK_RESPONSE_DELETE_EVENT};
  gtktest::SendKey(w.window, GDK_Escape);
  gtktest::SendKey(w.window, GDK_Escape);
  ASSERT_NE(dialog.widgets().window, nullptr);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepDirectory);
  m_answers = {GTK_RESPONSE_YES};
  gtktest::SendKey(w.window, GDK_Escape);
  EXPECT_EQ(dialog.widgets().window, nullptr);
  ASSERT_EQ(m_boxes.size(), 4u);
  for (size_t i = 1; i < 4; ++i) {
    EXPECT_EQ(m_boxes[i].type, GTK_MESSAGE_QUESTION);
    EXPECT_EQ(m_boxes[i].buttons, GTK_BUTTONS_YES_NO);
    EXPECT_EQ(m_boxes[i].text, text("IDS_ACCEPT_CANCEL"));
  }
  EXPECT_FALSE(exists(proposal)) << "nothing was installed";
}

TEST_F(Flow, CancelDuringInstallationAsksFromEveryWayOutAndRollsBack) {
  for (int i = 0; i < 30; ++i) source("many/file" + std::to_string(i) + ".txt", "new contents\n");
  buildPackage({{"en", "P", "V", "/docs/read me $HOME \"1\".html"}});
  const std::string dest = m_root / "dest";
  uitest::put_file(dest + "/keep.txt", "mine\n");
  uitest::put_file(dest + "/many/file3.txt", "older copy\n");
  testsupport::set_mtime(dest + "/many/file3.txt", 1000000000, 0);
  const testsupport::Snapshot before = snapshot(dest);

  testsupport::ScopedEnv slow("TPL_TEST_STATE_DELAY_MS", "40");
  CInstallerDlg& dialog = start();
  toDirectoryPage(dest);
  // Closing the window and Cancel answered No, then Escape answered Yes.
  m_answers = {GTK_RESPONSE_NO, GTK_RESPONSE_NO, GTK_RESPONSE_YES};
  struct Ctx {
    CInstallerDlg* dialog;
    int actions;
  } ctx{&dialog, 0};
  guint source = gdk_threads_add_timeout(
      15,
      [](gpointer p) -> gboolean {
        auto* c = static_cast<Ctx*>(p);
        const auto w = c->dialog->widgets();
        if (c->dialog->step() != CInstallerDlg::kStepProgress ||
            gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(c->dialog->progressPage()->bar())) <= 0)
          return TRUE;
        switch (c->actions++) {
          case 0:
            gtktest::SendDelete(w.window);
            return TRUE;
          case 1:
            gtk_button_clicked(GTK_BUTTON(w.cancel));
            return TRUE;
          default:
            gtktest::PostKey(w.window, GDK_Escape);
            return FALSE;
        }
      },
      &ctx);
  CLICK(dialog.widgets().next);  // returns once the run has rolled back
  if (ctx.actions < 3) g_source_remove(source);
  ASSERT_EQ(ctx.actions, 3);
  ASSERT_EQ(m_boxes.size(), 3u);
  for (const uitest::Box& box : m_boxes) EXPECT_EQ(box.text, text("IDS_ACCEPT_CANCEL"));

  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepError);
  ASSERT_NE(dialog.finalMessagePage(), nullptr);
  EXPECT_EQ(gtktest::LabelText(dialog.finalMessagePage()->label()), text("IDS_CANCEL_FINISH"));
  EXPECT_EQ(gtk_button_get_label(GTK_BUTTON(dialog.widgets().next)), text("IDS_WIZARD_FINISH"));
  EXPECT_TRUE(snapshot(dest) == before) << "the target is as it was";
  EXPECT_FALSE(exists(m_home + "/" + cfgPath()));

  CLICK(dialog.widgets().next);
  EXPECT_EQ(dialog.widgets().window, nullptr);
  EXPECT_EQ(opened(), "");
  m_dialog.reset();
  EXPECT_TRUE(tmpEntries().empty()) << "the working file goes with the dialog";
}

TEST_F(Flow, ProgressFollowsEveryPublishedStateWithNoOtherEvent) {
  // Eight files: the run publishes 0, 12, 25, 37, 50, 62, 75, 87 and 100 percent, each
  // followed by a pause in which nothing else happens on the display; only
  // the worker's wake-up can get the loop to show the next state.
  for (int i = 0; i < 5; ++i) source("f" + std::to_string(i), "x");  // and three from SetUp
  buildPackage({{"en", "P", "V", ""}});
  testsupport::ScopedEnv slow("TPL_TEST_STATE_DELAY_MS", "150");
  CInstallerDlg& dialog = start();
  toDirectoryPage(m_root / "dest");
  struct Ctx {
    CInstallerDlg* dialog;
    std::vector<double> seen;
    static void onFraction(GObject* bar, GParamSpec*, gpointer self) {
      auto& seen = static_cast<Ctx*>(self)->seen;
      const double f = gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(bar));
      if (f > 0 && (seen.empty() || seen.back() != f)) seen.push_back(f);
    }
  } ctx{&dialog, {}};
  // Fires once, inside the progress loop, as soon as the page exists.
  gdk_threads_add_timeout(
      1,
      [](gpointer p) -> gboolean {
        auto* c = static_cast<Ctx*>(p);
        if (!c->dialog->progressPage()) return TRUE;
        g_signal_connect(c->dialog->progressPage()->bar(), "notify::fraction",
                         G_CALLBACK(&Ctx::onFraction), c);
        return FALSE;
      },
      &ctx);
  CLICK(dialog.widgets().next);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_EQ(ctx.seen, (std::vector<double>{0.12, 0.25, 0.37, 0.5, 0.62, 0.75, 0.87, 1.0}));
}

TEST_F(Flow, FailedRunShowsTheErrorThenTheErrorPage) {
  buildPackage({{"en", "P", "V", "/docs/read me $HOME \"1\".html"}});
  const std::string old = m_root / "old";
  homeFile(cfgPath(), "ConfigurationTemplatesLocation=" + old + "\n");
  uitest::put_file(m_root / "plain", "a file where a folder would have to be\n");
  CInstallerDlg& dialog = start();
  toDirectoryPage(m_root / "plain/sub");
  m_answers = {GTK_RESPONSE_OK};
  CLICK(dialog.widgets().next);
  ASSERT_EQ(m_boxes.size(), 1u);
  EXPECT_EQ(m_boxes[0].type, GTK_MESSAGE_ERROR);
  EXPECT_EQ(m_boxes[0].text, text("IDS_INSTALL_ERROR"));
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepError);
  EXPECT_EQ(gtktest::LabelText(dialog.finalMessagePage()->label()), text("IDS_ERROR_FINISH"));
  EXPECT_EQ(read_file(m_home + "/" + cfgPath()), "ConfigurationTemplatesLocation=" + old + "\n");

  // Escape on a final page still asks.
  m_answers = {GTK_RESPONSE_NO};
  gtktest::SendKey(dialog.widgets().window, GDK_Escape);
  ASSERT_NE(dialog.widgets().window, nullptr);
  CLICK(dialog.widgets().next);
  EXPECT_EQ(dialog.widgets().window, nullptr);
  EXPECT_EQ(opened(), "") << "nothing is opened after an error";
}

TEST_F(Flow, StarterWriteFailureIsShownAndTheWizardGoesOn) {
  buildPackage({{"en", "P", "V", ""}});
  // The per-user starter file exists but cannot be replaced (it is a folder).
  ASSERT_EQ(std::system(("mkdir -p '" + m_home + "/" + cfgPath() + "'").c_str()), 0);
  CInstallerDlg& dialog = start();
  toDirectoryPage(m_root / "dest");
  m_answers = {GTK_RESPONSE_OK};
  CLICK(dialog.widgets().next);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  ASSERT_EQ(m_boxes.size(), 1u);
  EXPECT_EQ(m_boxes[0].type, GTK_MESSAGE_ERROR);
  EXPECT_EQ(m_boxes[0].text, text("IDS_INSTALL_ERROR") + "\n" + m_home + "/" + cfgPath());
  EXPECT_TRUE(exists(m_root / "dest/trade/retail/template.xml"));
  CLICK(dialog.widgets().next);
  EXPECT_EQ(dialog.widgets().window, nullptr);
}

TEST_F(Flow, SilentRunInstallsTheProposalWithoutAsking) {
  buildPackage({{"en", "P", "V", "/docs/read me $HOME \"1\".html"}});
  const std::string proposal = m_home + "/.plom8/Orvo/plom8//tmplts";
  CInstallerDlg& dialog = construct(u"en", true);
  dialog.DoModal();  // everything up to the final page, without the main loop
  EXPECT_EQ(narrow_lib(dialog.targetDirectory()), proposal);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_TRUE(m_boxes.empty());
  EXPECT_TRUE(exists(proposal + "/trade/retail/settings.ini"));
  EXPECT_FALSE(gtk_widget_get_visible(dialog.widgets().back));
  EXPECT_EQ(opened(), "") << "a silent run does not wait for Finish";
}

TEST_F(Flow, SilentRunNeverInstallsIntoAnEmptyTarget) {
  buildPackage({{"en", "P", "V", ""}});
  homeFile(cfgPath(), "ConfigurationTemplatesLocation=http://example.org/templates\n");
  const testsupport::Snapshot kitBefore = snapshot(m_kit);
  CInstallerDlg& dialog = construct(u"en", true);
  m_answers = {GTK_RESPONSE_OK};
  dialog.DoModal();
  EXPECT_EQ(dialog.targetDirectory(), u"");
  ASSERT_EQ(m_boxes.size(), 1u);
  EXPECT_EQ(m_boxes[0].text, text("IDS_SETUP_EMPTYTARGET"));
  EXPECT_EQ(m_boxes[0].type, GTK_MESSAGE_ERROR);
  EXPECT_EQ(dialog.step(), CInstallerDlg::kStepError);
  EXPECT_TRUE(snapshot(m_kit) == kitBefore) << "nothing written relative to the working directory";
}

TEST_F(Flow, PackageProblemsAreToldBeforeAnyWindow) {
  struct Case {
    const char* name;
    const char* bytes;  // null: no package at all
    const char* key;
  } cases[] = {
      {"missing", nullptr, "IDS_ERROR_NOSOURCE"},
      {"not deflate", "\xff\xff\xff\xff garbage", "IDS_ERROR_DAMAGEDSOURCE"},
      {"empty", "", "IDS_ERROR_DAMAGEDSOURCE"},
  };
  for (const Case& c : cases) {
    if (c.bytes)
      testsupport::write_file(m_kit + "/plom8.tpk", c.bytes);
    else
      unlink((m_kit + "/plom8.tpk").c_str());
    m_boxes.clear();
    m_answers = {GTK_RESPONSE_OK};
    CInstallerDlg& dialog = construct(u"en", false);
    EXPECT_FALSE(dialog.OnInitDialog()) << c.name;
    ASSERT_EQ(m_boxes.size(), 1u) << c.name;
    EXPECT_EQ(m_boxes[0].text, text(c.key)) << c.name;
    EXPECT_EQ(m_boxes[0].type, GTK_MESSAGE_ERROR) << c.name;
    EXPECT_EQ(dialog.widgets().window, nullptr) << c.name;
    EXPECT_TRUE(tmpEntries().empty()) << c.name << ": no working file is left";
  }
}

TEST_F(Flow, WelcomeTextAndDescriptionFollowTheInterfaceLanguage) {
  buildPackage({{"EN", "Prod", "Vend", "/en.html"},
                {"ru", "Продукт", "", ""},
                {"de", "", "Anbieter", "\\de\\x.html"}});
  const std::string defProduct = text("IDS_DEFPRODUCT"), defVendor = text("IDS_DEFPROVIDER");
  struct Case {
    std::u16string language;
    std::string product, vendor, document;
  } cases[] = {
      {u"en", "Prod", "Vend", "/en.html"},            // code differs only in case
      {u"ru", "Продукт", defVendor, "/en.html"},      // empty document: the English one
      {u"de", defProduct, "Anbieter", "/de/x.html"},  // "\\" read as "/"
      {u"kk", defProduct, defVendor, "/en.html"},     // no record at all
  };
  for (const Case& c : cases) {
    CInstallerDlg& dialog = start(c.language);
    const std::string label = gtktest::LabelText(dialog.welcomePage()->label());
    EXPECT_EQ(label, text("IDS_WELCOME_TITLE") + " " + c.product + " (" + c.vendor + ").")
        << narrow_lib(c.language);
    const std::string target = narrow_lib(dialog.targetDirectory());
    EXPECT_EQ(narrow_lib(dialog.documentPath()), target + c.document) << narrow_lib(c.language);
    m_dialog.reset();
  }
}

}  // namespace
