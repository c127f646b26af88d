// Artwork compiled into the program, as XPM data (made by
// tools/artwork/make_artwork.py): 256 colours, two characters per pixel.
#pragma once

// The main window's icon, 256 by 256.
extern const char** const kWindowIconXpm;
// The picture at the left side of the pages, 158 by 286.
extern const char** const kSideImageXpm;
