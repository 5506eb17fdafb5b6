// Temperature interpolation and the table lookups, on images whose tables
// vary with every index.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "calibration/correction_set.h"
#include "support/cal_images.h"

using namespace zr;
using namespace zr::test;

namespace {

// One image of each family, built once: the tests only read them.
const MesaCalData& mesaImage() {
    static const auto im = makeMesaImage();
    return *im;
}
const RidgeCalData& ridgeImage() {
    static const auto im = makeRidgeImage();
    return *im;
}

std::unique_ptr<CorrectionSet> mesaSet() {
    auto set = std::make_unique<CorrectionSet>();
    set->LoadCorrections(mesaImage());
    return set;
}
std::unique_ptr<CorrectionSet> ridgeSet() {
    auto set = std::make_unique<CorrectionSet>();
    set->LoadCorrections(ridgeImage());
    return set;
}

// Between two table points: the straightforward mix in double.
double between(double a, double b, double t) { return a + (b - a) * t; }

// A temperature at fraction t of the way from point i to point i + 1.
float tempAt(int i, double t) {
    return static_cast<float>(kCalTemperatures[i] + t * (kCalTemperatures[i + 1] - kCalTemperatures[i]));
}

}  // namespace

TEST(CorrectionTemperature, PicksTheSegmentByTheImagesAxis) {
    auto set = mesaSet();
    set->SetTemperature(-60.0f);
    EXPECT_EQ(set->tempIndex, 0);
    EXPECT_EQ(set->tempFrac, 0.0);
    EXPECT_EQ(set->temperature, -60.0f);

    set->SetTemperature(kCalTemperatures[3]);  // exactly on a point: first point strictly above decides
    EXPECT_EQ(set->tempIndex, 3);
    EXPECT_EQ(set->tempFrac, 0.0);

    set->SetTemperature(tempAt(4, 0.3));
    EXPECT_EQ(set->tempIndex, 4);
    EXPECT_NEAR(set->tempFrac, 0.3, 1e-5);

    set->SetTemperature(kCalTemperatures[10]);
    EXPECT_EQ(set->tempIndex, 9);
    EXPECT_EQ(set->tempFrac, 1.0);
    set->SetTemperature(90.0f);
    EXPECT_EQ(set->tempIndex, 9);
    EXPECT_EQ(set->tempFrac, 1.0);

    // The nominal axis of the neutral image differs from the loaded one: a
    // temperature between the two shows which axis is in use.
    CorrectionSet neutral;
    neutral.SetTemperature(-0.1f);  // nominal points ... -11, 0 ...; loaded ... -0.2, 10.4
    EXPECT_EQ(neutral.tempIndex, 3);
    set->SetTemperature(-0.1f);
    EXPECT_EQ(set->tempIndex, 4);

    // The Ridge axis is read when Ridge is in force.
    auto ridge = std::make_unique<RidgeCalData>(ridgeImage());
    for (float& t : ridge->temperature) t += 2.0f;
    CorrectionSet rs;
    rs.LoadCorrections(*ridge);
    rs.SetTemperature(kCalTemperatures[6] + 1.0f);
    EXPECT_EQ(rs.tempIndex, 5);
}

TEST(CorrectionTemperature, FixedIndexMode) {
    auto set = mesaSet();
    EXPECT_EQ(set->SetCorrectionMode(2), zrInvalidParameterErr);
    EXPECT_EQ(set->correctionMode, 0u);
    EXPECT_EQ(set->SetCorrectionIndex(11), zrSettingClamped);
    EXPECT_EQ(set->correctionIndex, 10);
    EXPECT_EQ(set->SetCorrectionIndex(-3), zrSettingClamped);
    EXPECT_EQ(set->correctionIndex, 0);
    EXPECT_EQ(set->SetCorrectionIndex(4), zrNoError);

    set->SetTemperature(20.0f);
    ASSERT_EQ(set->SetCorrectionMode(1), zrNoError);
    set->SetTemperature(60.0f);
    EXPECT_EQ(set->tempIndex, 4);
    EXPECT_EQ(set->tempFrac, 0.0);
    EXPECT_EQ(set->temperature, 20.0f);  // not stored in this mode
    EXPECT_EQ(set->GetAttenGain(2, 77), mesaImage().gain[4][2][77]);

    set->SetCorrectionIndex(10);
    set->SetTemperature(-40.0f);
    EXPECT_EQ(set->tempIndex, 9);
    EXPECT_EQ(set->tempFrac, 1.0);
    EXPECT_EQ(set->GetAttenGain(2, 77), mesaImage().gain[10][2][77]);
}

