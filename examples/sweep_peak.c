/*
 * sweep_peak: list the instruments, open the first one, sweep 1 to 3 GHz
 * and print the strongest point of the trace.
 *
 * Without an instrument on USB it plugs in a simulated Mesa2 with a tone at
 * 2.4 GHz, so it runs anywhere. Optional argument: the library's data folder.
 */
#include <stdio.h>
#include <stdlib.h>

#include "zr_api.h"
#include "zr_sim.h"

static int failed(const char* what, ZrStatus status) {
    fprintf(stderr, "sweep_peak: %s: %s\n", what, zrGetErrorString(status));
    return 1;
}

int main(int argc, char** argv) {
    int serials[9], count = 0, device = -1, length = 0, i, best = 0;
    double rbw, vbw, start, bin;
    float* trace;
    int64_t timestamp;
    ZrStatus status;

    if (argc > 1 && (status = zrSetDataFolder(argv[1])) < 0) return failed("data folder", status);

    zrGetDeviceList(serials, &count);
    if (count == 0) {
        /* No hardware: a simulated instrument with one tone at its input. */
        zrSimSetWaitScale(0.01);
        zrSimAttachUSB(zrDeviceTypeMesa2, 10000001);
        zrSimAddTone(10000001, 2.4e9, -30.0);
        zrGetDeviceList(serials, &count);
    }
    printf("%d instrument(s); opening %08d\n", count, serials[0]);
    if ((status = zrOpenDeviceBySerial(&device, serials[0])) < 0) return failed("open", status);

    zrSetSweepStartStop(device, 1e9, 3e9);
    zrSetSweepCoupling(device, 1e6, 1e6, 0.001);
    zrSetSweepSpeed(device, zrSweepSpeedNormal); /* the stepped engine, also for RBW == VBW */
    zrSetRefLevel(device, -10.0);
    if ((status = zrConfigure(device, zrModeSweeping)) < 0) {
        zrCloseDevice(device);
        return failed("configure", status);
    }
    zrGetSweepParameters(device, &rbw, &vbw, &start, &bin, &length);
    trace = malloc(sizeof(float) * (size_t)length);
    if (!trace) {
        zrCloseDevice(device);
        return 1;
    }
    /* Warnings (above zero) still deliver a sweep; errors do not. */
    status = zrGetSweep(device, NULL, trace, &timestamp);
    zrCloseDevice(device);
    if (status < 0) {
        free(trace);
        return failed("sweep", status);
    }
    for (i = 1; i < length; ++i)
        if (trace[i] > trace[best]) best = i;
    printf("%d bins of %.1f Hz, RBW %.1f Hz\n", length, bin, rbw);
    printf("peak: %.6f GHz at %.2f dBm\n", (start + best * bin) / 1e9, trace[best]);
    free(trace);
    return 0;
}
