#include "compat/file_system.h"
#include "install/installer.h"

// Kept in a file of its own so that a test program can link its own version.
void finishing_pause(int milliseconds) { Sleep(milliseconds); }
