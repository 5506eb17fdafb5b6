#pragma once
// The simulated USB bus: attached instruments enumerate with the vendor id,
// product ids and product strings of real ones, in their boot or run state,
// and carry bulk transfers to the instrument model. The library reaches it
// through zrSimUSBBus, which it looks up weakly, so the same transport code
// drives real and simulated instruments.
#include "transport/usb_bus.h"
#include "zr_api.h"

extern "C" ZR_EXPORT zr::UsbBus* zrSimUSBBus(void);
