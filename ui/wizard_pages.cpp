#include "ui/wizard_pages.h"

#include <algorithm>
#include <cmath>

#include "compat/text.h"
#include "starter/config_locations.h"
#include "texts/resources.h"
#include "ui/message_box.h"

namespace {

constexpr int kMainAreaX = 170;
constexpr int kMainAreaY = 10;
constexpr int kMainAreaWidth = 330;
constexpr int kMainAreaHeight = 250;
constexpr int kCheckBoxY = 170;
constexpr int kIndicatorSize = 13;  // the toolkit's own size of a check box's box

constexpr const char* kScaleKey = "tpl-layout-scale-permille";

std::string text_of(const char* key) { return narrow_lib(LoadResString(key)); }

void on_browse_clicked(GtkWidget*, gpointer page) {
  if (page) static_cast<DirSelectPage*>(page)->showDirDialog();
}

// Links a control to the label that names it, for screen readers.
void label_by(GtkWidget* control, GtkWidget* label) {
  atk_object_add_relationship(gtk_widget_get_accessible(control), ATK_RELATION_LABELLED_BY,
                              gtk_widget_get_accessible(label));
  atk_object_add_relationship(gtk_widget_get_accessible(label), ATK_RELATION_LABEL_FOR,
                              gtk_widget_get_accessible(control));
}

}  // namespace

void set_layout_scale(GtkWidget* fixed, double scale) {
  const long permille = std::lround((scale > 1 ? scale : 1) * 1000);
  g_object_set_data(G_OBJECT(fixed), kScaleKey, GINT_TO_POINTER(permille));
}

int scaled(GtkWidget* fixed, int pixels) {
  const long permille = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(fixed), kScaleKey));
  if (permille <= 1000) return pixels;
  return static_cast<int>(std::lround(pixels * (permille / 1000.0)));
}

void put_scaled(GtkWidget* fixed, GtkWidget* widget, int x, int y, int width, int height) {
  if (width != -1 && height != -1)
    gtk_widget_set_size_request(widget, scaled(fixed, width), scaled(fixed, height));
  gtk_fixed_put(GTK_FIXED(fixed), widget, scaled(fixed, x), scaled(fixed, y));
}

GtkWidget* createMainAreaLabel(GtkWidget* fixed) {
  GtkWidget* label = gtk_label_new("");
  gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
  gtk_misc_set_alignment(GTK_MISC(label), 0, 0);
  put_scaled(fixed, label, kMainAreaX, kMainAreaY, kMainAreaWidth, kMainAreaHeight);
  return label;
}

std::u16string typed_target(std::u16string typed) {
  replace_all(typed, kBadPathSeparator, kPathSeparator);
  if (typed == u"~" || typed.compare(0, 2, u"~/") == 0) {
    std::u16string home = home_dir();
    if (home.empty() || home[0] != u'/') return std::u16string();
    if (typed.size() <= 2) return home;
    if (home.back() != u'/') home += u'/';
    return home + typed.substr(2);
  }
  if (typed.empty() || typed[0] != u'/') return std::u16string();
  return typed;
}

WizardDialogPage::WizardDialogPage(GtkWidget* fixed) : m_parent(fixed) {}

GtkWidget* WizardDialogPage::addWidget(GtkWidget* widget) {
  m_widgets.push_back(widget);
  return widget;
}

void WizardDialogPage::addSideImage(GdkPixbuf* sideImage) {
  GtkWidget* image = gtk_image_new_from_pixbuf(sideImage);
  atk_object_set_role(gtk_widget_get_accessible(image), ATK_ROLE_REDUNDANT_OBJECT);
  gtk_container_add(GTK_CONTAINER(m_parent), image);
  addWidget(image);
}

MessagePage::MessagePage(GtkWidget* fixed, GdkPixbuf* sideImage, const std::u16string& text)
    : WizardDialogPage(fixed) {
  addSideImage(sideImage);
  m_image = widgets().back();
  m_label = addWidget(createMainAreaLabel(fixed));
  setMessage(text);
}

void MessagePage::setMessage(const std::u16string& text) {
  // A path in the text may hold bytes that are not UTF-8: shown as U+FFFD.
  gchar* shown = g_utf8_make_valid(narrow_lib(text).c_str(), -1);
  gtk_label_set_text(GTK_LABEL(m_label), shown);
  g_free(shown);
}

