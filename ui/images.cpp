#include "ui/images.h"

#include "ui/side_image.xpm"
#include "ui/window_icon.xpm"

const char** const kWindowIconXpm = window_icon_xpm;
const char** const kSideImageXpm = side_image_xpm;
