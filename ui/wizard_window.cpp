// The wizard's window: its frame, the navigation buttons (their labels
// fitted to their fixed size in every language) and the page area.
#include <gtk/gtk.h>

#include <algorithm>
#include <cmath>

#include "compat/text.h"
#include "texts/resources.h"
#include "ui/images.h"
#include "ui/installer_dlg.h"
#include "ui/wizard_pages.h"

namespace {

std::string text_of(const char* key) { return narrow_lib(LoadResString(key)); }

constexpr int kButtonWidth = 80;
constexpr int kButtonHeight = 30;

// Width left for the label inside a navigation button: what the button's
// border, focus frame, inner border and (for a default button) default
// border leave of its fixed width.
int button_label_room(GtkWidget* button) {
  int width = kButtonWidth;
  gtk_widget_get_size_request(button, &width, nullptr);
  gtk_widget_ensure_style(button);
  gint focusWidth = 0, focusPad = 0;
  GtkBorder* inner = nullptr;
  GtkBorder* defaultBorder = nullptr;
  gtk_widget_style_get(button, "focus-line-width", &focusWidth, "focus-padding", &focusPad,
                       "inner-border", &inner, "default-border", &defaultBorder, nullptr);
  int frame = static_cast<int>(gtk_container_get_border_width(GTK_CONTAINER(button))) +
              gtk_widget_get_style(button)->xthickness + focusWidth + focusPad;
  int room = width - 2 * frame - (inner ? inner->left + inner->right : 2);
  if (gtk_widget_get_can_default(button))
    room -= defaultBorder ? defaultBorder->left + defaultBorder->right : 2;
  if (inner) gtk_border_free(inner);
  if (defaultBorder) gtk_border_free(defaultBorder);
  return room;
}

// Fits a navigation button's label into the button: the buttons keep their
// fixed size in every language, so a text wider than the room inside is
// drawn in a proportionally smaller font rather than cut off.
void fit_button_label(GtkWidget* label) {
  GtkWidget* button = gtk_widget_get_parent(label);
  if (!GTK_IS_BUTTON(button)) return;
  gtk_label_set_attributes(GTK_LABEL(label), nullptr);
  const int room = button_label_room(button);
  double scale = 1.0;
  for (int attempt = 0; attempt < 8; ++attempt) {
    int width = 0, height = 0;
    pango_layout_get_pixel_size(gtk_label_get_layout(GTK_LABEL(label)), &width, &height);
    if (width <= room || width == 0) return;
    scale *= 0.98 * room / width;  // hinting may round up: aim a little lower
    PangoAttrList* attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_scale_new(scale));
    gtk_label_set_attributes(GTK_LABEL(label), attributes);
    pango_attr_list_unref(attributes);
  }
}

void on_button_label_style_set(GtkWidget* label, GtkStyle*, gpointer) { fit_button_label(label); }

// Sets a navigation button's label, fitted now and whenever the desktop's
// font or theme changes.
void set_button_text(GtkWidget* button, const std::string& text) {
  gtk_button_set_label(GTK_BUTTON(button), text.c_str());
  GtkWidget* label = gtk_bin_get_child(GTK_BIN(button));
  if (!GTK_IS_LABEL(label)) return;
  fit_button_label(label);
  g_signal_connect(label, "style-set", G_CALLBACK(on_button_label_style_set), nullptr);
}

GtkWidget* new_navigation_button(GtkWidget* fixed, int x, int y, bool canDefault) {
  GtkWidget* button = gtk_button_new_with_label("");
  gtk_widget_set_can_default(button, canDefault);
  put_scaled(fixed, button, x, y, kButtonWidth, kButtonHeight);
  return button;
}

// How much larger than the default font (10 points at 96 dots per inch) the
// desktop font is drawn on `window`'s screen.
double desktop_font_scale(GtkWidget* window) {
  gtk_widget_ensure_style(window);
  const PangoFontDescription* font = gtk_widget_get_style(window)->font_desc;
  double dpi = gdk_screen_get_resolution(gtk_widget_get_screen(window));
  if (dpi <= 0) dpi = 96;
  double points = static_cast<double>(pango_font_description_get_size(font)) / PANGO_SCALE;
  if (pango_font_description_get_size_is_absolute(font)) points = points * 72 / dpi;
  return points * dpi / 96 / 10;
}

}  // namespace

GdkPixbuf* CInstallerDlg::createIcon() const {
  return gdk_pixbuf_new_from_xpm_data(kWindowIconXpm);
}

GdkPixbuf* CInstallerDlg::createBackImage() const {
  return gdk_pixbuf_new_from_xpm_data(kSideImageXpm);
}

