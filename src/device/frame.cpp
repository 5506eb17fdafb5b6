#include "device/frame.h"

namespace zr {

ZrDevice* deviceTable[kMaxDevices] = {};

int firstFreeHandle() {
    for (int i = 0; i < kMaxDevices; ++i)
        if (!deviceTable[i]) return i;
    return -1;
}

}  // namespace zr
