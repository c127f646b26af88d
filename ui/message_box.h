// The one way the wizard tells the user something outside its pages: a modal
// message box. GUI thread only.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>

class CWnd;

// Flags: the top byte chooses the kind, the low byte the buttons.
constexpr unsigned kMessageBoxError = 0x01000001;     // error, OK
constexpr unsigned kMessageBoxQuestion = 0x02000002;  // question, Yes and No
constexpr unsigned kMessageBoxPlain = 1;              // no icon, OK

// Answers of messageBox.
constexpr unsigned kAnswerNone = 0;  // closed without a button, Cancel, Close
constexpr unsigned kAnswerYes = 1;
constexpr unsigned kAnswerNo = 2;
constexpr unsigned kAnswerOk = 3;

// Shows `text` in a modal box and returns the answer code. With an owner the
// box carries owner->getTitle() and, while the owner's window is on screen,
// stays above it, centred on it. A question's default answer is No. "%" in
// the text is shown as it is.
unsigned messageBox(CWnd* owner, const std::u16string& text, unsigned flags);

// Kind of box for `flags`: 0x01 error, 0x02 question, anything else other.
GtkMessageType message_box_type(unsigned flags);
// Buttons for `flags`: low byte 2 gives Yes and No, anything else OK.
GtkButtonsType message_box_buttons(unsigned flags);
// Answer code for a dialog response (GtkResponseType).
unsigned message_box_answer(int response);

// Replaces the real box: the hook gets kind, buttons, title ("" without an
// owner) and text (UTF-8) and returns a GtkResponseType. An empty hook
// restores the real box.
using MessageBoxHook = std::function<int(GtkMessageType type, GtkButtonsType buttons,
                                         const std::string& title, const std::string& text)>;
void set_message_box_hook(MessageBoxHook hook);

// The folder chooser: a modal chooser in folder-selection mode titled
// `title` (UTF-8), with the stock Cancel and Open buttons, kept above
// `parent` (may be null). It opens at `folder` when that names an existing
// folder (file-system bytes). True and the chosen folder in `folder` on
// Open; false, `folder` unchanged, when cancelled or closed.
bool choose_folder(GtkWidget* parent, const std::string& title, std::string& folder);

// Replaces the real folder chooser: it gets `folder` as choose_folder does
// and returns what choose_folder returns.
using FolderChooserHook = std::function<bool(std::string& folder)>;
void set_folder_chooser_hook(FolderChooserHook hook);
