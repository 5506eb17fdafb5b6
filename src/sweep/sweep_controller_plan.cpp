// The plan of the normal sweep engine: sizes, the step records with their
// filters and gains, and the one list that acquires a whole sweep.
#include <algorithm>
#include <cmath>
#include <new>

#include "device/device.h"
#include "device/modes.h"
#include "platform/checked.h"
#include "dsp/window.h"
#include "rf/rf_glue.h"
#include "sweep/engine_sweep_controller.h"
#include "sweep/sweep_mode.h"

namespace zr {

namespace {

constexpr double kBlockSeconds = 4.096e-5;   // one 2048-sample block at 50 MS/s
constexpr double kSliceSeconds = 2.5e-5;     // what a slice costs besides its blocks
constexpr uint32_t kMesaLoSettlePause = 64000;
constexpr uint32_t kSecondPassDdcOffset = 160;

int32_t truncI(double x) { return truncChecked(x); }
int32_t roundI(double x) { return roundChecked(x); }

int nextPow2AtLeast(int n, int minimum) {
    int p = minimum;
    while (p < n) p <<= 1;
    return p;
}

// First-pass tuning of a slice.
double sliceLoMHz(int n) { return rf::sliceLoHz(n) / 1e6; }
int32_t sliceDdcWord(int n) {
    switch (n) {
        case 0: return 0;
        case 1: return 864;
        case 2: return 704;
        case 3: return 32;
        default: return 672;
    }
}

// The calibration tables of the unpreselected stretch are indexed by LO index
// over five; two indices sit on the far side of a table seam.
int calibrationIndex(int loIndex) {
    if (loIndex == 788) return 157;
    if (loIndex == 1403) return 280;
    return roundI(loIndex / 5.0);
}

// dB to voltage ratios, in place.
void dbToVoltageRatio(std::vector<float>& v) {
    for (float& x : v) x = std::exp(x * 0.115129255f);
}

struct PlanBuilder {
    ZrDevice& dev;
    const ZrSweepSettings& s;
    SweepPlan& plan;
    CommandList& list;
    int attenIndex = 0;
    int firstSlice = 0;
    int lastSlice = 0;
    int maxCalSlice = 0;
    uint32_t decimationByte = 1;
    double binSize = 0.0;
    bool ridge = false;
    bool pausePlaced = false;
    rf::DeviceRfCalibration cal;

    PlanBuilder(ZrDevice& d, SweepPlan& p, CommandList& l)
        : dev(d), s(d.sweep), plan(p), list(l), cal(d.corrections) {}

    int calSlice(int n) const { return std::clamp(n, 0, maxCalSlice); }

    uint8_t gainCode(int n) const {
        const int i = calSlice(n);
        if (ridge) return dev.corrections.ridge ? dev.corrections.ridge->gainCode[i] : 0;
        return dev.corrections.mesa ? dev.corrections.mesa->gainCode[i] : 0;
    }

    // Filter taps of a calibration slice and the step gain that goes with it.
    float filterAndGain(int n, float* taps) const {
        double filterGain = 0.0;
        dev.corrections.BuildIFFilter(calSlice(n), taps, true, &filterGain);
        return float(double(dev.corrections.GetAttenGain(attenIndex, calSlice(n))) + filterGain);
    }

    void tuneAndLoadFilter(rf::TuneRequest& req, const float* taps) {
        req.kind = rf::kTuneSweep;
        req.attenIndex = attenIndex;
        req.firstSlice = firstSlice;
        req.lastSlice = lastSlice;
        rf::tune(dev.rf, ridge, cal, list, req);
        AppendIFFilter(list, req.band, req.subBand, taps, ridge);
    }

    void appendCapture(int32_t ddcWord) {
        list.AppendWord(cmd::kCaptureStart | (decimationByte << 16) | (uint32_t(ddcWord) & 0xFFFFu));
        for (int b = 0; b < plan.blocksPerStep; ++b) list.AppendDataWord();
        list.AppendWord(cmd::kStreamStop);
    }

