#include "ui/installer_dlg.h"

#include <gdk/gdkkeysyms.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "compat/file_finder.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "install/interrupts.h"
#include "install/startup.h"
#include "package/package_location.h"
#include "texts/resources.h"
#include "ui/failure_text.h"
#include "ui/images.h"
#include "ui/message_box.h"
#include "ui/wizard_events.h"
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

CInstallerDlg::CInstallerDlg(int argc, char** argv, bool silent, const std::string& title,
                             const std::u16string& languageCode, bool useCwd)
    : m_silent(silent),
      m_languageCode(languageCode),
      m_useCwd(useCwd),
      m_argc(argc),
      m_argv(argv),
      m_title(title),
      m_session(m_package, m_starter) {
  gtk_init(&m_argc, &m_argv);
  m_starter.writeOrdinary = false;
  m_starter.writeBase = false;
  m_session.setWakeup(&CInstallerDlg::wake_gui, this);
  on_interrupt(&CInstallerDlg::on_signal, this);
}

CInstallerDlg::~CInstallerDlg() {
  on_interrupt(nullptr, nullptr);
  if (m_signalSource) g_source_remove(m_signalSource);
  // The worker only touches the package reader and the session's state:
  // let it finish before anything goes away.
  m_session.waitReturned();
  if (m_window) gtk_widget_destroy(m_window);
  if (m_sideImage) g_object_unref(m_sideImage);
  if (m_icon) g_object_unref(m_icon);
}

std::u16string CInstallerDlg::getTitle() const { return widen_lib(m_title); }

// ---------------------------------------------------------------- start-up

std::u16string CInstallerDlg::getTpkFullPath() const { return tpk_full_path(m_useCwd); }

bool CInstallerDlg::OnInitDialog() {
  m_packagePath = getTpkFullPath();
  const StartupReport report =
      prepare_installation(m_packagePath, m_package, m_starter, &interrupt_flag());
  // An interrupt during the load ends the program without a word.
  if (report.status.code == ERROR_CANCELLED || interrupted()) return false;
  if (!report.status.ok()) {
    messageBox(this, with_cause(LoadResString(start_failure_key(report.status)), report.status),
               kMessageBoxError);
    return false;
  }
  m_targetDir = m_starter.proposal;
  return true;
}

void CInstallerDlg::DoModal() {
  if (!OnInitDialog()) return;
  m_welcomePage.reset();
  showMainWindow();
  showWelcomePage();
  if (m_silent) {
    showProgressPage();
  } else if (!m_closeRequested) {
    gtk_main();
  }
  // After a complete installation the worker may still be in its finishing
  // pause: the window (if it is still there) keeps answering until it ends.
  while (!m_session.returned()) gtk_main_iteration();
}

// ---------------------------------------------------------------- the frame

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

void CInstallerDlg::titles(std::u16string& product, std::u16string& vendor) const {
  for (const LanguageEntry& entry : m_package.languages) {
    if (compare_nocase(entry.language, m_languageCode) == 0) {
      product = entry.title1;
      vendor = entry.title2;
      return;
    }
  }
  product.clear();
  vendor.clear();
}

void CInstallerDlg::on_main_window_destroy(GtkWidget*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  self->m_window = nullptr;
  if (gtk_main_level() > 0) gtk_main_quit();
}

// ---------------------------------------------------------------- keys and cancelling

gboolean CInstallerDlg::gtk_window_key_press_callback(GtkWidget*, GdkEventKey* event,
                                                      void* dialog) {
  return dialog ? static_cast<CInstallerDlg*>(dialog)->processKeyPress(event) : FALSE;
}

bool CInstallerDlg::processKeyPress(GdkEventKey* event) {
  if (event->keyval != GDK_Escape) return false;
  processCancel();
  return true;
}

gboolean CInstallerDlg::gtk_window_delete_callback(GtkWidget*, GdkEvent*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  // While files are being installed or put back the window stays: closing
  // it is a cancel request like any other. Elsewhere it closes at once.
  if (self->m_step == kStepProgress)
    self->processCancel();
  else
    self->closeWindow();
  return TRUE;
}

void CInstallerDlg::button_clicked_handler(GtkWidget*, void* dialog) {
  static_cast<CInstallerDlg*>(dialog)->processCancel();
}

void CInstallerDlg::processCancel() {
  if (m_asking) return;
  if (m_step == kStepProgress && (m_runOver || m_session.cancelRequested())) {
    // The run is stopping or being put back and cannot be cut short: the
    // window closes as soon as it is over.
    if (!m_closeRequested) wizard_event("close requested");
    m_closeRequested = true;
    return;
  }
  if (m_confirmCancel) {
    m_asking = true;
    const unsigned answer =
        messageBox(this, LoadResString("IDS_ACCEPT_CANCEL"), kMessageBoxQuestion);
    m_asking = false;
    if (answer != kAnswerYes) return;
  }
  if (m_step == kStepProgress) {
    if (!m_runOver) abortInstall();
    return;
  }
  closeWindow();
}

