// What the module offers to plugins beside the callback.
#pragma once

#include "quillbrook.h"

extern const quillbrook_services quillbrook_services_offered;
