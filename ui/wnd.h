// Base of the application's windows.
#pragma once

#include <string>

class CWnd {
 public:
  virtual ~CWnd() = default;
  // The window's title, UTF-16; message boxes owned by the window carry it.
  virtual std::u16string getTitle() const = 0;
};
