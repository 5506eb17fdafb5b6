#pragma once
// The audio mode as zrConfigure sees it: an I/Q stream at 3.125 MS/s on the
// audio centre, with the demodulator on top.
#include "zr_api.h"

namespace zr {

struct ZrDevice;

ZrStatus configureAudio(ZrDevice& dev);

}  // namespace zr
