/*
 * zr_sim: simulated instruments for zr_api.
 *
 * A simulated USB instrument is plugged into the calling process by serial
 * number and then found by the library's open calls like a real one. Its
 * RF input is a scene of CW tones over a noise floor; its front end has a
 * gain that depends on frequency, attenuation and temperature.
 *
 * Bad arguments give zrInvalidParameterErr; a serial that is not attached
 * gives zrDeviceNotFoundErr.
 */
#ifndef ZR_SIM_H
#define ZR_SIM_H

#include "zr_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Plugs a simulated USB instrument (Mesa1, Mesa2 or Ridge2) into this
 * process. serial has 8 digits and must not be attached already. */
ZR_EXPORT ZrStatus zrSimAttachUSB(ZrDeviceType type, int serial);
/* Cable pull: transfers in flight and all later ones fail. The serial is
 * free to be attached again afterwards. */
ZR_EXPORT ZrStatus zrSimDetach(int serial);
/* A CW tone at the RF input. */
ZR_EXPORT ZrStatus zrSimAddTone(int serial, double freqHz, double powerDbm);
ZR_EXPORT ZrStatus zrSimClearSignals(int serial);
ZR_EXPORT ZrStatus zrSimSetNoiseFloor(int serial, double dbmPerHz);
ZR_EXPORT ZrStatus zrSimSetTemperature(int serial, float celsius);
/* The instrument's GPS receiver. Locked: a pulse each second and RMC/GGA
 * sentences with this position; unlocked: the sentences say "V" (no fix).
 * Latitude north positive, longitude east positive, degrees; altitude m. */
ZR_EXPORT ZrStatus zrSimSetGPS(int serial, ZrBool locked, double latitude, double longitude, double altitude);
/* Silent: the receiver stops answering; no pulses, no new text. */
ZR_EXPORT ZrStatus zrSimSetGPSSilent(int serial, ZrBool silent);
/* Process-wide: multiplies the protocol's fixed waits (resets, boots,
 * flash); 1.0 by default. Transfer time-outs are not affected. */
ZR_EXPORT ZrStatus zrSimSetWaitScale(double factor);

/* Faults, for the next `count` status-carrying reads. Stop answering hangs
 * the instrument: it takes command blocks and ignores them, and the next
 * `count` reads go unanswered until the host gives up on each. The FFT
 * data-loss and datagram faults answer zrInvalidParameterErr until the
 * features they belong to exist. */
typedef ZR_ENUM(ZrSimFault) {
    zrSimFaultADCOverflow = 0,
    zrSimFaultSampleLoss = 1,
    zrSimFaultBadMagic = 2,
    zrSimFaultFFTDataLoss = 3,
    zrSimFaultDropDatagram = 4,
    zrSimFaultStopAnswering = 5
} ZrSimFault;
ZR_EXPORT ZrStatus zrSimInjectFault(int serial, ZrSimFault fault, int count);
/* The factor zrSimSetWaitScale stored; the library's wait seam reads it. */
ZR_EXPORT double zrSimGetWaitScale(void);

#ifdef __cplusplus
}
#endif

#endif
