// Settings setters: they store clamped values into the device and talk to no
// instrument; a new value takes effect at the next zrConfigure.
//
// Non-finite doubles (NaN, +-Inf) have no nearest legal value that a caller
// could have meant, and NaN slips through every comparison a clamp makes, so
// they are rejected with zrInvalidParameterErr and nothing is stored. The
// trigger sentinel is the one exception: it is a marker value, and NaN is a
// reasonable marker.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "audio/engine_audio.h"
#include "device/frame.h"
#include "device/settings.h"

using namespace zr;

namespace zr {

double iqTriggerSentinel = 0.0;

bool clampValue(double& v, double lo, double hi) {
    if (v < lo) { v = lo; return true; }
    if (v > hi) { v = hi; return true; }
    return false;
}

bool validWindow(int window) {
    return window == zrWindowFlatTop || (window >= zrWindowNuttall && window <= zrWindowRect);
}

bool isPowerOfTwoDecimation(int d) { return d >= 1 && d <= 4096 && (d & (d - 1)) == 0; }

bool addSegmentSamples(uint32_t& total, uint64_t term) {
    if (term > kMaxSegmentedSamples || total + term > kMaxSegmentedSamples) return false;
    total += static_cast<uint32_t>(term);
    return true;
}

}  // namespace zr

namespace {

// Segmented setters carry the model gate: no capture memory looks like a bad
// handle to the caller.
template <class F>
ZrStatus withCaptureDevice(int handle, F&& work) {
    if (ZrDevice* dev = lookupDevice(handle); dev && !dev->captureMemory()) return zrInvalidDeviceErr;
    return withDevice(handle, std::forward<F>(work));
}

ZrStatus clampFrequency(const ZrDevice& dev, double& f) {
    return clampValue(f, kMinFrequency, dev.maxFrequency) ? zrSettingClamped : zrNoError;
}

ZrStatus storeSweepEdges(ZrDevice& dev, double start, double stop) {
    // A reversed range has no nearest legal value.
    if (stop < start) return zrInvalidParameterErr;
    bool moved = clampValue(start, kMinFrequency, dev.maxFrequency);
    moved |= clampValue(stop, kMinFrequency, dev.maxFrequency);
    dev.sweep.center = (start + stop) / 2.0;
    dev.sweep.span = stop - start;
    return moved ? zrSettingClamped : zrNoError;
}

bool stepIndexValid(const ZrDevice& dev, int step) {
    return step >= 0 && static_cast<size_t>(step) < dev.iqSweepList.steps.size();
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------- sweep

ZR_EXPORT ZrStatus zrSetSweepSpeed(int device, ZrSweepSpeed speed) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(speed, zrSweepSpeedFast)) return zrInvalidParameterErr;
        d.sweep.speed = speed;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSweepCenterSpan(int device, double center, double span) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(center) || !isFiniteArg(span)) return zrInvalidParameterErr;
        return storeSweepEdges(d, center - span / 2.0, center + span / 2.0);
    });
}

ZR_EXPORT ZrStatus zrSetSweepStartStop(int device, double start, double stop) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(start) || !isFiniteArg(stop)) return zrInvalidParameterErr;
        // Same path as centre and span, so both setters agree to the bit.
        const double center = (start + stop) / 2.0, span = stop - start;
        return storeSweepEdges(d, center - span / 2.0, center + span / 2.0);
    });
}

ZR_EXPORT ZrStatus zrSetSweepCoupling(int device, double rbw, double vbw, double sweepTime) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(rbw) || !isFiniteArg(vbw) || !isFiniteArg(sweepTime)) return zrInvalidParameterErr;
        // A resolution bandwidth of zero or less has no meaning to clamp to.
        if (!(rbw > 0.0)) return zrInvalidParameterErr;
        bool moved = false;
        if (vbw > rbw) { vbw = rbw; moved = true; }
        if (rbw / 10000.0 > vbw) { vbw = rbw / 10000.0; moved = true; }
        moved |= clampValue(sweepTime, 1e-6, 100.0);
        d.sweep.rbw = rbw;  // checked by the sweep plan, not here
        d.sweep.vbw = vbw;
        d.sweep.sweepTime = sweepTime;
        return moved ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSweepDetector(int device, ZrDetector detector, ZrVideoUnits units) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(detector, zrDetectorMinMax) || !enumInRange(units, zrVideoSample))
            return zrInvalidParameterErr;
        d.sweep.detector = detector;
        d.sweep.videoUnits = units;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSweepScale(int device, ZrScale scale) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(scale, zrScaleLin)) return zrInvalidParameterErr;
        d.sweep.scale = scale;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSweepWindow(int device, ZrWindowType window) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!validWindow(window)) return zrInvalidParameterErr;
        d.sweep.window = window;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSweepSpurReject(int device, ZrBool enabled) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(enabled, zrTrue)) return zrInvalidParameterErr;
        d.sweep.spurReject = enabled;
        return zrNoError;
    });
}