SuccessFinalPage::SuccessFinalPage(GtkWidget* fixed, GdkPixbuf* sideImage,
                                   const std::u16string& text)
    : MessagePage(fixed, sideImage, text) {
  // The box to tick grows with the font too (its size is a style property).
  const int indicator = scaled(fixed, kIndicatorSize);
  if (indicator != kIndicatorSize) {
    const std::string rc =
        "style \"tpl-check\" { GtkCheckButton::indicator-size = " + std::to_string(indicator) +
        " }\nwidget \"*.tpl-check\" style \"tpl-check\"\n";
    gtk_rc_parse_string(rc.c_str());
  }
  m_checkBox = addWidget(gtk_check_button_new_with_label(text_of("IDS_SUCCESS_OPENDESCR").c_str()));
  gtk_widget_set_name(m_checkBox, "tpl-check");
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(m_checkBox), TRUE);
  // The wrapped message's height, as the label will draw it.
  gtk_widget_ensure_style(m_label);
  int width = 0, height = 0;
  pango_layout_get_pixel_size(gtk_label_get_layout(GTK_LABEL(m_label)), &width, &height);
  const int below = scaled(fixed, kMainAreaY) + height + scaled(fixed, 10);
  const int y = std::max(scaled(fixed, kCheckBoxY), below);
  gtk_fixed_put(GTK_FIXED(fixed), m_checkBox, scaled(fixed, kMainAreaX), y);
}

bool SuccessFinalPage::isShowReadmeChecked() const {
  return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(m_checkBox));
}

DirSelectPage::DirSelectPage(GtkWidget* fixed, GdkPixbuf* sideImage) : WizardDialogPage(fixed) {
  addSideImage(sideImage);
  m_image = widgets().back();

  m_entry = addWidget(gtk_entry_new());
  // Return in the entry presses the window's default button (Next).
  gtk_entry_set_activates_default(GTK_ENTRY(m_entry), TRUE);
  put_scaled(fixed, m_entry, 170, 275, 280, 30);

  m_prompt = addWidget(createMainAreaLabel(fixed));
  gtk_label_set_text(GTK_LABEL(m_prompt), text_of("IDS_DESTINATION_PROMPT").c_str());

  // The caption names the entry, for screen readers too.
  const std::string caption = text_of("IDS_TEMPLATE_CATALOG");
  m_caption = addWidget(gtk_label_new(caption.c_str()));
  put_scaled(fixed, m_caption, 170, 255);
  gtk_label_set_mnemonic_widget(GTK_LABEL(m_caption), m_entry);
  atk_object_set_name(gtk_widget_get_accessible(m_entry), caption.c_str());

  m_browse = addWidget(gtk_button_new_with_label("..."));
  atk_object_set_name(gtk_widget_get_accessible(m_browse), text_of("IDS_CHOOSEDIR_TITLE").c_str());
  put_scaled(fixed, m_browse, 460, 275, 30, 30);
  g_signal_connect(m_browse, "clicked", G_CALLBACK(on_browse_clicked), this);
}

std::u16string DirSelectPage::getPath() const {
  const gchar* text = gtk_entry_get_text(GTK_ENTRY(m_entry));
  if (!text) return std::u16string();
  if (m_shown == text) return m_path;
  return widen_lib(text);
}

void DirSelectPage::setPath(const std::u16string& path) {
  m_path = path;
  // The entry takes UTF-8 only: a name in another encoding (a Latin-1 byte,
  // say) would be cut there, so such bytes are shown as U+FFFD instead, and
  // getPath gives back the real path while the text stays as shown.
  gchar* shown = g_utf8_make_valid(narrow_lib(path).c_str(), -1);
  m_shown = shown;
  g_free(shown);
  gtk_entry_set_text(GTK_ENTRY(m_entry), m_shown.c_str());
}

void DirSelectPage::setPath(const std::string& path) { setPath(widen_lib(path)); }

void DirSelectPage::showDirDialog() {
  std::string folder = narrow_lib(typed_target(getPath()));
  if (choose_folder(gtk_widget_get_toplevel(m_entry), text_of("IDS_CHOOSEDIR_TITLE"), folder))
    setPath(folder);
}

ProgressPage::ProgressPage(GtkWidget* fixed, int width)
    : WizardDialogPage(fixed),
      m_runningText(text_of("IDS_PROGRESS_START")),
      m_finishedText(text_of("IDS_INSTALL_FINISH")) {
  m_status = addWidget(gtk_label_new(""));
  put_scaled(fixed, m_status, 10, 130);
  m_bar = addWidget(gtk_progress_bar_new());
  put_scaled(fixed, m_bar, 10, 150, width, 20);
  label_by(m_bar, m_status);
  setProgress(0);
}

void ProgressPage::setProgress(int percent) {
  const std::string& text = percent == 100 ? m_finishedText : m_runningText;
  gtk_label_set_text(GTK_LABEL(m_status), text.c_str());
  gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(m_bar), percent / 100.0);
}
