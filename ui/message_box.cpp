#include "ui/message_box.h"

#include "compat/text.h"
#include "ui/wizard_events.h"
#include "ui/wnd.h"

namespace {

MessageBoxHook& message_box_hook() {
  static MessageBoxHook hook;
  return hook;
}

FolderChooserHook& folder_chooser_hook() {
  static FolderChooserHook hook;
  return hook;
}

// The window a box or chooser is kept above: `window` while it is on screen.
GtkWindow* transient_parent(GtkWidget* window) {
  return window && gtk_widget_get_visible(window) ? GTK_WINDOW(window) : nullptr;
}

int run_real_box(GtkWindow* parent, GtkMessageType type, GtkButtonsType buttons,
                 const std::string& title, const std::string& text) {
  // Transient for the wizard: the window manager keeps the box above it and
  // gives it the focus.
  GtkWidget* box =
      gtk_message_dialog_new(parent, GTK_DIALOG_MODAL, type, buttons, "%s", text.c_str());
  if (!title.empty()) gtk_window_set_title(GTK_WINDOW(box), title.c_str());
  gtk_window_set_position(GTK_WINDOW(box),
                          parent ? GTK_WIN_POS_CENTER_ON_PARENT : GTK_WIN_POS_CENTER);
  // Return on a question keeps things as they are.
  if (buttons == GTK_BUTTONS_YES_NO)
    gtk_dialog_set_default_response(GTK_DIALOG(box), GTK_RESPONSE_NO);
  int response = gtk_dialog_run(GTK_DIALOG(box));
  gtk_widget_destroy(box);
  return response;
}

}  // namespace

GtkMessageType message_box_type(unsigned flags) {
  switch (flags >> 24) {
    case 0x01:
      return GTK_MESSAGE_ERROR;
    case 0x02:
      return GTK_MESSAGE_QUESTION;
    default:
      return GTK_MESSAGE_OTHER;
  }
}

GtkButtonsType message_box_buttons(unsigned flags) {
  return (flags & 0xFF) == 2 ? GTK_BUTTONS_YES_NO : GTK_BUTTONS_OK;
}

unsigned message_box_answer(int response) {
  switch (response) {
    case GTK_RESPONSE_YES:
      return kAnswerYes;
    case GTK_RESPONSE_NO:
      return kAnswerNo;
    case GTK_RESPONSE_OK:
      return kAnswerOk;
    default:
      return kAnswerNone;
  }
}

unsigned messageBox(CWnd* owner, const std::u16string& text, unsigned flags) {
  const GtkMessageType type = message_box_type(flags);
  const GtkButtonsType buttons = message_box_buttons(flags);
  const std::string title = owner ? narrow_lib(owner->getTitle()) : std::string();
  const std::string body = narrow_lib(text);
  wizard_event("box=" + body);
  const MessageBoxHook& hook = message_box_hook();
  const int response = hook ? hook(type, buttons, title, body)
                            : run_real_box(transient_parent(owner ? owner->window() : nullptr),
                                           type, buttons, title, body);
  return message_box_answer(response);
}

void set_message_box_hook(MessageBoxHook hook) { message_box_hook() = std::move(hook); }

bool choose_folder(GtkWidget* parent, const std::string& title, std::string& folder) {
  const FolderChooserHook& hook = folder_chooser_hook();
  if (hook) return hook(folder);
  GtkWidget* chooser = gtk_file_chooser_dialog_new(
      title.c_str(), transient_parent(parent), GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER,
      GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL, GTK_STOCK_OPEN, GTK_RESPONSE_ACCEPT, nullptr);
  gtk_window_set_modal(GTK_WINDOW(chooser), TRUE);
  if (!folder.empty() && g_file_test(folder.c_str(), G_FILE_TEST_IS_DIR))
    gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(chooser), folder.c_str());
  bool chosen = false;
  if (gtk_dialog_run(GTK_DIALOG(chooser)) == GTK_RESPONSE_ACCEPT) {
    if (gchar* name = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(chooser))) {
      folder = name;
      g_free(name);
      chosen = true;
    }
  }
  gtk_widget_destroy(chooser);
  return chosen;
}

void set_folder_chooser_hook(FolderChooserHook hook) { folder_chooser_hook() = std::move(hook); }
