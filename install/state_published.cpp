#include "install/session.h"

// Kept in a file of its own so that a test program can link its own version.
void after_install_state_published() {}
