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

// Shows `text` in a parentless modal box (titled with owner->getTitle() when
// an owner is given) and returns the answer code. "%" in the text is shown
// as it is.
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

// The folder chooser: a modal chooser in folder-selection mode with the
// stock Cancel and Open buttons. True and the chosen folder (UTF-8) on
// Open; false when cancelled or closed.
bool choose_folder(std::string& folder);

// Replaces the real folder chooser; it returns what choose_folder returns.
using FolderChooserHook = std::function<bool(std::string& folder)>;
void set_folder_chooser_hook(FolderChooserHook hook);