// ---------------------------------------------------------------- real time

ZR_EXPORT ZrStatus zrSetRealTimeCenterSpan(int device, double center, double span) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(center) || !isFiniteArg(span)) return zrInvalidParameterErr;
        bool moved = clampValue(center, kMinFrequency, d.maxFrequency);
        moved |= clampValue(span, 200000.0, 1.6e8);
        d.realTime.center = center;
        d.realTime.span = span;
        return moved ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetRealTimeRBW(int device, double rbw) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(rbw)) return zrInvalidParameterErr;
        const bool moved = clampValue(rbw, 1500.0, 1e7);
        d.realTime.rbw = rbw;
        return moved ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetRealTimeDetector(int device, ZrDetector detector) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(detector, zrDetectorMinMax)) return zrInvalidParameterErr;
        d.realTime.detector = detector;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetRealTimeScale(int device, ZrScale scale, double refLevel, double dynamicRange) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(scale, zrScaleLin) || !isFiniteArg(refLevel) || !isFiniteArg(dynamicRange))
            return zrInvalidParameterErr;
        d.realTime.scale = scale;
        d.realTime.refLevel = refLevel;
        d.realTime.dynamicRange = dynamicRange;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetRealTimeWindow(int device, ZrWindowType window) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!validWindow(window)) return zrInvalidParameterErr;
        d.realTime.window = window;
        return zrNoError;
    });
}

// ---------------------------------------------------------------- I/Q

ZR_EXPORT ZrStatus zrSetIQBaseSampleRate(int device, ZrIQBaseRate rate) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(rate, zrIQBaseRate61M44)) return zrInvalidParameterErr;
        if (!d.allowsIQBaseRate()) return zrInvalidConfigurationErr;
        d.iq.baseRate = rate;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQDataType(int device, ZrDataType type) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(type, zrDataType16sc)) return zrInvalidParameterErr;
        d.iq.dataType = type;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQCenterFreq(int device, double center) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(center)) return zrInvalidParameterErr;
        const ZrStatus s = clampFrequency(d, center);
        d.iq.center = center;
        return s;
    });
}

ZR_EXPORT ZrStatus zrSetIQSampleRate(int device, int decimation) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isPowerOfTwoDecimation(decimation)) return zrInvalidIQDecimationErr;
        d.iq.decimation = decimation;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQBandwidth(int device, ZrBool softwareFilter, double bandwidth) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(softwareFilter, zrTrue) || !isFiniteArg(bandwidth)) return zrInvalidParameterErr;
        d.iq.softwareFilter = softwareFilter;
        d.iq.bandwidth = bandwidth;  // the I/Q plan limits it
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQExtTriggerEdge(int device, ZrTriggerEdge edge) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(edge, zrTriggerEdge1)) return zrInvalidParameterErr;
        d.iq.extTriggerEdge = edge;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQTriggerSentinel(double sentinel) {
    iqTriggerSentinel = sentinel;
    return zrNoError;
}

ZR_EXPORT ZrStatus zrSetIQQueueSize(int device, float milliseconds) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(milliseconds)) return zrInvalidParameterErr;
        // Clamped silently: the queue is a buffer size, not a measurement
        // setting a caller needs to be warned about.
        d.iq.queueSizeMs = std::min(std::max(milliseconds, kMinIQQueueMs), kMaxIQQueueMs);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQUSBQueueSize(int device, float milliseconds) {
    return zrSetIQQueueSize(device, milliseconds);
}

// ---------------------------------------------------------------- I/Q sweep list