    void preselectorStretch(int& n) {
        for (; n <= lastSlice; ++n) {
            const rf::PreselectRows rows = rf::preselectRowsForSlice(n);
            if (rows.count == 0) return;
            for (int r = 0; r < rows.count; ++r) {
                const rf::PreselectRow& row = rows.rows[r];
                SweepStep& st = plan.steps.emplace_back();
                st.loMHz = sliceLoMHz(n);
                st.ddcWord = sliceDdcWord(n);
                st.firstBin = std::max(plan.firstUsableBin, truncI(row.lo * double(plan.fftSize) / 32.0));
                st.binCount = std::min(truncI(row.hi * double(plan.fftSize) / 32.0),
                                       plan.usableBins + plan.firstUsableBin) -
                              st.firstBin;
                st.gainDb = filterAndGain(n, st.ifFilter.data());
                st.binCorrection.resize(size_t(plan.fftSize));
                dev.corrections.GetPreselectCurve(row.filter, n * kSweepSliceHz - 2.5e7, binSize, plan.fftSize,
                                                  st.binCorrection.data());
                if (s.scale == zrScaleLin) dbToVoltageRatio(st.binCorrection);
                st.hasBinCorrection = true;

                rf::TuneRequest req;
                req.preselect = 1;
                req.filter = row.filter;
                req.rfFreq = n * kSweepSliceHz;
                req.loFreq = st.loMHz * 1e6;
                req.loIndex = 5 * n;
                req.gainCode = gainCode(n);
                tuneAndLoadFilter(req, st.ifFilter.data());
                for (int p = 0; p < plan.passes; ++p) appendCapture(st.ddcWord);
            }
        }
    }

