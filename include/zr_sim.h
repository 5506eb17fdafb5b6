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
/* Sine-modulated carriers: AM with depth 0..1 (powerDbm is the carrier's),
 * FM with peak deviation in Hz up to 200 modHz (powerDbm is the total).
 * modHz 1 Hz .. 1 MHz.
 * Both are exact sums of spectral lines, so every path sees them. */
ZR_EXPORT ZrStatus zrSimAddAM(int serial, double carrierHz, double powerDbm, double modHz, double depth);
ZR_EXPORT ZrStatus zrSimAddFM(int serial, double carrierHz, double powerDbm, double modHz, double deviationHz);
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

/* Identity and observation. The firmware version is reported in every
 * status block; set it before the open to test the library's firmware
 * gates. Registers are the instrument's 32-bit register file as the
 * command words left it; flash reads 0xFF where never written. */
ZR_EXPORT ZrStatus zrSimSetFirmware(int serial, int major, int minor, int revision);
ZR_EXPORT ZrStatus zrSimGetRegister(int serial, uint32_t address, uint32_t* value);
ZR_EXPORT ZrStatus zrSimReadFlash(int serial, uint32_t byteOffset, uint32_t count, uint8_t* out);
/* The last command word the instrument ran whose top byte is opcode (0x13
 * for the stream start and stop word, for example); 0 if none. */
ZR_EXPORT ZrStatus zrSimGetLastCommand(int serial, uint8_t opcode, uint32_t* word);

/* The instrument's clock: its 250 MHz tick counter as a 64-bit count that
 * never wraps (status blocks carry the low 32 bits), and the UTC in ns since
 * 1970 that its own GPS time puts on a tick; its GPS pulses fall on the
 * ticks whose UTC is a whole second.
 *
 * Time convention of the sample stream: the status block that ends a
 * transfer reports the running tick
 *   R = T_end - 1024 * hw * tpb + F_instr + L
 * with T_end the tick just after the transfer's last output sample, hw the
 * instrument's decimation, tpb the ticks per base sample (5.0 at 50 MS/s,
 * 4.0690104... at 61.44 MS/s), F_instr the instrument's filter delay (32,
 * 92 or 212 base samples at hw 2, 4, 8; none at 1) and L the link latency
 * (208 ticks at 50 MS/s, 422 at 61.44 MS/s). */
ZR_EXPORT ZrStatus zrSimGetTick(int serial, uint64_t* tick);
ZR_EXPORT ZrStatus zrSimUtcAtTick(int serial, uint64_t tick, int64_t* nsSinceEpoch);
/* Moves the tick counter, keeping UTC continuous; zrInvalidParameterErr
 * while a stream runs. To see the 32-bit counters wrap, start just below
 * a multiple of 2^32. */
ZR_EXPORT ZrStatus zrSimSetTick(int serial, uint64_t tick);
/* The tick at which the current (or last) stream's first output sample was
 * taken: the stream started by the last stream-start word. */
ZR_EXPORT ZrStatus zrSimGetStreamStartTick(int serial, uint64_t* tick);
/* Paced (the default) produces samples at the instrument's rate; unpaced
 * produces them as fast as they are read, the tick counter moving with
 * them (benchmarks). */
ZR_EXPORT ZrStatus zrSimSetPaced(int serial, ZrBool paced);

/* External trigger input: a rising edge at tick, falling widthNs later.
 * The instrument's trigger ring records the edge its trigger register
 * selects, once its clock has passed it. */
ZR_EXPORT ZrStatus zrSimTriggerAtTick(int serial, uint64_t tick, double widthNs);

/* Faults, for the next `count` status-carrying reads: overload sets the
 * overload flag; sample loss sets the data-loss flag in the next status
 * and advances the loss counter by count; bad magic spoils the status
 * block's check word. Stop answering hangs the instrument: it takes command
 * blocks and ignores them, and the next `count` reads go unanswered until
 * the host gives up on each. The FFT data-loss and datagram faults answer
 * zrInvalidParameterErr until the features they belong to exist. */
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