TEST(CorrectionGain, ExactAtPointsMixedBetweenHeldOutside) {
    auto set = mesaSet();
    const auto& im = mesaImage();
    set->SetTemperature(kCalTemperatures[6]);
    for (int a : {0, 3, 6})
        for (int s : {0, 1, 17, 300, 524}) EXPECT_EQ(set->GetAttenGain(a, s), im.gain[6][a][s]) << a << " " << s;

    set->SetTemperature(tempAt(2, 0.7));
    const double t = set->tempFrac;
    for (int a : {0, 4, 6})
        for (int s : {2, 3, 4, 250, 523}) {
            EXPECT_NEAR(set->GetAttenGain(a, s), between(gainModel(2, a, s), gainModel(3, a, s), t), 2e-5)
                << a << " " << s;
        }

    set->SetTemperature(-80.0f);
    EXPECT_EQ(set->GetAttenGain(5, 400), im.gain[0][5][400]);
    set->SetTemperature(80.0f);
    EXPECT_EQ(set->GetAttenGain(5, 400), im.gain[10][5][400]);

    // Indices are limited to the table.
    EXPECT_EQ(set->GetAttenGain(-1, 400), im.gain[10][0][400]);
    EXPECT_EQ(set->GetAttenGain(7, 400), im.gain[10][6][400]);
    EXPECT_EQ(set->GetAttenGain(1, 900), im.gain[10][1][524]);

    auto rs = ridgeSet();
    rs->SetTemperature(kCalTemperatures[8]);
    EXPECT_EQ(rs->GetAttenGain(3, 1129), ridgeImage().gain[8][3][1129]);
    EXPECT_EQ(rs->GetAttenGain(3, 5000), ridgeImage().gain[8][3][1129]);
    EXPECT_EQ(rs->GetAttenGain(3, 700), ridgeImage().gain[8][3][700]);

    CorrectionSet neutral;
    neutral.SetTemperature(25.0f);
    EXPECT_EQ(neutral.GetAttenGain(3, 100), 0.0f);
}

TEST(CorrectionPreselect, LossIsTheRowMeanAtTheLowerPoint) {
    auto set = mesaSet();
    set->SetTemperature(tempAt(5, 0.9));  // no temperature mix: row 5 alone
    for (int f : {0, 4, 10}) {
        double sum = 0;
        for (int p = 0; p < 32; ++p) sum += preselectModel(5, f, p);
        EXPECT_NEAR(set->GetPreselectLoss(f), sum / 32.0, 1e-5) << f;
    }
}

TEST(CorrectionPreselect, CurveAcrossTheFilterSpan) {
    auto set = ridgeSet();
    const auto& im = ridgeImage();
    const int f = 7;  // 133 to 214 MHz, well above the low-frequency table
    const double start = 1.33e8, step = (2.14e8 - 1.33e8) / 31.0;

    set->SetTemperature(kCalTemperatures[2]);
    std::vector<float> out(32);
    set->GetPreselectCurve(f, start, step, 32, out.data());
    for (int p = 0; p < 32; ++p) EXPECT_NEAR(out[p], im.preselect[2][f][p], 1e-6) << p;

    // Half-way between points and between temperatures.
    set->SetTemperature(tempAt(2, 0.25));
    const double t = set->tempFrac;
    set->GetPreselectCurve(f, start + 0.5 * step, step, 31, out.data());
    for (int p = 0; p < 31; ++p) {
        const double lo = 0.5 * (preselectModel(2, f, p) + preselectModel(2, f, p + 1));
        const double hi = 0.5 * (preselectModel(3, f, p) + preselectModel(3, f, p + 1));
        EXPECT_NEAR(out[p], between(lo, hi, t), 2e-5) << p;
    }

    // Below the filter: the first point; beyond it: the last.
    set->SetTemperature(kCalTemperatures[2]);
    float edge[2];
    set->GetPreselectCurve(f, start - 5e6, 5e6 + 2.14e8 - start + 1e6, 2, edge);
    EXPECT_EQ(edge[0], im.preselect[2][f][0]);
    EXPECT_EQ(edge[1], im.preselect[2][f][31]);
}