ZR_EXPORT ZrStatus zrSetIQSweepListDataType(int device, ZrDataType type) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(type, zrDataType16sc)) return zrInvalidParameterErr;
        d.iqSweepList.dataType = type;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQSweepListCorrected(int device, ZrBool corrected) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(corrected, zrTrue)) return zrInvalidParameterErr;
        d.iqSweepList.uncorrected = corrected == zrTrue ? 0 : 1;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQSweepListSteps(int device, int steps) {
    return withDevice(device, [&](ZrDevice& d) {
        if (steps < 1 || steps > kMaxSweepListSteps) return zrInvalidParameterErr;
        d.iqSweepList.steps.resize(static_cast<size_t>(steps));
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQSweepListFreq(int device, int step, double freq) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!stepIndexValid(d, step) || !isFiniteArg(freq)) return zrInvalidParameterErr;
        const ZrStatus s = clampFrequency(d, freq);
        d.iqSweepList.steps[step].frequency = freq;
        return s;
    });
}

ZR_EXPORT ZrStatus zrSetIQSweepListRef(int device, int step, double refLevel) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!stepIndexValid(d, step) || !isFiniteArg(refLevel)) return zrInvalidParameterErr;
        const bool moved = clampValue(refLevel, -100.0, 20.0);
        d.iqSweepList.steps[step].refLevel = refLevel;
        // A reference level asks for the automatic attenuator.
        d.iqSweepList.steps[step].attenuator = -1;
        return moved ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQSweepListAtten(int device, int step, int atten) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!stepIndexValid(d, step)) return zrInvalidParameterErr;
        const int clamped = std::min(std::max(atten, -1), 6);
        d.iqSweepList.steps[step].attenuator = clamped;
        return clamped != atten ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQSweepListSampleCount(int device, int step, uint32_t samples) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!stepIndexValid(d, step)) return zrInvalidParameterErr;
        d.iqSweepList.steps[step].sampleCount = samples;
        return zrNoError;
    });
}

// ---------------------------------------------------------------- segmented

ZR_EXPORT ZrStatus zrSetSegIQDataType(int device, ZrDataType type) {
    return withCaptureDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(type, zrDataType16sc)) return zrInvalidParameterErr;
        d.segmented.dataType = type;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSegIQCenterFreq(int device, double center) {
    return withCaptureDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(center)) return zrInvalidParameterErr;
        const ZrStatus s = clampFrequency(d, center);
        d.segmented.center = center;
        return s;
    });
}

