// Base of the application's windows.
#pragma once

#include <string>

typedef struct _GtkWidget GtkWidget;

class CWnd {
 public:
  virtual ~CWnd() = default;
  // The window's title, UTF-16; message boxes owned by the window carry it.
  virtual std::u16string getTitle() const = 0;
  // The top-level window on screen, null while there is none. Boxes owned
  // by the window are kept above it (transient for it).
  GtkWidget* window() const { return m_window; }

 protected:
  GtkWidget* m_window = nullptr;
};
