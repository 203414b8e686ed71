#include "model/style_color.h"
// resolveStyleColor: to be written.
