/* Compiled as C: the public header must stay C-compatible. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zr_api.h"

int main(void) {
    ZrDeviceType type;
    int serial = 0;
    if (strcmp(zrGetAPIVersion(), "2.2.0") != 0) return 1;
    if (zrGetDeviceInfo(9, &type, &serial) != zrInvalidDeviceErr) return 2;
    if (sizeof(ZrSweepSettings) != 120 || sizeof(ZrRealTimeSettings) != 120) return 3;
    {
        /* The calibration records are usable from C as they are. */
        MesaCalData* cal = (MesaCalData*)malloc(sizeof(MesaCalData));
        if (sizeof(MesaCalData) != 0x400000 || sizeof(RidgeCalData) != 0x800000 || !cal) return 4;
        zrCalBuildDummyCorrectionsMesa(cal);
        if (zrCalDoesCorrectionsExist((const uint8_t*)cal) || cal->temperature[10] != 66.0f) return 5;
        free(cal);
    }
    printf("%s\n", zrGetErrorString(zrNoError));
    return 0;
}
