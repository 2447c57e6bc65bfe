// The MPEG audio frame as both directions see it: header, allocation tables, frame size, check word, and the constants
// that decoder and encoder share.
#pragma once

#include "format/alloc_tables.h"
#include "format/frame_check.h"
#include "format/frame_header.h"
#include "format/scale_factors.h"
#include "format/window.h"
