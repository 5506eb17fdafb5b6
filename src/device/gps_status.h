#pragma once
// Where status blocks meet GPS and time: the part of the status decoder
// that runs the trigger ring, the receiver and the timebase discipline,
// and the short lists that GPS services send.

#include <cstdint>

#include "gps/gps_receiver.h"

namespace zr {

struct ZrDevice;
class CommandList;

// The GPS steps of status decoding, for a whole 8192-byte block whose magic
// and status word the caller has already found good: the trigger ring;
// then, unless skipGPS, the receiver with gpsFlag, and the discipline with
// the tune the block reported and the calibration's present timebase offset. A new discipline value goes to
// the timebase cache in the calibration folder; a failed write is ignored.
void decodeStatusGps(ZrDevice& dev, const uint8_t* block, uint16_t tuneReported, bool gpsFlag, bool skipGPS,
                     int timebaseOffset);

// Sends the timebase word of the device as it stands, without recomputing
// the tune. False when the send failed.
bool sendTimebaseWordAsIs(ZrDevice& dev);

// Largest message for the receiver: the word count is one byte.
constexpr int kMaxGpsMessageBytes = 255 * 4;
// Bytes for the receiver, zero-padded to whole words, behind one register
// word for 0x01C0. length must lie in 1..kMaxGpsMessageBytes.
void AppendGPSMessage(CommandList& list, const uint8_t* data, int length);

}  // namespace zr
