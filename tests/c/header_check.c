/* Compiled as C: the public header must stay C-compatible. */
#include <stdio.h>
#include <string.h>

#include "zr_api.h"

int main(void) {
    ZrDeviceType type;
    int serial = 0;
    if (strcmp(zrGetAPIVersion(), "2.2.0") != 0) return 1;
    if (zrGetDeviceInfo(9, &type, &serial) != zrInvalidDeviceErr) return 2;
    if (sizeof(ZrSweepSettings) != 120 || sizeof(ZrRealTimeSettings) != 120) return 3;
    printf("%s\n", zrGetErrorString(zrNoError));
    return 0;
}
