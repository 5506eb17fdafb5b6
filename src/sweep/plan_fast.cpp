// The plan of the fast sweep engine: sizes for the instrument's 250 MS/s
// FFT, its fixed-point window, one step per slice below 609 MHz and one per
// four slices above, and the list that tunes a step while the previous
// step's spectrum is on its way.
#include <algorithm>
#include <cmath>
#include <new>

#include "device/device.h"
#include "device/modes.h"
#include "dsp/window.h"
#include "rf/rf_glue.h"
#include "sweep/engine_fast.h"
#include "sweep/plan_fast.h"
#include "sweep/sweep_mode.h"

namespace zr {

namespace {

using planning::roundI;
using planning::truncI;

constexpr int kMaxFft = 16384;
constexpr int kMinFft = 512;
constexpr double kWideFromHz = 609375000.0;  // above it a step covers four slices
constexpr uint32_t kFirstStepPause = 12000;

double fastLoHz(int slice) {
    if (slice < 3) return 0.0;
    if (slice <= 4) return 125e6;
    return slice * kSweepSliceHz;
}

int32_t sliceDdcWord(int n) {
    switch (n) {
        case 0: return 0;
        case 1: return 864;
        case 2: return 704;
        case 3: return 32;
        default: return 672;
    }
}

void appendFetch(CommandList& list, int blocksPerStep) {
    for (int ii = 0; ii < blocksPerStep; ++ii)
        if (!(blocksPerStep == 4 && ii == 2)) list.AppendCountedDataReply(cmd::kFftFetch | uint32_t(ii) << 16);
}

}  // namespace

void buildFastPlan(ZrDevice& dev, SweepPlan& plan, CommandList& configList, CommandList& sweepList) {
    ZrSweepSettings& s = dev.sweep;
    plan = SweepPlan{};
    configList = CommandList{};
    sweepList = CommandList{};
    const double R = kFastSampleRate;

    const double windowBandwidth = windowBandwidthFactor(s.window);
    int w = truncI(windowBandwidth * R / s.rbw);
    if (w % 2) w -= 1;
    int p = 1;
    while (p < w) p <<= 1;
    if (p <= kMaxFft && w <= kMaxFft) {
        plan.fftSize = std::max(p, kMinFft);
        plan.windowSize = w;
    } else {
        plan.fftSize = plan.windowSize = kMaxFft;
    }
    const int n = plan.fftSize;
    plan.zeroPad = n - plan.windowSize;
    plan.blocksPerStep = std::max(1, (n + kFastBlockValues - 1) / kFastBlockValues);
    plan.passes = 1;
    plan.usableBins = (n / 32) * 20;
    plan.firstUsableBin = (n / 32) * 10;

    // The instrument's window: centred, peak just under one, in 15.17
    // fixed point; its gain and the FFT's fixed scaling go into the levels.
    std::vector<float> window(size_t(n), 0.0f);
    buildWindowReal(s.window, window.data() + plan.zeroPad / 2, plan.windowSize);
    const float peak = *std::max_element(window.begin(), window.end());
    double sum = 0.0;
    for (float& v : window) {
        v = v / peak * 0.9999f;
        sum += v;
    }
    plan.windowGainDb = float(20.0 * std::log10(n / sum));
    plan.fftGainDb = float(6.02 * std::log10(n / 2048.0) / 0.301029995663);
    std::vector<uint32_t> fixedWindow(size_t(n / 2));
    for (int i = 0; i < n / 2; ++i) fixedWindow[size_t(i)] = uint32_t(int32_t(std::lround(window[size_t(i)] * 131072.0)));

    const double A = s.center - s.span / 2.0, B = s.center + s.span / 2.0;
    const int s0 = A < kWideFromHz ? roundI((A + kSweepSliceHz - 15625000.0) / kSweepSliceHz)
                                   : roundI((A + 132850000.0) / kSweepSliceHz);
    const int e = B < kWideFromHz ? roundI((B + kSweepSliceHz - 15625000.0) / kSweepSliceHz)
                                  : roundI((B + 171875000.0) / kSweepSliceHz);
    const int k = std::max(16 - s0, 0);
    const int m = (e - k - s0) / 4 + 1;
    plan.stepCount = std::max(k + m, 1);
    const int lastSlice = s0 + k + 4 * m;

    const double binSize = R / n;
    const double bottom = s0 * kSweepSliceHz - R;
    plan.startBin = truncI((A - bottom) / binSize);
    s.actualRBW = windowBandwidth * R / plan.windowSize;
    s.actualVBW = s.actualRBW;
    s.sweepLength = truncI(s.span / binSize);
    s.startFreq = plan.startBin * binSize + bottom;
    s.binSize = binSize;
    s.windowBandwidth = windowBandwidth;

    configList.AppendRegister(reg::kFftControl, 0);
    configList.AppendRegister(reg::kFftSize, uint32_t(n));
    configList.AppendRegister(reg::kFftControl, reg::kFftSweepArm);
    AppendWindowTable(configList, fixedWindow.data(), fixedWindow.size());
    configList.AppendWord(cmd::kFftStep);
    appendFetch(configList, 3);
    configList.AppendStatusWord();

    const bool ridge = dev.ridge();
    const int maxCal = (ridge ? kRidgeSlices : kMesaSlices) - 1;
    const int attenIndex = rf::attenIndexFor(dev.attenuator, dev.refLevel);
    const rf::DeviceRfCalibration cal(dev.corrections);
    std::vector<GpioSweepEntry> gpio = dev.gpioSweep;
    std::stable_sort(gpio.begin(), gpio.end(),
                     [](const GpioSweepEntry& a, const GpioSweepEntry& b) { return a.frequency < b.frequency; });
    size_t cursor = 0;
    uint32_t gpioRegister = dev.gpioRegister;

    const int u = n / 32;
    sweepList.AppendListHead();
    int slice = s0;
    for (int j = 0; j < plan.stepCount; ++j, slice += slice < 16 ? 1 : 4) {
        const int sn = slice - 1;
        const int calSlice = std::clamp(sn, 0, maxCal);
        const double stepHz = sn * kSweepSliceHz;
        const size_t before = cursor;
        while (cursor < gpio.size() && gpio[cursor].frequency < stepHz) ++cursor;
        if (cursor != before) {
            gpioRegister = (gpioRegister & ~0xFFu) | gpio[cursor - 1].value;
            sweepList.AppendRegister(reg::kGpio, gpioRegister);
        }

        SweepStep& st = plan.steps.emplace_back();
        st.loMHz = fastLoHz(slice) / 1e6;
        st.ddcWord = sliceDdcWord(std::max(sn, 0));
        st.firstBin = slice < 17 ? 25 * u : 10 * u;
        st.binCount = slice < 17 ? 5 * u : 20 * u;
        st.sliceNumber = slice;
        double filterGain = 0.0;
        dev.corrections.BuildIFFilter(calSlice, st.ifFilter.data(), slice >= 4 && slice <= 16, &filterGain);
        st.gainDb = float(double(dev.corrections.GetAttenGain(attenIndex, calSlice)) + filterGain);

        rf::TuneRequest req;
        req.kind = rf::kTuneSweep;
        req.loFreq = fastLoHz(slice);
        req.rfFreq = stepHz;
        req.loIndex = 5 * sn;
        req.attenIndex = attenIndex;
        req.gainCode = dev.gainCode(calSlice);
        req.preselect = dev.preselectorEnabled;
        req.filter = -1;
        req.firstSlice = s0;
        req.lastSlice = lastSlice;
        rf::tune(dev.rf, ridge, cal, sweepList, req);
        AppendIFFilter(sweepList, req.band, req.subBand, st.ifFilter.data(), ridge);

        sweepList.AppendWord(cmd::kFftStep);
        // A step's spectrum is fetched while the next step settles.
        if (j == 0) sweepList.AppendWord(kFirstStepPause);
        else appendFetch(sweepList, plan.blocksPerStep);
    }
    appendFetch(sweepList, plan.blocksPerStep);
    const int captured = plan.stepCount * fastFetchBlocks(plan.blocksPerStep);
    const int r = captured % 4;
    for (int i = 0; i < (r == 0 ? 4 : 4 - r); ++i) sweepList.AppendStatusWord();
}

ZrStatus planSweepFast(ZrDevice& dev) {
    SweepPlan plan;
    CommandList configList, sweepList;
    buildFastPlan(dev, plan, configList, sweepList);
    if (dev.sweep.sweepLength < 1 || plan.startBin < 0) return zrInvalidParameterErr;
    sendPendingRidgeWake(dev);
    dev.engine = std::make_unique<EngineSweepFast>(dev, dev.sweep, std::move(plan), configList, sweepList);
    return zrNoError;
}

}  // namespace zr
