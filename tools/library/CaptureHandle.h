// The C API's capture handle: the picture a capture was read or copied into.
#pragma once

#include "analysis/Picture.h"

struct pm5544_capture {
    pm5544::analysis::Picture picture;
};
