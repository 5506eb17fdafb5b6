#include "iq/iq_plan.h"

#include <algorithm>
#include <cmath>

#include "device/device.h"
#include "dsp/filters.h"
#include "platform/checked.h"
#include "rf/rf_glue.h"
#include "zr_correction_def.h"

namespace zr {

namespace {

constexpr double kSliceHz = 3.90625e7;
constexpr double kLoGridHz = 7.8125e6;
constexpr double kUsbTransferMs = 2.62144;
constexpr int kUsbStageTaps = 2049;
// The USB stage divisors are the 50 MS/s rates after 8 and 64; they stay
// when the base is 61.44 MS/s.
constexpr double kUsbStageOneRate = 6.25e6;
constexpr double kUsbStageTwoRate = 781250.0;
constexpr double kUsbStageOneFixedCutoff = 0.048;
constexpr double kPreselectTopHz = 6.45e8;
constexpr uint32_t kTuneIQ = 3;

// The networked stages' default prototypes, first tap to centre tap; the
// second half mirrors the first.
constexpr double kTableA[95] = {
    0.00028924,   -7.49882e-05, -0.000342803, -0.000771307, -0.001264087, -0.001703304, -0.001928268,
    -0.001799717, -0.001253374, -0.000342803, 0.00073917,   0.001714016,  0.002260359,  0.002163946,
    0.001349788,  -4.28504e-05, -0.001649741, -0.002978103, -0.003556584, -0.003074517, -0.00152119,
    0.000749882,  0.003117367,  0.004831384,  0.00522775,   0.003995801,  0.001306937,  -0.002174658,
    -0.005420577, -0.007348845, -0.007166731, -0.004649269, -0.000310665, 0.004659982,  0.008752196,
    0.010519775,  0.009116425,  0.004627844,  -0.001885418, -0.008537944, -0.013208639, -0.01416206,
    -0.010680464, -0.00337447,  0.005816943,  0.014140635,  0.018822042,  0.017965034,  0.011248232,
    0.000214252,  -0.012051678, -0.021725157, -0.025431718, -0.021360929, -0.010016283, 0.005709817,
    0.021232378,  0.031527189,  0.032759138,  0.023599863,  0.005902644,  -0.015522561, -0.034194627,
    -0.043835969, -0.040386511, -0.023557012, 0.002678151,  0.03091657,   0.05232035,   0.059219266,
    0.047767494,  0.019496936,  -0.018479239, -0.055127051, -0.078480524, -0.079294682, -0.054312894,
    -0.008034452, 0.047692505,  0.096263444,  0.120870292,  0.109525646,  0.059476368,  -0.020471783,
    -0.110671894, -0.18425676,  -0.2133629,   -0.176072331, -0.062786562, 0.120045421,  0.349712902,
    0.591024982,  0.803198783,  0.948397395,  1.0};
constexpr double kTableB[80] = {
    0.000180008,  0.00044102,   0.000459021,  9.00041e-05,  -0.000351016, -0.000270012, 0.000261012,
    0.000486022,  -5.40025e-05, -0.000630029, -0.000306014, 0.000621029,  0.000738034,  -0.000351016,
    -0.001116051, -0.000189009, 0.001251058,  0.000927043,  -0.001008046, -0.001674077, 0.000297014,
    0.0021691,    0.000819038,  -0.002133098, -0.002115097, 0.001395064,  0.003231149,  7.20033e-05,
    -0.003744172, -0.002061095, 0.003285151,  0.004113189,  -0.001665077, -0.005625259, -0.000999046,
    0.005958274,  0.004239195,  -0.004653214, -0.007254334, 0.001593073,  0.009108419,  0.002853131,
    -0.00891941,  -0.007812359, 0.006156283,  0.012024553,  -0.00086404,  -0.014094648, -0.006201285,
    0.012843591,  0.013554624,  -0.007677353, -0.019287887, -0.00108005,  0.021366983,  0.012078556,
    -0.018189837, -0.023032059, 0.009072417,  0.030988425,  0.005382248,  -0.032959516, -0.023086062,
    0.026461217,  0.040573866,  -0.010188469, -0.053345454, -0.015561716, 0.056342592,  0.048764243,
    -0.044237035, -0.085782946, 0.010917502,  0.12196461,   0.054290497,  -0.152359009, -0.187775638,
    0.17260094,   0.729285547,  1.0};
constexpr double kTableC[40] = {
    0.000437964,  0.001313891,  0.001150728,  -0.000506664, -0.00173468,  -8.58752e-05, 0.002473207,
    0.001348241,  -0.002902583, -0.003280434, 0.002524732,  0.005667766,  -0.000918865, -0.008029335,
    -0.002258519, 0.009652377,  0.007050357,  -0.009626614, -0.013121737, 0.006981657,  0.019674018,
    -0.000918865, -0.025419071, -0.009059838, 0.028630805,  0.022963039,  -0.027239626, -0.0401982,
    0.01886679,   0.059563067,  -0.000669827, -0.079400247, -0.031696551, 0.097717436,  0.087944834,
    -0.112556678, -0.203532907, 0.12222623,   0.70442601,   1.0};

std::vector<double> mirrored(const double* half, int taps) {
    std::vector<double> out(static_cast<size_t>(taps), 0.0);
    const int n = (taps + 1) / 2;
    for (int i = 0; i < n; ++i) out[size_t(i)] = out[size_t(taps - 1 - i)] = half[i];
    return out;
}

uint64_t wrap56(double value) {
    // The word is a 56-bit two's complement count of down-converter steps.
    const int64_t w = static_cast<int64_t>(std::trunc(value));
    return static_cast<uint64_t>(w < 0 ? w + (int64_t(1) << 56) : w);
}

void appendStageDesigns(CommandList& list, const std::array<std::vector<double>, 4>& stages) {
    for (int s = 0; s < 4; ++s) AppendDecimationTaps(list, s + 1, stages[size_t(s)].data());
}

// What both plans share: rates and stages are already in the plan; this
// finds the gain, the correction filter, the preselector and the request
// to tune with.
void planGainAndTune(ZrDevice& dev, IQPlan& plan, rf::TuneRequest& req) {
    const int slices = dev.ridge() ? kRidgeSlices : kMesaSlices;
    const int calSlice = std::clamp(plan.slice, 0, slices - 1);
    plan.attenIndex = rf::attenIndexFor(dev.attenuator, dev.refLevel);
    double filterGain = 0.0;
    dev.corrections.BuildIFFilter(calSlice, plan.correctionTaps.data(), true, &filterGain);
    double gain = double(dev.corrections.GetAttenGain(plan.attenIndex, calSlice)) + filterGain;

    req.kind = kTuneIQ;
    req.attenIndex = plan.attenIndex;
    req.gainCode = dev.gainCode(calSlice);
    req.preselect = 0;
    req.filter = -1;
    req.firstSlice = 0;
    req.lastSlice = 500;
    if (dev.preselectorEnabled && plan.center <= kPreselectTopHz) {
        req.preselect = 1;
        req.filter = rf::selectPreselectFilter(plan.center, plan.slice);
        plan.preselectFilter = req.filter;
        gain += double(dev.corrections.GetPreselectLoss(req.filter));
        const PreselectFilter& f = preselectFilter(req.filter);
        if (plan.center - plan.bandwidth / 2.0 < f.start || plan.center + plan.bandwidth / 2.0 > f.stop)
            plan.status = zrSpanLimitedByPreselector;
    }
    plan.gainDb = float(gain);
}

bool validDecimation(int d) { return d >= 1 && d <= 4096 && (d & (d - 1)) == 0; }

// Rates, bandwidth and the instrument's share, common to both plans.
void planRates(IQSettings& s, IQPlan& plan, bool networked) {
    if (!validDecimation(s.decimation)) throw OutOfRange("I/Q decimation");
    plan.rates = iqRates(s.baseRate, networked);
    plan.decimation = s.decimation;
    plan.hardwareDecimation = hardwareDecimationFor(s.decimation);
    plan.softwareDecimation = softwareDecimationFor(s.decimation);
    plan.sampleRate = plan.rates.base / s.decimation;
    s.sampleRate = plan.sampleRate;
    s.bandwidth = clampIQBandwidth(s.bandwidth, plan.sampleRate, s.decimation, networked);
    plan.bandwidth = s.bandwidth;
    plan.center = s.center;
    plan.dataType = s.dataType;
    plan.transfers = iqQueueTransfers(s.queueSizeMs);
}

}  // namespace

IQRates iqRates(ZrIQBaseRate rate, bool networked) {
    const bool r61 = rate == zrIQBaseRate61M44;
    IQRates r;
    if (networked) r.base = r61 ? 1.2288e8 : 2e8;
    else r.base = r61 ? 6.144e7 : 5e7;
    r.ticksPerBaseSample = 2.5e8 / r.base;
    return r;
}

double clampIQBandwidth(double bandwidth, double sampleRate, int decimation, bool networked) {
    const double lo = 0.01 * sampleRate;
    double hi;
    if (networked) hi = 0.8 * sampleRate;
    else hi = decimation == 1 ? 4.15e7 : 0.768 * sampleRate;
    if (!(bandwidth >= lo)) return lo;  // NaN too
    return bandwidth > hi ? hi : bandwidth;
}

int iqQueueTransfers(float queueMs) {
    const double n = std::floor(double(queueMs) / kUsbTransferMs + 0.5);
    if (!(n >= 2.0)) return 2;
    return n > 16.0 ? 16 : int(n);
}

HostStages usbHostStages(int softwareDecimation, double bandwidth) {
    HostStages h;
    h.oneFactor = std::min(softwareDecimation, 8);
    h.twoFactor = softwareDecimation > 8 ? softwareDecimation / 8 : 1;
    h.oneTaps = h.oneFactor > 1 ? kUsbStageTaps : 0;
    h.twoTaps = h.twoFactor > 1 ? kUsbStageTaps : 0;
    h.oneCutoff = h.twoFactor > 1 ? kUsbStageOneFixedCutoff : bandwidth / kUsbStageOneRate * 0.5;
    h.twoCutoff = bandwidth / kUsbStageTwoRate * 0.5;
    return h;
}

HostStages networkedHostStages(int softwareDecimation, double bandwidth, double base) {
    HostStages h;
    h.oneFactor = std::min(softwareDecimation, 32);
    h.twoFactor = softwareDecimation > 32 ? softwareDecimation / 32 : 1;
    h.oneTaps = h.oneFactor > 1 ? h.oneFactor * 64 + 1 : 0;
    h.twoTaps = h.twoFactor > 1 ? h.twoFactor * 64 + 1 : 0;
    const double input = base / 8.0;
    h.oneCutoff = h.twoFactor > 1 ? 0.4 / h.oneFactor : bandwidth / input * 0.5;
    h.twoCutoff = bandwidth / (input / h.oneFactor) * 0.5;
    return h;
}

UsbIQTune usbIQTune(double center, double sampleRate) {
    UsbIQTune t;
    t.slice = rf::sliceForCenter(center, sampleRate);
    t.loHz = rf::sliceLoHz(t.slice);
    const rf::DownConverterTune d = rf::downConverterTune(t.slice, center);
    t.word = d.word;
    t.ddcCenterHz = d.centerHz;
    return t;
}

double usbOscillatorFrequency(double center, double ddcCenterHz, double base, int hardwareDecimation) {
    double f = -(center - ddcCenterHz) / (base / hardwareDecimation);
    if (f < 0.0) f += 1.0;
    return f;
}

NetworkedIQTune networkedIQTune(double center, double sampleRate) {
    NetworkedIQTune t;
    if (center < 2.5e8 || sampleRate < 1.05e8) {
        t.slice = rf::sliceForCenter(center, sampleRate);
        const double x = rf::sliceLoHz(t.slice);
        const double offset = t.slice < 4 ? 0.0 : 1.25e8;
        t.loIndex = t.slice * 5;
        t.rfFreq = t.slice * kSliceHz;
        t.loFreq = x;
        t.word56 = wrap56((center - (x - offset)) / -kNetworkedDdcStepHz);
        return t;
    }
    // Wide: the LO on its 7.8125 MHz grid above the band's top.
    double x = center + sampleRate * 0.5 + 1.5625e7;
    const double rem = std::fmod(x, kLoGridHz);
    x = x - rem + (rem >= 3906250.0 ? kLoGridHz : 0.0);
    t.loIndex = truncChecked(x / kLoGridHz + 0.5) - 5;
    if (t.loIndex == 788) t.slice = 157;
    else if (t.loIndex == 1403) t.slice = 280;
    else t.slice = truncChecked(t.loIndex / 5.0 + 0.5);
    t.rfFreq = x - kSliceHz;
    t.loFreq = x;
    t.word56 = wrap56(-(center - (x - 1.25e8)) / kNetworkedDdcStepHz);
    return t;
}

InstrumentFirCutoffs instrumentFirCutoffs(int decimation, bool softwareFilter, double bandwidth, double base) {
    InstrumentFirCutoffs c;
    switch (decimation) {
        case 1:
            c.narrowed = 1;
            c.cutoff[0] = std::clamp(bandwidth / 1e9 * 0.5, 0.02, 0.08);
            break;
        case 2:
            c.narrowed = 2;
            c.cutoff[1] = std::clamp(bandwidth / base * 0.5, 0.02, 0.2);
            break;
        case 4:
            if (softwareFilter) break;
            c.narrowed = 3;
            c.cutoff[2] = std::clamp(bandwidth / (base / 2.0) * 0.5, 0.02, 0.2);
            break;
        case 8:
            if (softwareFilter) break;
            c.narrowed = 4;
            c.cutoff[3] = std::clamp(bandwidth / (base / 4.0) * 0.5, 0.02, 0.2);
            break;
        default:
            break;
    }
    return c;
}

std::vector<double> defaultDecimationTaps(int stage) {
    switch (stage) {
        case 1: return mirrored(kTableA, 189);
        case 2: return mirrored(kTableC, 79);
        default: return mirrored(kTableB, 159);
    }
}

std::vector<double> designDecimationTaps(int stage, double cutoff) {
    std::vector<double> taps(size_t(decimationTapCount(stage)), 0.0);
    DesignLowPass(taps.data(), int(taps.size()), float(cutoff), 1);
    return taps;
}

float IQPlan::scale() const { return float(std::sqrt(std::pow(10.0, double(gainDb) / 10.0))); }

CommandList usbIQRequestList(int hardwareDecimation) {
    CommandList list;
    list.AppendListHead();
    for (int i = 0; i < 64 / hardwareDecimation - 1; ++i) list.AppendDataWord();
    list.AppendStatusWord();
    return list;
}

CommandList networkedIQRequestList(int hardwareDecimation) {
    const int n = 256 / hardwareDecimation;
    CommandList list;
    list.AppendWord(0x50000000u | uint32_t(n));
    list.AppendWord(1);
    for (int i = 0; i < n - 1; ++i) list.AppendDataWord();
    list.AppendStatusWord();
    return list;
}

CommandList networkedIQEndList() {
    CommandList list;
    appendStageDesigns(list, {defaultDecimationTaps(1), defaultDecimationTaps(2), defaultDecimationTaps(3),
                              defaultDecimationTaps(4)});
    return list;
}

ZrStatus buildUsbIQPlan(ZrDevice& dev, IQSettings& s, IQPlan& plan, CommandList& setup, CommandList& request) {
    plan = IQPlan{};
    planRates(s, plan, false);
    plan.stages = usbHostStages(plan.softwareDecimation, plan.bandwidth);
    plan.softwareFilterOn = s.decimation <= kMaxHardwareDecimation && s.softwareFilter == zrTrue;
    plan.softwareFilterCutoff = plan.bandwidth / plan.sampleRate * 0.5;

    const UsbIQTune tune = usbIQTune(s.center, plan.sampleRate);
    plan.slice = tune.slice;
    plan.ddcCenterHz = tune.ddcCenterHz;
    plan.ddcWord = uint32_t(tune.word) & 0xFFFFu;
    plan.oscillatorFrequency = usbOscillatorFrequency(s.center, tune.ddcCenterHz, plan.rates.base, plan.hardwareDecimation);
    plan.preciseOscillator = plan.hardwareDecimation == kMaxHardwareDecimation;

    rf::TuneRequest req;
    req.rfFreq = tune.slice * kSliceHz;
    req.loFreq = tune.loHz;
    req.loIndex = tune.slice * 5;
    planGainAndTune(dev, plan, req);

    setup = CommandList{};
    setup.AppendRegister(reg::kFftControl, 0);
    setup.AppendRegister(reg::kTriggerEdge, s.extTriggerEdge == 1 ? 2u : 0u);
    rf::tune(dev.rf, dev.ridge(), rf::DeviceRfCalibration(dev.corrections), setup, req);
    AppendIFFilter(setup, req.band, req.subBand, plan.correctionTaps.data(), dev.ridge());
    const GpioSwitching& g = dev.gpioSwitching;
    AppendGPIOSwitching(setup, g.enabled != 0, g.values.data(), g.durations.data(), g.count);
    const uint32_t code = uint32_t(plan.hardwareDecimation) + (s.baseRate == zrIQBaseRate61M44 ? 16u : 0u);
    setup.AppendWord(cmd::kCaptureStart | code << 16 | plan.ddcWord);
    request = usbIQRequestList(plan.hardwareDecimation);
    return plan.status;
}

ZrStatus buildNetworkedIQPlan(ZrDevice& dev, IQSettings& s, IQPlan& plan, CommandList& setup, CommandList& request,
                              CommandList& end) {
    plan = IQPlan{};
    planRates(s, plan, true);
    plan.stages = networkedHostStages(plan.softwareDecimation, plan.bandwidth, plan.rates.base);

    const NetworkedIQTune tune = networkedIQTune(s.center, plan.sampleRate);
    plan.slice = tune.slice;
    plan.ddcCenterHz = s.center;
    plan.ddcWord56 = tune.word56;
    plan.oscillatorFrequency = 1.0;  // the instrument tunes exactly

    rf::TuneRequest req;
    req.rfFreq = tune.rfFreq;
    req.loFreq = tune.loFreq;
    req.loIndex = tune.loIndex;
    planGainAndTune(dev, plan, req);

    const InstrumentFirCutoffs cut =
        instrumentFirCutoffs(s.decimation, s.softwareFilter == zrTrue, plan.bandwidth, plan.rates.base);
    setup = CommandList{};
    setup.AppendRegister(reg::kFftControl, 0);
    appendStageDesigns(setup, {designDecimationTaps(1, cut.cutoff[0]), designDecimationTaps(2, cut.cutoff[1]),
                               designDecimationTaps(3, cut.cutoff[2]), designDecimationTaps(4, cut.cutoff[3])});
    setup.AppendRegister(reg::kTriggerEdge, s.extTriggerEdge == 1 ? 2u : 0u);
    rf::tune(dev.rf, dev.ridge(), rf::DeviceRfCalibration(dev.corrections), setup, req);
    AppendIFFilter(setup, req.band, req.subBand, plan.correctionTaps.data(), dev.ridge());
    const GpioSwitching& g = dev.gpioSwitching;
    AppendGPIOSwitching(setup, g.enabled != 0, g.values.data(), g.durations.data(), g.count);
    AppendStreamStart(setup, plan.hardwareDecimation, tune.word56 << 8, s.baseRate == zrIQBaseRate61M44);
    request = networkedIQRequestList(plan.hardwareDecimation);
    end = networkedIQEndList();
    return plan.status;
}

}  // namespace zr