void CInstallerDlg::abortInstall() {
  wizard_event("cancel requested");
  m_session.cancel();
  // Nothing more to cancel: the run stops after the current file.
  gtk_widget_set_sensitive(m_buttonCancel, FALSE);
}

void CInstallerDlg::closeWindow() {
  if (!m_window) return;
  if (m_session.returned()) {
    gtk_widget_destroy(m_window);
    return;
  }
  // Only the worker's finishing pause after a complete installation is
  // left: the window goes now and is destroyed once the worker has ended.
  gtk_widget_hide(m_window);
  if (gtk_main_level() > 0) gtk_main_quit();
}

void CInstallerDlg::on_signal(void* dialog) {
  // The watcher thread may not touch widgets: the GUI thread answers.
  auto* self = static_cast<CInstallerDlg*>(dialog);
  if (!self->m_signalSource)
    self->m_signalSource = g_idle_add(&CInstallerDlg::on_signal_idle, dialog);
  g_main_context_wakeup(nullptr);
}

gboolean CInstallerDlg::on_signal_idle(void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  self->m_signalSource = 0;
  self->processInterrupt();
  return FALSE;
}

void CInstallerDlg::processInterrupt() {
  m_closeRequested = true;
  if (m_step == kStepProgress) {
    // A running installation is cancelled; the progress page closes the
    // window once the run (and its rollback) is over.
    if (!m_runOver && !m_session.cancelRequested()) abortInstall();
    return;
  }
  closeWindow();
}

void CInstallerDlg::on_buttonPrev_clicked(GtkWidget*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  if (self->m_step == kStepDirectory) self->showWelcomePage();
}

// ---------------------------------------------------------------- pages and flow

void CInstallerDlg::showWelcomePage() {
  std::u16string product, vendor;
  titles(product, vendor);
  if (product.empty()) product = LoadResString("IDS_DEFPRODUCT");
  if (vendor.empty()) vendor = LoadResString("IDS_DEFPROVIDER");
  if (!m_welcomePage) {
    const std::u16string text =
        LoadResString("IDS_WELCOME_TITLE") + u" " + product + u" (" + vendor + u").";
    m_welcomePage = std::make_unique<MessagePage>(m_fixed, m_sideImage, text);
  }
  if (m_silent) {
    gtk_widget_hide(m_buttonBack);
    gtk_widget_hide(m_buttonNext);
  } else {
    gtk_widget_set_sensitive(m_buttonBack, FALSE);
  }
  m_step = kStepWelcome;
  setCurPage(m_welcomePage.get());
  focusPage(m_silent ? m_buttonCancel : m_buttonNext, m_welcomePage->label());
  wizard_event("page=welcome");
}

void CInstallerDlg::showSelectPathPage() {
  m_step = kStepDirectory;
  if (!m_dirPage) m_dirPage = std::make_unique<DirSelectPage>(m_fixed, m_sideImage);
  m_dirPage->setPath(m_targetDir);
  gtk_widget_set_sensitive(m_buttonBack, TRUE);
  gtk_widget_set_sensitive(m_buttonNext, TRUE);
  setCurPage(m_dirPage.get());
  focusPage(m_dirPage->entry(), m_dirPage->prompt());
  wizard_event("page=directory");
}

void CInstallerDlg::on_buttonNext_clicked(GtkWidget*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  switch (self->m_step) {
    case kStepWelcome:
      self->showSelectPathPage();
      break;
    case kStepDirectory: {
      // An empty or relative path is refused: nothing is installed relative
      // to wherever the program was started.
      const std::u16string path = typed_target(self->m_dirPage->getPath());
      if (path.empty()) {
        messageBox(self, LoadResString("IDS_SETUP_EMPTYTARGET"), kMessageBoxPlain);
        break;
      }
      self->m_targetDir = path;
      self->showProgressPage();
      break;
    }
    case kStepSuccess:
    case kStepError:
      self->finalize();
      break;
    default:
      break;
  }
}

void CInstallerDlg::wake_gui(void*) { g_main_context_wakeup(nullptr); }

bool CInstallerDlg::updateProgress(void* dialog) {
  return InstallSession::updateProgress(&static_cast<CInstallerDlg*>(dialog)->m_session);
}

const InstallOutcome& CInstallerDlg::waitForWorker() {
  // The worker wakes the loop when its run returns, so this never waits
  // for an unrelated event.
  while (!m_session.returned()) gtk_main_iteration();
  return m_session.finish();
}

