#pragma once
// The I/Q streaming mode as zrConfigure sees it: the USB models get the USB
// plan and its engine. The networked engine is not built yet; the
// networked plan exists and those models answer zrInvalidConfigurationErr.
#include "zr_api.h"

namespace zr {

struct ZrDevice;

ZrStatus configureIQStreaming(ZrDevice& dev);

}  // namespace zr
