// What the wizard does that a person would see: "page=welcome",
// "box=<text>", "cancel requested", "open <command>". The program's own
// definition ignores them; end-to-end test builds of the program link one
// that prints them, so a script can follow the wizard from outside.
#pragma once

#include <string>

void wizard_event(const std::string& what);