TEST(CorrectionPreselect, CurveCarriesTheLowFrequencyCorrectionWhenStartingLow) {
    auto set = mesaSet();
    const auto& im = mesaImage();
    set->SetTemperature(kCalTemperatures[7]);
    const double step = (5e7 - 1e5) / 31.0;
    std::vector<float> curve(5), low(5);
    // Filter 0 starts at 100 kHz, where the low-frequency table starts too.
    set->GetPreselectCurve(0, 1e5, 1e4, 5, curve.data());
    set->GetLowFreqCurve(1e5, 1e4, 5, low.data());
    for (int i = 0; i < 5; ++i) {
        const double x = i * 1e4 / step;
        const double pres = im.preselect[7][0][0] + x * (im.preselect[7][0][1] - im.preselect[7][0][0]);
        EXPECT_NEAR(low[i], lowFreqModel(i), 1e-6) << i;
        EXPECT_NEAR(curve[i], pres + lowFreqModel(i), 2e-5) << i;
    }
    // Starting above 500 kHz: no low-frequency part.
    set->GetPreselectCurve(0, 500001.0, 1e4, 1, curve.data());
    const double x = (500001.0 - 1e5) / step;
    EXPECT_NEAR(curve[0], im.preselect[7][0][0] + x * (im.preselect[7][0][1] - im.preselect[7][0][0]), 2e-5);
}

TEST(CorrectionLowFreq, OnlyTheStartFrequencyDecides) {
    auto set = mesaSet();
    std::vector<float> out(15, -99.0f);
    set->GetLowFreqCurve(500001.0, 1.0, 8, out.data());
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], 0.0f) << i;
    EXPECT_EQ(out[8], -99.0f);  // n values and no more

    // 500 kHz lies beyond the last point (490 kHz): the last entry holds,
    // and keeps holding for bins far above.
    set->GetLowFreqCurve(500000.0, 1e6, 3, out.data());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], mesaImage().lowFreqCorrection[39]);

    // On the table's 10 kHz points and half-way between them.
    set->GetLowFreqCurve(1e5, 5e3, 8, out.data());
    for (int i = 0; i < 8; ++i) {
        const double expect = i % 2 == 0 ? lowFreqModel(i / 2) : 0.5 * (lowFreqModel(i / 2) + lowFreqModel(i / 2 + 1));
        EXPECT_NEAR(out[i], expect, 1e-6) << i;
    }
    // Below 100 kHz: the first entry.
    set->GetLowFreqCurve(2e4, 1e4, 2, out.data());
    EXPECT_EQ(out[0], mesaImage().lowFreqCorrection[0]);
    EXPECT_EQ(out[1], mesaImage().lowFreqCorrection[0]);

    // The neutral table: 0.4 dB at 100 kHz falling to nothing by 240 kHz.
    CorrectionSet neutral;
    neutral.GetLowFreqCurve(1e5, 1e4, 15, out.data());
    EXPECT_EQ(out[0], 0.4f);
    EXPECT_EQ(out[13], 0.02f);
    neutral.GetLowFreqCurve(2.4e5, 1e4, 1, out.data());
    EXPECT_EQ(out[0], 0.0f);
}

TEST(CorrectionTimebase, OffsetIsMixedAndTruncatedTowardsZero) {
    auto set = mesaSet();
    set->SetTemperature(kCalTemperatures[0]);
    EXPECT_EQ(set->GetTimebaseOffset(), timebaseOffsetModel(0));  // -35
    set->SetTemperature(tempAt(0, 0.55));  // -35 * 0.45 + -27 * 0.55 = -30.6
    EXPECT_EQ(set->GetTimebaseOffset(), -30);
    set->SetTemperature(tempAt(8, 0.45));  // 85 and 109: 95.8
    EXPECT_EQ(set->GetTimebaseOffset(), 95);
    set->SetTemperature(tempAt(8, 0.55));  // 98.2
    EXPECT_EQ(set->GetTimebaseOffset(), 98);
    set->SetTemperature(99.0f);
    EXPECT_EQ(set->GetTimebaseOffset(), timebaseOffsetModel(10));
}

