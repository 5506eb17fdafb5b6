// The plan of the narrow-span engine: how far to decimate, the FFT that
// gives the asked resolution at that rate, one tune whose down-converter
// lands as close to the centre as its step allows, and one capture list.
#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include "device/device.h"
#include "device/modes.h"
#include "dsp/window.h"
#include "rf/rf_glue.h"
#include "sweep/engine_narrow.h"
#include "sweep/plan_fast.h"
#include "sweep/sweep_mode.h"
#include "zr_correction_def.h"

namespace zr {

namespace {

using planning::roundI;
using planning::truncI;

constexpr int kMaxDecimation = 256;
constexpr int kMaxHardwareDecimation = 8;
constexpr int kMaxFft = 0x2000000;
constexpr int64_t kMaxNarrowSamples = int64_t(1) << 27;
constexpr double kPreselectTopHz = 6.45e8;
constexpr uint32_t kSecondPassDdcOffset = 160;

}  // namespace

NarrowDecimation narrowDecimation(double span, double baseRate) {
    const double W = 0.768 * baseRate;
    NarrowDecimation d;
    while (d.total < kMaxDecimation && span < W / (2.0 * d.total)) d.total *= 2;
    d.hardware = std::min(d.total, kMaxHardwareDecimation);
    d.software = d.total > kMaxHardwareDecimation ? d.total / kMaxHardwareDecimation : 1;
    return d;
}

ZrStatus buildNarrowPlan(ZrDevice& dev, SweepPlan& plan, CommandList& list, NarrowDecimation& dec) {
    ZrSweepSettings& s = dev.sweep;
    plan = SweepPlan{};
    list = CommandList{};
    ZrStatus status = zrNoError;
    const double baseRate = dev.networked() ? 2e8 : 5e7;

    dec = narrowDecimation(s.span, baseRate);
    const double r = baseRate / dec.total;
    const double windowBandwidth = windowBandwidthFactor(s.window);
    int w = truncI(std::min(windowBandwidth * r / s.rbw, double(kMaxFft)));
    if (w % 2) w -= 1;
    w = std::clamp(w, 4, kMaxFft);
    int fft = 64;
    while (fft < w) fft <<= 1;
    plan.fftSize = fft;
    plan.windowSize = w;
    plan.zeroPad = fft - w;
    plan.usableBins = (fft / 32) * 25;
    plan.firstUsableBin = (fft - plan.usableBins) / 2;
    // The setter keeps VBW within four decades below RBW; an RBW clamped
    // since then must not stretch the ratio past that.
    plan.vbwRatio = std::clamp(s.vbw / s.rbw, 1e-4, 1.0);
    plan.fftCount = truncI(std::ceil(1.0 / plan.vbwRatio));
    const int hop = fft / 4;
    int64_t needed = int64_t(plan.fftCount - 1) * hop + fft;
    const int64_t timed = int64_t(s.sweepTime / (2048.0 / r) * 2048.0);
    if (timed > needed) {
        plan.fftCount = int32_t((timed - w) / hop + 1);
        needed = timed;
    }
    plan.blocksPerStep = int32_t((needed + kCaptureBlockSamples - 1) / kCaptureBlockSamples) * dec.software;
    if (dec.software > 1) plan.blocksPerStep += 1;  // the filter's delay
    plan.passes = s.spurReject != 0 ? 2 : 1;
    plan.stepCount = 1;
    plan.startBin = 0;
    // The samples of one sweep are kept whole: at most 1 GiB of them.
    if (int64_t(plan.blocksPerStep) * plan.passes * kCaptureBlockSamples / dec.software > kMaxNarrowSamples)
        return zrAllocationErr;

    const double binSize = r / fft;
    const int q = roundI(s.span / binSize);
    const int L = q + 2 + (q % 2 != 0 ? 1 : 0);
    plan.firstKeptBin = (fft - L) / 2;
    s.actualRBW = windowBandwidth * r / w;
    s.actualVBW = s.vbw;
    s.sweepLength = L;
    s.startFreq = s.center - (L / 2) * binSize;
    s.binSize = binSize;
    s.windowBandwidth = windowBandwidth;

    int n = roundI(s.center / kSweepSliceHz);
    if (s.center < 165e6) n = std::min(n, 3);
    const bool ridge = dev.ridge();
    const int calSlice = std::clamp(n, 0, (ridge ? kRidgeSlices : kMesaSlices) - 1);
    SweepStep& st = plan.steps.emplace_back();
    st.loMHz = rf::sliceLoHz(n) / 1e6;
    const rf::DownConverterTune ddc = rf::downConverterTune(n, s.center);
    st.ddcWord = ddc.word;
    st.ncoFrequency = ddc.centerHz;
    st.decimation = dec.hardware;
    st.firstBin = plan.firstKeptBin;
    st.binCount = L;
    double filterGain = 0.0;
    dev.corrections.BuildIFFilter(calSlice, st.ifFilter.data(), true, &filterGain);
    const int attenIndex = rf::attenIndexFor(dev.attenuator, dev.refLevel);
    st.gainDb = float(double(dev.corrections.GetAttenGain(attenIndex, calSlice)) + filterGain);

    rf::TuneRequest req;
    req.kind = rf::kTuneSweep;
    req.rfFreq = n * kSweepSliceHz;
    req.loFreq = rf::sliceLoHz(n);
    req.attenIndex = attenIndex;
    req.gainCode = dev.gainCode(calSlice);
    req.filter = -1;
    req.firstSlice = 0;
    req.lastSlice = 500;
    req.loIndex = 5 * n;

    const bool preselected = dev.preselectorEnabled && s.center <= kPreselectTopHz;
    if (preselected || n == 0) {
        st.binCorrection.resize(size_t(L));
        if (preselected) {
            req.preselect = 1;
            req.filter = rf::selectPreselectFilter(s.center, n);
            dev.corrections.GetPreselectCurve(req.filter, s.startFreq, binSize, L, st.binCorrection.data());
            const PreselectFilter& f = preselectFilter(req.filter);
            if (f.start > s.startFreq || s.startFreq + L * binSize > f.stop) status = zrSpanLimitedByPreselector;
        } else {
            dev.corrections.GetLowFreqCurve(s.startFreq, binSize, L, st.binCorrection.data());
        }
        if (s.scale == zrScaleLin)
            for (float& v : st.binCorrection) v = std::exp(v * kDb20ToLn);
        st.hasBinCorrection = true;
    }

    const rf::DeviceRfCalibration cal(dev.corrections);
    auto tuneAndCapture = [&](uint32_t word, const float* taps) {
        rf::tune(dev.rf, ridge, cal, list, req);
        AppendIFFilter(list, req.band, req.subBand, taps, ridge);
        list.AppendWord(cmd::kCaptureStart | uint32_t(dec.hardware) << 16 | (word & 0xFFFFu));
        for (int b = 0; b < plan.blocksPerStep; ++b) list.AppendDataWord();
    };
    list.AppendListHead();
    list.AppendRegister(reg::kFftControl, 0);
    tuneAndCapture(uint32_t(st.ddcWord), st.ifFilter.data());
    int dataWords = plan.blocksPerStep;
    if (plan.passes == 2) {
        if (s.spurReject == 1 && dev.preselectorEnabled && s.center < kPreselectTopHz) {
            for (int b = 0; b < plan.blocksPerStep; ++b) list.AppendDataWord();
        } else {
            // The same RF through the next slice's LO: an image or spur of
            // the first pass does not move with it.
            uint32_t word = uint32_t(st.ddcWord);
            std::array<float, kIFFilterValues> taps = st.ifFilter;
            if (n > 3) {
                // The next slice's whole chain: its gain code and IF filter
                // too, and its calibration for this pass.
                const int next = std::min(calSlice + 1, (ridge ? kRidgeSlices : kMesaSlices) - 1);
                req.loFreq += kSweepSliceHz;
                req.rfFreq += kSweepSliceHz;
                req.loIndex += 5;
                req.gainCode = dev.gainCode(next);
                word += kSecondPassDdcOffset;
                double nextFilterGain = 0.0;
                dev.corrections.BuildIFFilter(next, taps.data(), true, &nextFilterGain);
                st.secondPassOwnGain = true;
                st.secondPassGainDb = float(double(dev.corrections.GetAttenGain(attenIndex, next)) + nextFilterGain);
            }
            tuneAndCapture(word, taps.data());
        }
        dataWords += plan.blocksPerStep;
    }
    for (; dataWords % 4 != 0; ++dataWords) list.AppendDataWord();
    list.AppendWord(cmd::kStreamStop);
    return status;
}

ZrStatus planSweepNarrow(ZrDevice& dev) {
    SweepPlan plan;
    CommandList list;
    NarrowDecimation dec;
    const ZrStatus status = buildNarrowPlan(dev, plan, list, dec);
    if (status < zrNoError) return status;
    if (dev.sweep.sweepLength < 1 || plan.firstKeptBin < 0 || plan.firstKeptBin + dev.sweep.sweepLength > plan.fftSize)
        return zrInvalidParameterErr;
    sendPendingRidgeWake(dev);
    dev.engine = std::make_unique<EngineSweepNarrow>(dev, dev.sweep, std::move(plan), list, dec);
    return status;
}

}  // namespace zr
