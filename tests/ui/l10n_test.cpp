// Every page in every interface language, and in a few of them with a large
// desktop font: no text cut off or off the window, no two texts (or a text
// and the entry) on top of each other, no character the installed fonts
// cannot draw; at the default font the layout's 500 by 360 window.
// With GTKTEST_SCREENSHOTS=dir each page is also saved as
// dir/<code>[-<size>pt]-<n>-<page>.png.
#include "wizard_fixture.h"

namespace {

struct Look {
  const char* language;
  int points;  // desktop font size
};

// Adds the labels on screen below `widget` to the vector `labels`.
void mapped_labels(GtkWidget* widget, gpointer labels) {
  if (GTK_IS_LABEL(widget) && gtk_widget_get_mapped(widget))
    static_cast<std::vector<GtkWidget*>*>(labels)->push_back(widget);
  if (GTK_IS_CONTAINER(widget)) gtk_container_foreach(GTK_CONTAINER(widget), mapped_labels, labels);
}

GdkRectangle allocation(GtkWidget* w) {
  GtkAllocation a;
  gtk_widget_get_allocation(w, &a);
  return a;
}

class EveryLanguage : public uitest::WizardTest, public ::testing::WithParamInterface<Look> {
 protected:
  void SetUp() override {
    WizardTest::SetUp();
    g_object_get(gtk_settings_get_default(), "gtk-font-name", &m_oldFont, nullptr);
    const std::string font = "Sans " + std::to_string(GetParam().points);
    g_object_set(gtk_settings_get_default(), "gtk-font-name", font.c_str(), nullptr);
    uitest::Pump();  // the styles follow the new font
  }
  void TearDown() override {
    WizardTest::TearDown();
    g_object_set(gtk_settings_get_default(), "gtk-font-name", m_oldFont, nullptr);
    g_free(m_oldFont);
  }

  // Fails for each visible label that is cut off, leaves the window, covers
  // another text or the entry, or needs a glyph no installed font has; saves
  // the screenshot when asked to.
  void check(const std::string& page, GtkWidget* entry = nullptr) {
    uitest::Pump();
    GtkWidget* window = m_dialog->widgets().window;
    const GdkRectangle area = allocation(window);
    std::vector<GtkWidget*> labels;
    mapped_labels(window, &labels);
    EXPECT_GE(labels.size(), 2u) << page << ": no labels on screen";
    std::vector<std::pair<GdkRectangle, std::string>> texts;
    for (GtkWidget* label : labels) {
      const std::string what = page + ": " + gtk_label_get_text(GTK_LABEL(label));
      PangoLayout* layout = gtk_label_get_layout(GTK_LABEL(label));
      PangoRectangle ink, logical;
      pango_layout_get_pixel_extents(layout, &ink, &logical);
      const GdkRectangle a = allocation(label);
      EXPECT_TRUE(logical.width <= a.width && logical.height <= a.height) << "cut off: " << what;
      EXPECT_TRUE(a.x >= 0 && a.y >= 0 && a.x + a.width <= area.width &&
                  a.y + a.height <= area.height)
          << "off the window: " << what;
      EXPECT_EQ(pango_layout_get_unknown_glyphs_count(layout), 0) << "no font: " << what;
      int x = 0, y = 0;
      gtk_label_get_layout_offsets(GTK_LABEL(label), &x, &y);
      texts.push_back({{x + logical.x, y + logical.y, logical.width, logical.height}, what});
    }
    for (size_t i = 0; i < texts.size(); ++i) {
      for (size_t j = i + 1; j < texts.size(); ++j)
        EXPECT_FALSE(gdk_rectangle_intersect(&texts[i].first, &texts[j].first, nullptr))
            << "\"" << texts[i].second << "\" on \"" << texts[j].second << "\"";
      const GdkRectangle field = entry ? allocation(entry) : GdkRectangle{0, 0, 0, 0};
      EXPECT_FALSE(entry && gdk_rectangle_intersect(&texts[i].first, &field, nullptr))
          << "on the entry: " << texts[i].second;
    }
    const char* dir = std::getenv("GTKTEST_SCREENSHOTS");
    if (!dir || !*dir) return;
    const int points = GetParam().points;
    const std::string path = std::string(dir) + "/" + GetParam().language +
                             (points == 10 ? "" : "-" + std::to_string(points) + "pt") + "-" +
                             page + ".png";
    GdkWindow* gw = gtk_widget_get_window(window);
    gdk_window_process_all_updates();
    GdkPixbuf* pb =
        gdk_pixbuf_get_from_drawable(nullptr, gw, nullptr, 0, 0, 0, 0, area.width, area.height);
    EXPECT_TRUE(pb && gdk_pixbuf_save(pb, path.c_str(), "png", nullptr, nullptr)) << path;
    if (pb) g_object_unref(pb);
  }

  gchar* m_oldFont = nullptr;
};

TEST_P(EveryLanguage, EveryPageFitsAndEveryGlyphExists) {
  const LangIdType id = get_lang_id_by_lang_code(GetParam().language);
  ASSERT_NE(id, kLangNone);
  set_resource_lang(id);
  buildPackage({{GetParam().language, "Demo Templates 3.0", "Demo Vendor", "/docs/d.html"}});
  testsupport::SlowRun slow(150);
  CInstallerDlg& dialog = start(widen_lib(GetParam().language));
  check("1-welcome");
  // The default desktop font gives the layout's 500 by 360 window.
  if (GetParam().points == 10) {
    const GdkRectangle area = allocation(dialog.widgets().window);
    EXPECT_EQ(std::make_pair(area.width, area.height), std::make_pair(500, 360));
  }
  CLICK(dialog.widgets().next);
  DirSelectPage& directory = *dialog.dirSelectPage();
  // What a user would see: a directory below the home folder.
  directory.setPath(std::string("/home/user/.plom8/Orvo/plom8/tmplts"));
  check("2-directory", directory.entry());
  directory.setPath(m_dest);
  // The progress page while the run goes on.
  bool running = false;
  everyTick([&] {
    if (dialog.step() != CInstallerDlg::kStepProgress) return true;
    const double f = gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(dialog.progressPage()->bar()));
    if (f <= 0 || f >= 1) return true;
    check("3-progress");
    running = true;
    return false;
  });
  CLICK(dialog.widgets().next);
  EXPECT_TRUE(running);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_TRUE(m_boxes.empty());
  dialog.successPage()->setMessage(LoadResString("IDS_SUCCESS_FINISH") +
                                   u"\n\n/home/user/.plom8/Orvo/plom8/tmplts");
  check("4-success");
  dialog.showErrorFinalPage();
  check("5-error");
  dialog.showCancelFinalPage();
  check("6-cancelled");
}

INSTANTIATE_TEST_SUITE_P(
    All, EveryLanguage,
    ::testing::Values(Look{"ru", 10}, Look{"uk", 10}, Look{"en", 10}, Look{"lv", 10},
                      Look{"lt", 10}, Look{"bg", 10}, Look{"de", 10}, Look{"ro", 10},
                      Look{"ka", 10}, Look{"kk", 10}, Look{"vi", 10}, Look{"tr", 10},
                      Look{"en", 15}, Look{"en", 20}, Look{"kk", 15}, Look{"ka", 20}),
    [](const auto& p) {
      return p.param.language +
             (p.param.points == 10 ? std::string() : "_" + std::to_string(p.param.points) + "pt");
    });

}  // namespace