void CInstallerDlg::initMainWindow() {
  GtkWindow* window = GTK_WINDOW(m_window);
  gtk_window_set_position(window, GTK_WIN_POS_CENTER);
  // The window and everything in it grow with the desktop font.
  const double scale = std::max(1.0, desktop_font_scale(m_window));
  GdkGeometry geometry{};
  geometry.min_width = geometry.max_width = geometry.base_width =
      static_cast<int>(std::lround(m_width * scale));
  geometry.min_height = geometry.max_height = geometry.base_height =
      static_cast<int>(std::lround(m_height * scale));
  geometry.win_gravity = GDK_GRAVITY_NORTH_WEST;
  gtk_window_set_geometry_hints(
      window, nullptr, &geometry,
      static_cast<GdkWindowHints>(GDK_HINT_MIN_SIZE | GDK_HINT_MAX_SIZE | GDK_HINT_BASE_SIZE));
  gtk_window_set_modal(window, TRUE);
  // A dialog: every window manager gives it the keyboard focus, a taskbar
  // entry and a place in the window switcher.
  gtk_window_set_type_hint(window, GDK_WINDOW_TYPE_HINT_DIALOG);
  m_icon = createIcon();
  gtk_window_set_icon(window, m_icon);
  m_fixed = gtk_fixed_new();
  set_layout_scale(m_fixed, scale);
  gtk_container_add(GTK_CONTAINER(m_window), m_fixed);
  g_signal_connect(m_window, "destroy", G_CALLBACK(on_main_window_destroy), this);
  g_signal_connect(m_window, "key_press_event", G_CALLBACK(gtk_window_key_press_callback), this);
  g_signal_connect(m_window, "delete_event", G_CALLBACK(gtk_window_delete_callback), this);
}

void CInstallerDlg::showMainWindow() {
  m_window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  initMainWindow();
  gtk_window_set_title(GTK_WINDOW(m_window), m_title.c_str());

  GtkWidget* separator = gtk_hseparator_new();
  put_scaled(m_fixed, separator, 10, 310, m_width - 20, 5);

  m_buttonBack = new_navigation_button(m_fixed, 230, 320, false);
  set_button_text(m_buttonBack, text_of("IDS_WIZARD_BACK"));

  m_buttonNext = new_navigation_button(m_fixed, 310, 320, true);
  set_button_text(m_buttonNext, text_of("IDS_WIZARD_NEXT"));
  gtk_widget_grab_default(m_buttonNext);

  m_buttonCancel = new_navigation_button(m_fixed, 410, 320, false);
  set_button_text(m_buttonCancel, text_of("IDS_WIZARD_CANCEL"));

  g_signal_connect(m_buttonBack, "clicked", G_CALLBACK(on_buttonPrev_clicked), this);
  g_signal_connect(m_buttonNext, "clicked", G_CALLBACK(on_buttonNext_clicked), this);
  g_signal_connect(m_buttonCancel, "clicked", G_CALLBACK(button_clicked_handler), this);

  gtk_widget_show_all(m_fixed);
  m_sideImage = createBackImage();
  if (scaled(m_fixed, 1000) != 1000) {
    GdkPixbuf* larger = gdk_pixbuf_scale_simple(
        m_sideImage, scaled(m_fixed, gdk_pixbuf_get_width(m_sideImage)),
        scaled(m_fixed, gdk_pixbuf_get_height(m_sideImage)), GDK_INTERP_BILINEAR);
    g_object_unref(m_sideImage);
    m_sideImage = larger;
  }
  gtk_widget_show(m_window);
}

void CInstallerDlg::setCurPage(WizardDialogPage* page) {
  if (m_curPage) {
    for (GtkWidget* w : m_curPage->widgets()) gtk_widget_hide(w);
  }
  m_curPage = page;
  if (!page) return;
  for (GtkWidget* w : page->widgets()) gtk_widget_show(w);
  page->onShow();
}

void CInstallerDlg::setFinishButtons() {
  gtk_widget_set_sensitive(m_buttonNext, TRUE);
  gtk_widget_set_sensitive(m_buttonCancel, FALSE);
  gtk_widget_hide(m_buttonBack);
  gtk_widget_show(m_buttonNext);
  set_button_text(m_buttonNext, text_of("IDS_WIZARD_FINISH"));
  gtk_widget_grab_default(m_buttonNext);
  gtk_widget_grab_focus(m_buttonNext);
}

void CInstallerDlg::focusPage(GtkWidget* control, GtkWidget* text) {
  if (m_pageControl && m_pageControl != control)
    atk_object_set_description(gtk_widget_get_accessible(m_pageControl), "");
  m_pageControl = control;
  atk_object_set_description(gtk_widget_get_accessible(control),
                             gtk_label_get_text(GTK_LABEL(text)));
  gtk_widget_grab_focus(control);
}

void CInstallerDlg::on_main_window_destroy(GtkWidget*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  self->m_window = nullptr;
  if (gtk_main_level() > 0) gtk_main_quit();
}
