// Between a caller who cuts as he likes and codecs that want whole frames at their own rate: the byte queue and the
// sampling-rate converter.
#pragma once

#include "stream/byte_fifo.h"
#include "stream/freq_change.h"