TEST(CorrectionRidge, GateBiasAndBand6Words) {
    CorrectionSet set;
    set.SetTemperature(20.0f);
    EXPECT_EQ(set.GetLOGateBias(), -2.0f);  // Mesa in force
    set.isRidge = 1;
    EXPECT_EQ(set.GetLOGateBias(), -1.5f);  // no corrections: the head's default

    auto rs = ridgeSet();
    rs->SetTemperature(kCalTemperatures[4]);
    EXPECT_EQ(rs->GetLOGateBias(), ridgeImage().loGateBias[4]);
    rs->SetTemperature(tempAt(4, 0.5));
    EXPECT_NEAR(rs->GetLOGateBias(), -1.62 + 0.013 * 4.5, 1e-5);

    // An image without corrections falls back to loGateBiasDefault of the
    // working head, not to the table.
    auto bare = std::make_unique<RidgeCalData>(ridgeImage());
    bare->calDate = 0xFFFFFFFFu;
    rs->LoadCorrections(*bare);
    EXPECT_EQ(rs->GetLOGateBias(), -1.5f);

    rs = ridgeSet();
    const double start = 4.1015625e10, step = 3.90625e7;
    uint32_t bal = 0, gain = 0;
    rs->tempIndex = 3;
    rs->tempFrac = 0.5;  // not above 0.5: lower row
    rs->GetBand6Words(start + 2.49 * step, &bal, &gain);
    EXPECT_EQ(bal, 0x20000u + 256u * 3 + 2);
    EXPECT_EQ(gain, 0x30000u + 256u * 3 + 4);
    rs->GetBand6Words(start + 2.5 * step, &bal, &gain);  // rounds up
    EXPECT_EQ(bal, 0x20000u + 256u * 3 + 3);
    rs->tempFrac = 0.5000001;  // upper row
    rs->GetBand6Words(start + 2.5 * step, &bal, &gain);
    EXPECT_EQ(bal, 0x20000u + 256u * 4 + 3);
    EXPECT_EQ(gain, 0x30000u + 256u * 4 + 6);
    rs->GetBand6Words(start - 1e9, &bal, &gain);
    EXPECT_EQ(bal, 0x20000u + 256u * 4);
    rs->GetBand6Words(start + 200 * step, &bal, &gain);
    EXPECT_EQ(bal, 0x20000u + 256u * 4 + 80);
}

TEST(CorrectionLoad, ReplacesTheCorrectionsAndKeepsTheHead) {
    auto rs = ridgeSet();
    // The working head is still the neutral one: nothing of the loaded
    // image's head came across.
    EXPECT_FALSE(zrCalDoesCBBDataExist(rs->ridge.get()));
    EXPECT_EQ(rs->ridge->loGateBiasDefault, -1.5f);
    EXPECT_EQ(std::memcmp(reinterpret_cast<const uint8_t*>(rs->ridge.get()) + 0x40000,
                          reinterpret_cast<const uint8_t*>(&ridgeImage()) + 0x40000, 0x800000 - 0x40000),
              0);
    EXPECT_EQ(rs->isRidge, 1);
    EXPECT_EQ(rs->CalDate(), ridgeImage().calDate);  // the history is older
    rs->ridge->timebaseValue[3] = 0x7A20;
    rs->ridge->timebaseDate[3] = 1710000000ull;
    EXPECT_EQ(rs->CalDate(), 1710000000u);

    // Loading Mesa corrections puts Mesa in force.
    rs->LoadCorrections(mesaImage());
    EXPECT_EQ(rs->isRidge, 0);
    rs->SetTemperature(kCalTemperatures[1]);
    EXPECT_EQ(rs->GetAttenGain(1, 10), mesaImage().gain[1][1][10]);
}
