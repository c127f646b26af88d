// The wizard's pages: sets of widgets placed at fixed positions in the main
// window's page area. A page only creates its widgets; showing and hiding
// them is the dialog's business (CInstallerDlg::setCurPage). GUI thread only.
#pragma once

#include <gtk/gtk.h>

#include <string>
#include <vector>

// The layout grows with the desktop font: every position and size on the
// page area is the one of the 500 by 360 layout times the area's scale,
// which is 1 at the default font (a scale below 1 is taken as 1).
void set_layout_scale(GtkWidget* fixed, double scale);
// `pixels` times the scale of the page area `fixed`, rounded.
int scaled(GtkWidget* fixed, int pixels);
// Puts `widget` into `fixed` at the scaled (x, y); gives it the scaled size
// when `width` and `height` are not -1.
void put_scaled(GtkWidget* fixed, GtkWidget* widget, int x, int y, int width = -1, int height = -1);

// The main-area label: at (170, 10), 330 by 250, wrapping (inside a word
// only when the word alone is wider than a line, as a long path is), text at
// the top left, empty. Added to `fixed`, which owns it.
GtkWidget* createMainAreaLabel(GtkWidget* fixed);

// The folder a path typed into the directory page names: "\\" read as "/",
// "~" and a leading "~/" standing for the home folder. Empty when that is
// not an absolute path (a relative one, or "~" with no home folder known).
std::u16string typed_target(std::u16string typed);

class WizardDialogPage {
 public:
  // The widgets go into `fixed` (a GtkFixed), which owns them.
  explicit WizardDialogPage(GtkWidget* fixed);
  virtual ~WizardDialogPage() = default;
  WizardDialogPage(const WizardDialogPage&) = delete;
  WizardDialogPage& operator=(const WizardDialogPage&) = delete;

  // Called after the page's widgets were shown.
  virtual void onShow() {}

  // Every widget of the page, in creation order.
  const std::vector<GtkWidget*>& widgets() const { return m_widgets; }

 protected:
  // Records `widget` as one of the page's widgets and returns it.
  GtkWidget* addWidget(GtkWidget* widget);
  // A GtkImage of `sideImage` at the page area's origin; a screen reader
  // passes over it (it is decoration).
  void addSideImage(GdkPixbuf* sideImage);

  GtkWidget* m_parent;

 private:
  std::vector<GtkWidget*> m_widgets;
};

// A page with the side image and one wrapped text (welcome and final pages).
class MessagePage : public WizardDialogPage {
 public:
  MessagePage(GtkWidget* fixed, GdkPixbuf* sideImage, const std::u16string& text);
  void setMessage(const std::u16string& text);
  GtkWidget* label() const { return m_label; }

 protected:
  GtkWidget* m_image = nullptr;
  GtkWidget* m_label = nullptr;
};

// The success page: a message and the check box that asks for the package's
// description document (checked when created), at (170, 170) or, when the
// message reaches down there, just below it.
class SuccessFinalPage : public MessagePage {
 public:
  SuccessFinalPage(GtkWidget* fixed, GdkPixbuf* sideImage, const std::u16string& text);
  bool isShowReadmeChecked() const;
  GtkWidget* checkBox() const { return m_checkBox; }

 private:
  GtkWidget* m_checkBox = nullptr;
};

// The choice of the template directory: prompt, caption, path entry and a
// browse button that opens the folder chooser.
class DirSelectPage : public WizardDialogPage {
 public:
  DirSelectPage(GtkWidget* fixed, GdkPixbuf* sideImage);
  void onShow() override {}

  // The path in the entry. While the entry still shows what setPath put
  // there, that path exactly (bytes that are not valid text included);
  // once the user changed it, the text as typed. Empty for an empty entry.
  std::u16string getPath() const;
  // Shows `path` in the entry: as it is when it is valid UTF-8 text, else
  // with U+FFFD in place of each byte that is not.
  void setPath(const std::u16string& path);
  // `path` in the locale's byte encoding (as file names come from the system).
  void setPath(const std::string& path);
  // Runs the folder chooser, opened at the folder the entry names when it
  // exists; a chosen folder replaces the entry's text.
  void showDirDialog();

  GtkWidget* entry() const { return m_entry; }
  GtkWidget* prompt() const { return m_prompt; }
  GtkWidget* browseButton() const { return m_browse; }

 private:
  GtkWidget* m_image = nullptr;
  GtkWidget* m_entry = nullptr;
  GtkWidget* m_prompt = nullptr;
  GtkWidget* m_caption = nullptr;
  GtkWidget* m_browse = nullptr;
  std::u16string m_path;  // the path last set
  std::string m_shown;    // the entry text shown for it
};

// The installation's progress: a status text above a bar, which a screen
// reader names by the text.
class ProgressPage : public WizardDialogPage {
 public:
  // `width` is the bar's width.
  ProgressPage(GtkWidget* fixed, int width);
  // Shows percent/100 on the bar; the text says "finished" at exactly 100.
  void setProgress(int percent);

  GtkWidget* statusLabel() const { return m_status; }
  GtkWidget* bar() const { return m_bar; }

 private:
  GtkWidget* m_status = nullptr;
  GtkWidget* m_bar = nullptr;
  std::string m_runningText;
  std::string m_finishedText;
};
