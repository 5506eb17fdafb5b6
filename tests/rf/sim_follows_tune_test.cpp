// The simulated instrument, driven by the library's own tune words for every
// slice of both families, settles its LO where the sweep plan meant it and
// puts a tone where the slice table says the sweep will look for it.

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <memory>
#include <vector>

#include "calibration/correction_set.h"
#include "instrument.h"
#include "rf/rf_glue.h"
#include "support/cal_images.h"

namespace zr {
namespace {

// Level of the stream at a frequency offset, in dB full scale.
double levelAt(const int16_t* iq, double hz, double rate) {
    std::complex<double> acc = 0.0;
    for (int n = 0; n < sim::Instrument::kSamplesPerBlock; ++n) {
        const double ph = -6.283185307179586 * hz / rate * n;
        acc += std::complex<double>(iq[2 * n], iq[2 * n + 1]) * std::polar(1.0, ph);
    }
    return 20.0 * std::log10(std::abs(acc) / sim::Instrument::kSamplesPerBlock / 32767.0 + 1e-12);
}

struct Family {
    ZrDeviceType type;
    int slices;
};

class SimFollowsTune : public ::testing::TestWithParam<Family> {};

TEST_P(SimFollowsTune, EverySliceLandsWhereTheSliceTableSays) {
    const bool ridge = GetParam().type == zrDeviceTypeRidge2;
    rf::resetRidgeMixModeMemory();
    CorrectionSet set;
    auto rfState = std::make_unique<rf::RfState>();
    if (ridge) {
        set.LoadCorrections(*test::makeRidgeImage());
    } else {
        auto image = test::makeMesaImage();
        set.LoadCorrections(*image);
        rf::buildMesaRfState(rfState->mesa, *image);
    }
    set.SetTemperature(30.0f);
    rf::DeviceRfCalibration cal(set);

    sim::Instrument inst(GetParam().type, 4242);
    inst.setPaced(false);
    inst.setNoiseFloor(-200.0);
    inst.setTemperature(30.0f);
    float passThrough[kIFFilterValues] = {};
    passThrough[62] = passThrough[63] = 1.0f;
    std::vector<int16_t> iq(2 * sim::Instrument::kSamplesPerBlock);

    for (int n = 0; n < GetParam().slices; ++n) {
        SCOPED_TRACE(n);
        const double slice = n * 39062500.0;
        const double lo = n < 3 ? 0.0 : n == 3 ? 125e6 : (n + 1) * 39.0625e6;
        const uint32_t ddc = n == 0 ? 0 : n == 1 ? 864 : n == 2 ? 704 : n == 3 ? 32 : 672;
        rf::TuneRequest req;
        req.kind = 1;
        req.rfFreq = slice;
        req.loFreq = lo;
        req.attenIndex = n % 7;
        req.gainCode = 0;
        req.firstSlice = 0;
        req.lastSlice = GetParam().slices - 1;
        req.loIndex = 5 * n;
        CommandList list;
        rf::tune(*rfState, ridge, cal, list, req);
        // On a Ridge the words of slices 2 and 3 differ only in the
        // down-converter word; the filter load tells the instrument of the
        // half-clock offset of slice 3 through the tune's sub-band.
        AppendIFFilter(list, req.band, req.subBand, passThrough, ridge);
        list.AppendWord(0x13010000u | ddc);
        for (size_t b = 0; b < list.blockCount(); ++b)
            ASSERT_TRUE(inst.writeBlock(list.data() + b * CommandList::kBlockSize));

        const sim::RfPath path = inst.rfPath();
        ASSERT_TRUE(path.known);
        EXPECT_EQ(path.band, req.band);
        EXPECT_EQ(path.attenDb, 5.0 * req.attenIndex);
        // The slices up to 3 are sampled directly; the 125 MHz of slice 3
        // is the down-converter's half-clock offset, not a mixer.
        EXPECT_EQ(path.direct, n < 4);
        if (n >= 4) EXPECT_NEAR(path.firstLoHz, lo, 1.0);
        EXPECT_NEAR(inst.centerFrequency(), slice, 1.0);

        inst.clearSignals();
        inst.addTone(slice + 3e6, 0.0);
        inst.generateBlock(iq.data());
        const double up = levelAt(iq.data(), 3e6, 50e6), down = levelAt(iq.data(), -3e6, 50e6);
        EXPECT_GT(up, -90.0);
        EXPECT_GT(up - down, 30.0);
    }
}

INSTANTIATE_TEST_SUITE_P(Families, SimFollowsTune,
                         ::testing::Values(Family{zrDeviceTypeMesa2, kMesaSlices}, Family{zrDeviceTypeRidge2, kRidgeSlices}),
                         [](const auto& info) { return info.param.type == zrDeviceTypeRidge2 ? "Ridge2" : "Mesa2"; });

}  // namespace
}  // namespace zr
