// Every page in every interface language: no text cut off by the fixed
// layout, no character the installed fonts cannot draw. With
// GTKTEST_SCREENSHOTS=dir each page is also saved as dir/<code>-<n>-<page>.png.
#include <cstdlib>
#include <string>
#include <vector>

#include "app/resources.h"
#include "compat/text.h"
#include "gtk_test_support.h"
#include "ui/wizard_pages.h"
#include "wizard_fixture.h"

namespace {

struct Language {
  LangIdType id;
  const char* code;
};

const Language kLanguages[] = {
    {kLangRu, "ru"}, {kLangUk, "uk"}, {kLangEn, "en"}, {kLangLv, "lv"},
    {kLangLt, "lt"}, {kLangBg, "bg"}, {kLangDe, "de"}, {kLangRo, "ro"},
    {kLangKa, "ka"}, {kLangKk, "kk"}, {kLangVi, "vi"}, {kLangTr, "tr"},
};

void collect_labels(GtkWidget* widget, std::vector<GtkWidget*>& labels) {
  if (GTK_IS_LABEL(widget)) labels.push_back(widget);
  if (GTK_IS_CONTAINER(widget)) {
    GList* children = gtk_container_get_children(GTK_CONTAINER(widget));
    for (GList* l = children; l; l = l->next) collect_labels(GTK_WIDGET(l->data), labels);
    g_list_free(children);
  }
}

// Fails for each visible label whose text is cut off, leaves the window, or
// needs a glyph no installed font has.
void expect_labels_fit(GtkWidget* window, const std::string& page) {
  gtktest::Pump();
  std::vector<GtkWidget*> labels;
  collect_labels(window, labels);
  int checked = 0;
  for (GtkWidget* label : labels) {
    if (!gtk_widget_get_mapped(label)) continue;
    ++checked;
    const std::string text = gtk_label_get_text(GTK_LABEL(label));
    PangoLayout* layout = gtk_label_get_layout(GTK_LABEL(label));
    int w = 0, h = 0;
    pango_layout_get_pixel_size(layout, &w, &h);
    GtkAllocation a;
    gtk_widget_get_allocation(label, &a);
    EXPECT_LE(w, a.width) << page << ": too wide: \"" << text << "\" (" << w << " > " << a.width
                          << ")";
    EXPECT_LE(h, a.height) << page << ": too tall: \"" << text << "\"";
    EXPECT_LE(a.x + a.width, 500) << page << ": off the window: \"" << text << "\"";
    EXPECT_EQ(pango_layout_get_unknown_glyphs_count(layout), 0)
        << page << ": no font for \"" << text << "\"";
  }
  EXPECT_GE(checked, 2) << page << ": no labels on screen";
}

class EveryLanguage : public uitest::WizardTest, public ::testing::WithParamInterface<Language> {
 public:
  void shot(GtkWidget* window, const std::string& name) {
    const char* dir = std::getenv("GTKTEST_SCREENSHOTS");
    if (!dir || !*dir) return;
    const std::string path = std::string(dir) + "/" + GetParam().code + "-" + name + ".png";
    EXPECT_TRUE(gtktest::SaveScreenshot(window, path)) << path;
  }
};

TEST_P(EveryLanguage, EveryPageFitsAndEveryGlyphExists) {
  const Language& language = GetParam();
  set_resource_lang(language.id);
  source("trade/retail/template.xml", "<template/>\n");
  source("trade/retail/settings.ini", "[Company]\n");
  buildPackage({{language.code, "Demo Templates 3.0", "Demo Vendor", "/docs/d.html"}});
  testsupport::ScopedEnv slow("TPL_TEST_STATE_DELAY_MS", "150");
  CInstallerDlg& dialog = start(widen_lib(language.code));
  GtkWidget* window = dialog.widgets().window;

  expect_labels_fit(window, "welcome");
  shot(window, "1-welcome");
  CLICK(dialog.widgets().next);
  // What a user would see: a directory below the home folder.
  dialog.dirSelectPage()->setPath(std::string("/home/user/.plom8/Orvo/plom8/tmplts"));
  expect_labels_fit(window, "directory");
  shot(window, "2-directory");
  dialog.dirSelectPage()->setPath(m_root / "dest");

  // The progress page, looked at while the run goes on and at its end.
  struct Ctx {
    EveryLanguage* test;
    CInstallerDlg* dialog;
    bool running = false, finished = false;
  } ctx{this, &dialog};
  guint source = gdk_threads_add_timeout(
      10,
      [](gpointer p) -> gboolean {
        auto* c = static_cast<Ctx*>(p);
        if (c->dialog->step() != CInstallerDlg::kStepProgress) return TRUE;
        const double fraction =
            gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(c->dialog->progressPage()->bar()));
        GtkWidget* window = c->dialog->widgets().window;
        if (!c->running && fraction > 0 && fraction < 1) {
          c->running = true;
          expect_labels_fit(window, "progress");
          c->test->shot(window, "3-progress");
        } else if (!c->finished && fraction >= 1) {
          c->finished = true;
          expect_labels_fit(window, "progress, finished");
        }
        return TRUE;
      },
      &ctx);
  CLICK(dialog.widgets().next);
  g_source_remove(source);
  EXPECT_TRUE(ctx.running && ctx.finished);
  ASSERT_EQ(dialog.step(), CInstallerDlg::kStepSuccess);
  EXPECT_TRUE(m_boxes.empty());
  expect_labels_fit(window, "success");
  shot(window, "4-success");
  dialog.showErrorFinalPage();
  expect_labels_fit(window, "error");
  shot(window, "5-error");
  dialog.showCancelFinalPage();
  expect_labels_fit(window, "cancelled");
  shot(window, "6-cancelled");
}

INSTANTIATE_TEST_SUITE_P(All, EveryLanguage, ::testing::ValuesIn(kLanguages),
                         [](const ::testing::TestParamInfo<Language>& info) {
                           return std::string(info.param.code);
                         });

void PrintTo(const Language& l, std::ostream* os) { *os << l.code; }

}  // namespace