    void unpreselectedStretch(int n) {
        std::vector<GpioSweepEntry> gpio = dev.gpioSweep;
        std::stable_sort(gpio.begin(), gpio.end(),
                         [](const GpioSweepEntry& a, const GpioSweepEntry& b) { return a.frequency < b.frequency; });
        size_t cursor = 0;
        uint32_t gpioRegister = dev.gpioRegister;
        const int k = int(dev.loOffset);
        int tunedSlice = -1;
        std::array<float, kIFFilterValues> secondTaps{};

        for (; n <= lastSlice; ++n) {
            const int loIndex = k + 5 * n;
            const double stepHz = n * kSweepSliceHz + k * rf::kLoStepHz;
            const int calIdx = calibrationIndex(loIndex);

            const size_t before = cursor;
            while (cursor < gpio.size() && gpio[cursor].frequency < stepHz) ++cursor;
            if (cursor != before) {
                gpioRegister = (gpioRegister & ~0xFFu) | gpio[cursor - 1].value;
                list.AppendRegister(reg::kGpio, gpioRegister);
            }

            SweepStep& st = plan.steps.emplace_back();
            st.loMHz = sliceLoMHz(n) + k * 7.8125;
            st.ddcWord = sliceDdcWord(n);
            st.firstBin = plan.firstUsableBin;
            st.binCount = plan.usableBins;
            st.gainDb = filterAndGain(calIdx, st.ifFilter.data());
            if (n == 0) {
                st.binCorrection.resize(size_t(plan.fftSize));
                dev.corrections.GetLowFreqCurve(stepHz - 2.5e7, binSize, plan.fftSize, st.binCorrection.data());
                if (s.scale == zrScaleLin) dbToVoltageRatio(st.binCorrection);
                st.hasBinCorrection = true;
            }

            const uint8_t code = gainCode(calIdx);
            if (n != tunedSlice) {
                rf::TuneRequest req;
                req.rfFreq = stepHz;
                req.loFreq = st.loMHz * 1e6;
                req.loIndex = loIndex;
                req.gainCode = code;
                tuneAndLoadFilter(req, st.ifFilter.data());
                tunedSlice = n;
                // The Mesa synthesizer needs time to settle once it enters
                // this stretch of its range.
                if (!ridge && !pausePlaced && st.loMHz > 12600.0 && st.loMHz < 13300.0) {
                    list.AppendWord(kMesaLoSettlePause);
                    pausePlaced = true;
                }
            }
            appendCapture(st.ddcWord);

            if (plan.passes == 2) {
                // Above slice 3 the second pass looks at the same RF through
                // the next slice's LO, which also leaves the next slice tuned.
                const int m = n >= 4 ? n + 1 : n;
                const uint32_t offset = n >= 4 ? kSecondPassDdcOffset : 0;
                // That pass goes through slice m's whole chain (its gain
                // code and IF filter too) and is calibrated as slice m.
                tunedSlice = m;
                st.secondPassOwnGain = true;
                st.secondPassGainDb = filterAndGain(m, secondTaps.data());
                rf::TuneRequest req;
                req.rfFreq = m * kSweepSliceHz;
                req.loFreq = rf::sliceLoHz(m);
                req.loIndex = 5 * m;
                req.gainCode = gainCode(m);
                tuneAndLoadFilter(req, secondTaps.data());
                appendCapture(int32_t(uint32_t(sliceDdcWord(m)) + offset));
            }
        }
    }
};

}  // namespace

bool buildControllerPlan(ZrDevice& dev, SweepPlan& plan, CommandList& list) {
    ZrSweepSettings& s = dev.sweep;
    plan = SweepPlan{};
    list = CommandList{};

    const double windowBandwidth = windowBandwidthFactor(s.window);
    plan.windowSize = truncI(windowBandwidth * kSweepSampleRate / s.rbw);
    if (plan.windowSize % 2) plan.windowSize -= 1;
    plan.fftSize = nextPow2AtLeast(plan.windowSize, 32);
    plan.zeroPad = plan.fftSize - plan.windowSize;

    // The setter keeps VBW within four decades below RBW; an RBW clamped
    // since then must not stretch the ratio past that.
    plan.vbwRatio = std::clamp(s.vbw / s.rbw, 1e-4, 1.0);
    plan.fftCount = truncI(std::ceil(1.0 / plan.vbwRatio));
    const int hop = plan.fftSize / 4;
    const int64_t samplesNeeded = int64_t(plan.fftCount - 1) * hop + plan.windowSize;
    plan.blocksPerStep = std::max<int32_t>(1, int32_t((samplesNeeded + kCaptureBlockSamples - 1) / kCaptureBlockSamples));
    plan.passes = s.spurReject == 1 ? 2 : 1;

    const double start = s.center - s.span / 2.0;
    const int first = roundI(start / kSweepSliceHz);
    const int last = roundI((s.center + s.span / 2.0) / kSweepSliceHz);
    const int sliceCount = std::max(last - first + 1, 1);

    plan.usableBins = (plan.fftSize / 32) * 25;
    plan.firstUsableBin = (plan.fftSize - plan.usableBins) / 2;

    // A longer sweep time buys more FFTs per step, never a different FFT,
    // and never a step longer than the ring holds.
    const int timeBlocks = int(std::clamp<int64_t>(
        roundI(((s.sweepTime - sliceCount * kSliceSeconds) / kBlockSeconds) / sliceCount), 1, kMaxStepBlocks));
    if (timeBlocks > plan.blocksPerStep) {
        plan.blocksPerStep = timeBlocks;
        plan.fftCount = int32_t((int64_t(timeBlocks) * kCaptureBlockSamples - plan.windowSize) / hop + 1);
    }

    const double binSize = kSweepSampleRate / plan.fftSize;
    const double sliceStart = first * kSweepSliceHz - 19531250.0;
    const double offset = start - sliceStart;
    plan.startBin = truncI(offset / binSize);

    s.actualRBW = windowBandwidth * kSweepSampleRate / plan.windowSize;
    s.actualVBW = s.vbw;
    s.sweepLength = truncI(s.span / binSize);
    s.startFreq = offset + sliceStart;
    s.binSize = binSize;
    s.windowBandwidth = windowBandwidth;

    // Checked before any step is built: the steps' own correction curves
    // are FFT-sized too. The preselector may split a slice into four.
    const int64_t stepsAtMost = int64_t(sliceCount) * (dev.preselectorEnabled ? 4 : 1);
    if (stepsAtMost * plan.fftSize > kMaxSweepTraceValues) return false;
    // A list of more capture blocks than about three minutes of samples is
    // no sweep anyone waits for, and its command list alone would be large.
    if (stepsAtMost * plan.passes * plan.blocksPerStep > kMaxSweepBlocks) return false;
    if (int64_t(plan.passes) * plan.blocksPerStep > kMaxStepBlocks) return false;

    PlanBuilder b(dev, plan, list);
    b.ridge = dev.ridge();
    b.attenIndex = rf::attenIndexFor(dev.attenuator, dev.refLevel);
    b.firstSlice = first;
    b.lastSlice = first + sliceCount - 1;
    b.maxCalSlice = (b.ridge ? kRidgeSlices : kMesaSlices) - 1;
    b.decimationByte = dev.networked() ? 4 : 1;
    b.binSize = binSize;

    list.AppendListHead();
    list.AppendRegister(reg::kFftControl, 0);
    int n = first;
    if (dev.preselectorEnabled) b.preselectorStretch(n);
    b.unpreselectedStretch(n);
    plan.stepCount = int32_t(plan.steps.size());

    // Reads come in fours; the status blocks fill up the last four and
    // always close the sweep.
    const int64_t blocks = int64_t(plan.stepCount) * plan.passes * plan.blocksPerStep;
    const int r = int(blocks % 4);
    for (int i = 0; i < (r == 0 ? 4 : 4 - r); ++i) list.AppendStatusWord();
    return true;
}

ZrStatus planSweepController(ZrDevice& dev) {
    SweepPlan plan;
    CommandList list;
    if (!buildControllerPlan(dev, plan, list)) return zrAllocationErr;
    if (dev.sweep.sweepLength < 1 || plan.startBin < 0) return zrInvalidParameterErr;
    sendPendingRidgeWake(dev);
    dev.engine = std::make_unique<EngineSweepController>(dev, dev.sweep, std::move(plan), list);
    return zrNoError;
}

}  // namespace zr