ZR_EXPORT ZrStatus zrSetSegIQVideoTrigger(int device, double level, ZrTriggerEdge edge) {
    return withCaptureDevice(device, [&](ZrDevice& d) {
        // Rejection before clamping: a bad edge stores nothing, not even the level.
        if (!enumInRange(edge, zrTriggerEdge1) || !isFiniteArg(level)) return zrInvalidParameterErr;
        const bool moved = clampValue(level, -100.0, 20.0);
        d.segmented.videoTriggerLevel = level;
        d.segmented.videoTriggerEdge = edge;
        return moved ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSegIQExtTrigger(int device, ZrTriggerEdge edge) {
    return withCaptureDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(edge, zrTriggerEdge1)) return zrInvalidParameterErr;
        d.segmented.extTriggerEdge = edge;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSegIQFMTParams(int device, int fftSize, const double* frequencies,
                                       const double* amplitudes, int count) {
    return withCaptureDevice(device, [&](ZrDevice& d) {
        if (!frequencies || !amplitudes) return zrNullPtrErr;
        bool sizeOk = false;
        for (int s = 512; s <= 16384; s *= 2) sizeOk |= fftSize == s;
        if (!sizeOk || count < 1) return zrInvalidConfigurationErr;
        for (int i = 0; i < count; ++i) {
            if (!isFiniteArg(frequencies[i]) || !isFiniteArg(amplitudes[i])) return zrInvalidConfigurationErr;
            if (i > 0 && frequencies[i] < frequencies[i - 1]) return zrInvalidConfigurationErr;
        }
        d.segmented.maskFftSize = fftSize;
        d.segmented.maskFrequencies.assign(frequencies, frequencies + count);
        d.segmented.maskAmplitudes.assign(amplitudes, amplitudes + count);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSegIQSegmentCount(int device, int count) {
    return withCaptureDevice(device, [&](ZrDevice& d) {
        if (count < 1 || count > kMaxSegments) return zrInvalidParameterErr;
        d.segmented.segments.resize(static_cast<size_t>(count));
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetSegIQSegment(int device, int segment, ZrTriggerType type, int preTrigger,
                                     uint32_t captureSize, double timeout) {
    return withCaptureDevice(device, [&](ZrDevice& d) {
        auto& segs = d.segmented.segments;
        if (segment < 0 || static_cast<size_t>(segment) >= segs.size()) return zrInvalidParameterErr;
        // A negative pre-trigger has no meaning in capture memory.
        if (preTrigger < 0 || !isFiniteArg(timeout)) return zrInvalidParameterErr;
        uint64_t pre = static_cast<uint64_t>(preTrigger);
        uint64_t size = captureSize;
        if (type == zrTriggerTypeImmediate) {
            // Nothing to wait for, so the pre-trigger part is simply more capture.
            size += pre;
            pre = 0;
        }
        uint32_t total = 0;
        for (size_t i = 0; i < segs.size(); ++i) {
            const uint64_t p = i == static_cast<size_t>(segment) ? pre : static_cast<uint64_t>(std::max(segs[i].preTrigger, 0));
            const uint64_t c = i == static_cast<size_t>(segment) ? size : segs[i].captureSize;
            if (!addSegmentSamples(total, p) || !addSegmentSamples(total, c)) return zrInvalidParameterErr;
        }
        ZrSegmentSettings& s = segs[segment];
        s.triggerType = static_cast<uint32_t>(type);
        s.preTrigger = static_cast<int32_t>(pre);
        s.captureSize = static_cast<uint32_t>(size);
        s.timeout = timeout;
        return zrNoError;
    });
}

// ---------------------------------------------------------------- audio

ZR_EXPORT ZrStatus zrSetAudioCenterFreq(int device, double center) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(center)) return zrInvalidParameterErr;
        const ZrStatus s = clampFrequency(d, center);
        d.audio.center = center;
        return s;
    });
}

ZR_EXPORT ZrStatus zrSetAudioType(int device, ZrAudioType type) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(type, zrAudioCW)) return zrInvalidParameterErr;
        d.audio.type = type;
        // A running demodulator takes the new type at its next block.
        if (auto* audio = dynamic_cast<EngineAudio*>(d.engine.get())) audio->setType(type);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetAudioFilters(int device, double ifBandwidth, double lowPass, double highPass) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(ifBandwidth) || !isFiniteArg(lowPass) || !isFiniteArg(highPass))
            return zrInvalidParameterErr;
        bool moved = clampValue(ifBandwidth, 500.0, 250000.0);
        moved |= clampValue(lowPass, 1000.0, 12000.0);
        moved |= clampValue(highPass, 20.0, 1000.0);
        d.audio.ifBandwidth = ifBandwidth;
        d.audio.lowPass = lowPass;
        d.audio.highPass = highPass;
        return moved ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetAudioFMDeemphasis(int device, double microseconds) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(microseconds)) return zrInvalidParameterErr;
        const bool moved = clampValue(microseconds, 1.0, 100.0);
        d.audio.fmDeemphasisUs = microseconds;
        return moved ? zrSettingClamped : zrNoError;
    });
}

// ---------------------------------------------------------------- full band

ZR_EXPORT ZrStatus zrSetIQFullBandAtten(int device, int atten) {
    return withDevice(device, [&](ZrDevice& d) {
        if (atten < 0 || atten > 6) return zrInvalidParameterErr;
        d.fullBand.attenuator = static_cast<uint32_t>(atten);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQFullBandCorrected(int device, ZrBool corrected) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(corrected, zrTrue)) return zrInvalidParameterErr;
        d.fullBand.corrected = corrected;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQFullBandSamples(int device, int samples) {
    return withDevice(device, [&](ZrDevice& d) {
        if (samples < 2048 || samples > 32768) return zrInvalidParameterErr;
        d.fullBand.samples = samples;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQFullBandTriggerType(int device, ZrTriggerType type) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(type, zrTriggerTypeExternal)) return zrInvalidParameterErr;
        if (type == zrTriggerTypeVideo && !d.allowsFullBandTrigger()) return zrInvalidConfigurationErr;
        d.fullBand.triggerType = type;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQFullBandVideoTrigger(int device, double level) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!d.allowsFullBandTrigger()) return zrInvalidConfigurationErr;
        if (!isFiniteArg(level)) return zrInvalidParameterErr;
        d.fullBand.videoTriggerLevel = level;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetIQFullBandTriggerTimeout(int device, double seconds) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!d.allowsFullBandTrigger()) return zrInvalidConfigurationErr;
        if (!(seconds >= 0.0 && seconds <= 1.0)) return zrInvalidParameterErr;
        d.fullBand.triggerTimeout = seconds;
        return zrNoError;
    });
}

}  // extern "C"