void CInstallerDlg::showProgressPage() {
  if (!m_progressPage) m_progressPage = std::make_unique<ProgressPage>(m_fixed, m_width - 20);
  gtk_widget_set_sensitive(m_buttonBack, FALSE);
  gtk_widget_set_sensitive(m_buttonNext, FALSE);
  m_runOver = false;
  if (!m_targetDir.empty()) {
    setCurPage(m_progressPage.get());
    focusPage(m_buttonCancel, m_progressPage->statusLabel());
    m_step = kStepProgress;
    wizard_event("page=progress");
  }
  if (!m_session.start(m_targetDir)) {
    // An empty target or no worker thread: nothing was touched.
    m_runOver = true;
    const InstallOutcome& outcome = m_session.outcome();
    messageBox(this, with_cause(LoadResString(outcome.messageKey), outcome.status),
               kMessageBoxError);
    showErrorFinalPage();
    return;
  }

  // Each turn blocks until an event or the worker's wake-up. The page is
  // touched only when the percentage moved: redrawing it unchanged would
  // queue new events and keep the loop spinning.
  RunProgress progress;
  int shown = -1;
  for (;;) {
    progress = m_session.progress();
    if (progress.percent != shown) {
      m_progressPage->setProgress(progress.percent);
      shown = progress.percent;
    }
    if (progress.settled()) break;
    gtk_main_iteration();
  }
  m_runOver = true;
  gtk_widget_set_sensitive(m_buttonCancel, FALSE);

  if (classify_run(progress.state, progress.percent) == OutcomeKind::kInstalled) {
    // Shown at once; the worker's finishing pause goes on meanwhile.
    showSuccessFinalPage();
    reportStarterNotWritten(m_session.finish());
  } else {
    // A failure is told once the run has put everything back, with the
    // path and the reason.
    const InstallOutcome& outcome = waitForWorker();
    if (outcome.kind == OutcomeKind::kFailed)
      messageBox(this, with_cause(progress.message, outcome.status), kMessageBoxError);
    if (outcome.kind == OutcomeKind::kCancelled)
      showCancelFinalPage();
    else
      showErrorFinalPage();
  }
  if (m_closeRequested) closeWindow();
}

void CInstallerDlg::reportStarterNotWritten(const InstallOutcome& outcome) {
  // The templates are in place; only the starter's list could not be
  // updated. The box names the file that kept its old contents, and why.
  if (outcome.kind != OutcomeKind::kStarterNotWritten) return;
  messageBox(this, with_cause(LoadResString("IDS_INSTALL_ERROR"), outcome.status),
             kMessageBoxError);
}

void CInstallerDlg::showSuccessFinalPage() {
  m_step = kStepSuccess;
  if (!m_successPage) {
    // The page's text, and below it where the templates went.
    m_successPage = std::make_unique<SuccessFinalPage>(
        m_fixed, m_sideImage, LoadResString("IDS_SUCCESS_FINISH") + u"\n\n" + m_targetDir);
  }
  setFinishButtons();
  setCurPage(m_successPage.get());
  focusPage(m_buttonNext, m_successPage->label());
  wizard_event("page=success");
}

void CInstallerDlg::showFinalPage(std::unique_ptr<MessagePage>& page, const char* key,
                                  unsigned step, const char* name) {
  if (!page) page = std::make_unique<MessagePage>(m_fixed, m_sideImage, LoadResString(key));
  m_step = step;
  setFinishButtons();
  setCurPage(page.get());
  focusPage(m_buttonNext, page->label());
  wizard_event(name);
}

void CInstallerDlg::showErrorFinalPage() {
  showFinalPage(m_errorPage, "IDS_ERROR_FINISH", kStepError, "page=error");
}

void CInstallerDlg::showCancelFinalPage() {
  showFinalPage(m_cancelPage, "IDS_CANCEL_FINISH", kStepError, "page=cancelled");
}

MessagePage* CInstallerDlg::finalMessagePage() const {
  if (m_curPage == m_errorPage.get()) return m_errorPage.get();
  if (m_curPage == m_cancelPage.get()) return m_cancelPage.get();
  return nullptr;
}

std::u16string CInstallerDlg::documentPath() const {
  // The record of the interface language names the document; failing that
  // (no record, or an empty name), the English record does.
  std::u16string name;
  bool found = false;
  for (const LanguageEntry& entry : m_package.languages) {
    if (compare_nocase(entry.language, m_languageCode) == 0) {
      if (!entry.descriptionRef.empty()) {
        name = entry.descriptionRef;
        found = true;
      }
      break;
    }
  }
  if (!found) {
    for (const LanguageEntry& entry : m_package.languages) {
      if (compare_nocase(entry.language, u"en") == 0) {
        name = entry.descriptionRef;
        break;
      }
    }
  }
  std::u16string path = m_targetDir + name;
  replace_all(path, kBadPathSeparator, kPathSeparator);
  return path;
}

std::string CInstallerDlg::descriptionCommand() const {
  return "xdg-open \"" + shell_escape(narrow_lib(documentPath())) + "\" 2>/dev/null";
}

void CInstallerDlg::finalize() {
  if (m_step != kStepSuccess && m_step != kStepError) return;
  // Only the success page has the check box; nothing is opened after an error.
  if (m_curPage == m_successPage.get() && m_successPage->isShowReadmeChecked()) {
    FileFinder finder;
    if (finder.reset(documentPath())) {
      finder.close();
      const std::string command = descriptionCommand();
      wizard_event("open " + command);
      run_linux_command(command.c_str());
    }
  }
  closeWindow();
}
