// Every page in every interface language: no text cut off by the fixed
// layout, no character the installed fonts cannot draw. With
// GTKTEST_SCREENSHOTS=dir each page is also saved as dir/<code>-<n>-<page>.png.
#include "wizard_fixture.h"

namespace {

// Adds the labels on screen below `widget` to the vector `labels`.
void mapped_labels(GtkWidget* widget, gpointer labels) {
  if (GTK_IS_LABEL(widget) && gtk_widget_get_mapped(widget))
    static_cast<std::vector<GtkWidget*>*>(labels)->push_back(widget);
  if (GTK_IS_CONTAINER(widget)) gtk_container_foreach(GTK_CONTAINER(widget), mapped_labels, labels);
}

class EveryLanguage : public uitest::WizardTest, public ::testing::WithParamInterface<const char*> {
 protected:
  // Fails for each visible label that is cut off, leaves the window, or needs
  // a glyph no installed font has; saves the screenshot when asked to.
  void check(const std::string& page, bool shot = true) {
    uitest::Pump();
    GtkWidget* window = m_dialog->widgets().window;
    std::vector<GtkWidget*> labels;
    mapped_labels(window, &labels);
    EXPECT_GE(labels.size(), 2u) << page << ": no labels on screen";
    for (GtkWidget* label : labels) {
      const std::string what = page + ": " + gtk_label_get_text(GTK_LABEL(label));
      PangoLayout* layout = gtk_label_get_layout(GTK_LABEL(label));
      int w = 0, h = 0;
      pango_layout_get_pixel_size(layout, &w, &h);
      GtkAllocation a;
      gtk_widget_get_allocation(label, &a);
      EXPECT_TRUE(w <= a.width && h <= a.height) << "cut off: " << what;
      EXPECT_LE(a.x + a.width, 500) << "off the window: " << what;
      EXPECT_EQ(pango_layout_get_unknown_glyphs_count(layout), 0) << "no font: " << what;
    }
    const char* dir = std::getenv("GTKTEST_SCREENSHOTS");
    if (!shot || !dir || !*dir) return;
    const std::string path = std::string(dir) + "/" + GetParam() + "-" + page + ".png";
    GdkWindow* gw = gtk_widget_get_window(window);
    gdk_window_process_all_updates();
    int w = 0, h = 0;
    gdk_drawable_get_size(gw, &w, &h);
    GdkPixbuf* pb = gdk_pixbuf_get_from_drawable(nullptr, gw, nullptr, 0, 0, 0, 0, w, h);
    EXPECT_TRUE(pb && gdk_pixbuf_save(pb, path.c_str(), "png", nullptr, nullptr)) << path;
    if (pb) g_object_unref(pb);
  }
};

TEST_P(EveryLanguage, EveryPageFitsAndEveryGlyphExists) {
  const LangIdType id = get_lang_id_by_lang_code(GetParam());
  ASSERT_NE(id, kLangNone);
  set_resource_lang(id);
  buildPackage({{GetParam(), "Demo Templates 3.0", "Demo Vendor", "/docs/d.html"}});
  testsupport::SlowRun slow(150);
  CInstallerDlg& dialog = start(widen_lib(GetParam()));
  check("1-welcome");
  CLICK(dialog.widgets().next);
  // What a user would see: a directory below the home folder.
  dialog.dirSelectPage()->setPath(std::string("/home/user/.plom8/Orvo/plom8/tmplts"));
  check("2-directory");
  dialog.dirSelectPage()->setPath(m_dest);
  // The progress page while the run goes on, and at its end.
  bool running = false, finished = false;
  everyTick([&] {
    if (dialog.step() != CInstallerDlg::kStepProgress) return true;
    const double f = gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(dialog.progressPage()->bar()));
    if (!running && f > 0 && f < 1) check("3-progress");
    if (f >= 1) check("progress, finished", false);
    running = running || (f > 0 && f < 1);
    finished = f >= 1;
    return !finished;
  });
  CLICK(dialog.widgets().next);
  EXPECT_TRUE(running && finished);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_TRUE(m_boxes.empty());
  check("4-success");
  dialog.showErrorFinalPage();
  check("5-error");
  dialog.showCancelFinalPage();
  check("6-cancelled");
}

INSTANTIATE_TEST_SUITE_P(All, EveryLanguage,
                         ::testing::Values("ru", "uk", "en", "lv", "lt", "bg", "de", "ro", "ka",
                                           "kk", "vi", "tr"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
