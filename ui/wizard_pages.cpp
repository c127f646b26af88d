#include "ui/wizard_pages.h"

#include "texts/resources.h"
#include "compat/text.h"
#include "ui/message_box.h"

namespace {

constexpr int kMainAreaX = 170;
constexpr int kMainAreaY = 10;
constexpr int kMainAreaWidth = 330;
constexpr int kMainAreaHeight = 250;

std::string text_of(const char* key) { return narrow_lib(LoadResString(key)); }

void on_browse_clicked(GtkWidget*, gpointer page) {
  if (page) static_cast<DirSelectPage*>(page)->showDirDialog();
}

}  // namespace

GtkWidget* createMainAreaLabel(GtkWidget* fixed) {
  GtkWidget* label = gtk_label_new("");
  gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
  gtk_misc_set_alignment(GTK_MISC(label), 0, 0);
  gtk_widget_set_size_request(label, kMainAreaWidth, kMainAreaHeight);
  gtk_fixed_put(GTK_FIXED(fixed), label, kMainAreaX, kMainAreaY);
  return label;
}

WizardDialogPage::WizardDialogPage(GtkWidget* fixed) : m_parent(fixed) {}

GtkWidget* WizardDialogPage::addWidget(GtkWidget* widget) {
  m_widgets.push_back(widget);
  return widget;
}

void WizardDialogPage::addSideImage(GdkPixbuf* sideImage) {
  GtkWidget* image = gtk_image_new_from_pixbuf(sideImage);
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
  gtk_label_set_text(GTK_LABEL(m_label), narrow_lib(text).c_str());
}

SuccessFinalPage::SuccessFinalPage(GtkWidget* fixed, GdkPixbuf* sideImage,
                                   const std::u16string& text)
    : MessagePage(fixed, sideImage, text) {
  m_checkBox = addWidget(gtk_check_button_new_with_label(text_of("IDS_SUCCESS_OPENDESCR").c_str()));
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(m_checkBox), TRUE);
  gtk_fixed_put(GTK_FIXED(fixed), m_checkBox, 170, 170);
}

bool SuccessFinalPage::isShowReadmeChecked() const {
  return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(m_checkBox));
}

DirSelectPage::DirSelectPage(GtkWidget* fixed, GdkPixbuf* sideImage) : WizardDialogPage(fixed) {
  addSideImage(sideImage);
  m_image = widgets().back();

  m_entry = addWidget(gtk_entry_new());
  gtk_widget_set_size_request(m_entry, 280, 30);
  // Return in the entry presses the window's default button (Next).
  gtk_entry_set_activates_default(GTK_ENTRY(m_entry), TRUE);
  gtk_fixed_put(GTK_FIXED(fixed), m_entry, 170, 275);

  m_prompt = addWidget(createMainAreaLabel(fixed));
  gtk_label_set_text(GTK_LABEL(m_prompt), text_of("IDS_DESTINATION_PROMPT").c_str());

  m_caption = addWidget(gtk_label_new(text_of("IDS_TEMPLATE_CATALOG").c_str()));
  gtk_fixed_put(GTK_FIXED(fixed), m_caption, 170, 255);

  m_browse = addWidget(gtk_button_new_with_label("..."));
  gtk_widget_set_size_request(m_browse, 30, 30);
  gtk_fixed_put(GTK_FIXED(fixed), m_browse, 460, 275);
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
  std::string folder;
  if (choose_folder(folder)) setPath(folder);
}

ProgressPage::ProgressPage(GtkWidget* fixed, int width)
    : WizardDialogPage(fixed),
      m_runningText(text_of("IDS_PROGRESS_START")),
      m_finishedText(text_of("IDS_INSTALL_FINISH")) {
  m_status = addWidget(gtk_label_new(""));
  gtk_fixed_put(GTK_FIXED(fixed), m_status, 10, 130);
  m_bar = addWidget(gtk_progress_bar_new());
  gtk_widget_set_size_request(m_bar, width, 20);
  gtk_fixed_put(GTK_FIXED(fixed), m_bar, 10, 150);
  setProgress(0);
}

void ProgressPage::setProgress(int percent) {
  const std::string& text = percent == 100 ? m_finishedText : m_runningText;
  gtk_label_set_text(GTK_LABEL(m_status), text.c_str());
  gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(m_bar), percent / 100.0);
}
