// What the Kit's library exports: classes and functions marked KORVANE_KIT.
#pragma once

#include "../../base/Export.h"

#if defined(KORVANE_KIT_BUILDING)
#define KORVANE_KIT KORVANE_EXPORTED
#else
#define KORVANE_KIT KORVANE_IMPORTED
#endif
