// The IF correction filter against a reference written from the filter's
// definition in plain double-precision complex arithmetic: a full 64-point
// spectrum with its mirrored half, per-bin complex gains for the I and the Q
// path, and a full inverse DFT.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "calibration/correction_set.h"
#include "support/cal_images.h"

using namespace zr;
using namespace zr::test;

namespace {

using cd = std::complex<double>;
constexpr double kPi = std::numbers::pi;

struct Reference {
    double a[63], b[63];
    double gainDb;
    double outerPeakBeforeLimit;
};

// Columns as the filter reads them: R, P, F of one slice at temperature
// fraction t between rows ti and ti + 1.
template <class Image>
void columns(const Image& im, int ti, double t, int slice, double R[28], double P[28], double F[28]) {
    for (int k = 0; k < 28; ++k) {
        R[k] = im.ifRatio[ti][slice][k] + t * (im.ifRatio[ti + 1][slice][k] - im.ifRatio[ti][slice][k]);
        P[k] = im.ifPhase[ti][slice][k] + t * (im.ifPhase[ti + 1][slice][k] - im.ifPhase[ti][slice][k]);
        F[k] = im.ifFlatness[ti][slice][k] + t * (im.ifFlatness[ti + 1][slice][k] - im.ifFlatness[ti][slice][k]);
    }
}

Reference reference(const double R[28], const double P[28], const double F[28], int slice, bool narrow) {
    int good = slice == 4 ? 9 : slice < 4 ? 23 : narrow ? 15 : 25;

    // Ideal low-pass, cut-off 0.45 of the rate, 63 taps, sum 1.
    const double fc = static_cast<double>(0.45f);
    std::vector<double> h(64, 0.0);
    double sum = 0;
    for (int n = 0; n < 63; ++n) {
        const double x = 2 * fc * (n - 31);
        h[n] = 2 * fc * (x == 0 ? 1.0 : std::sin(kPi * x) / (kPi * x));
        sum += h[n];
    }
    for (double& v : h) v /= sum;

    std::vector<cd> H(64);
    for (int m = 0; m < 64; ++m) {
        for (int n = 0; n < 64; ++n) H[m] += h[n] * std::polar(1.0, -2 * kPi * m * n / 64);
        H[m] /= 64.0;
    }

    // Per-bin path gains: flatness in amplitude, the I/Q ratio split as a
    // square root between the paths, the phase split in halves.
    std::vector<cd> GI(64, 1.0), GQ(64, 1.0);
    const double r0 = std::sqrt(2 * R[0] - R[1]);
    const double s0 = std::pow(10.0, F[0] / 20.0);
    GI[0] = s0 / r0;
    GQ[0] = s0 * r0;
    for (int m = 1; m < 32; ++m) {
        const int j = std::min(m - 1, good - 1);
        const double s = std::pow(10.0, F[j] / 20.0), r = std::sqrt(R[j]);
        GI[m] = s / r * std::polar(1.0, -P[j] / 2);
        GQ[m] = s * r * std::polar(1.0, P[j] / 2);
        GI[64 - m] = std::conj(GI[m]);
        GQ[64 - m] = std::conj(GQ[m]);
    }

    Reference ref{};
    for (int n = 0; n < 63; ++n) {
        cd xi = 0, xq = 0;
        for (int m = 0; m < 64; ++m) {
            const cd e = std::polar(1.0, 2 * kPi * m * n / 64);
            xi += H[m] * GI[m] * e;
            xq += H[m] * GQ[m] * e;
        }
        const double w = 0.54 - 0.46 * std::cos(2 * kPi * n / 62);
        ref.a[n] = xi.real() * w;
        ref.b[n] = xq.real() * w;
    }
    const double centre = std::max(ref.a[31], ref.b[31]);
    double A = 0, B = 0, peak = 0;
    for (int n = 0; n < 63; ++n) {
        ref.a[n] /= centre;
        ref.b[n] /= centre;
        A += ref.a[n];
        B += ref.b[n];
    }
    for (int n = 0; n < 63; ++n)
        if (n < 30 || n > 32) peak = std::max({peak, std::fabs(ref.a[n]), std::fabs(ref.b[n])});
    ref.gainDb = -20 * std::log10(std::hypot(A, B));
    ref.outerPeakBeforeLimit = peak;
    if (peak > 0.25) {
        for (int n = 0; n < 63; ++n) {
            ref.a[n] *= 0.25 / peak;
            ref.b[n] *= 0.25 / peak;
        }
        ref.gainDb += 20 * std::log10(peak / 0.25);
    }
    return ref;
}

template <class Image>
Reference referenceFor(const Image& im, const CorrectionSet& set, int slice, bool narrow) {
    double R[28], P[28], F[28];
    columns(im, set.tempIndex, static_cast<float>(set.tempFrac), slice, R, P, F);
    return reference(R, P, F, slice, narrow);
}

void expectMatches(const CorrectionSet& set, const Reference& ref, int slice, bool narrow) {
    float taps[126];
    double gain = 0;
    set.BuildIFFilter(slice, taps, narrow, &gain);
    for (int n = 0; n < 63; ++n) {
        EXPECT_NEAR(taps[2 * n], ref.a[n], 2e-6) << "a[" << n << "] slice " << slice << " narrow " << narrow;
        EXPECT_NEAR(taps[2 * n + 1], ref.b[n], 2e-6) << "b[" << n << "] slice " << slice << " narrow " << narrow;
    }
    EXPECT_NEAR(gain, ref.gainDb, 2e-5) << "slice " << slice << " narrow " << narrow;
}

float tempBetween(int i, double t) {
    return static_cast<float>(kCalTemperatures[i] + t * (kCalTemperatures[i + 1] - kCalTemperatures[i]));
}

}  // namespace

TEST(IFFilter, NeutralImageGivesEqualPathsAndUnitCentre) {
    CorrectionSet set;
    set.SetTemperature(25.0f);
    float taps[126];
    double gain = 0;
    set.BuildIFFilter(100, taps, true, &gain);
    for (int n = 0; n < 63; ++n) EXPECT_EQ(taps[2 * n], taps[2 * n + 1]) << n;
    EXPECT_EQ(taps[62], 1.0f);
    EXPECT_EQ(taps[63], 1.0f);
    // The neutral flatness is +1 dB in every column and the two equal paths
    // add as a vector: the gain lands near -3.9 dB, not at 0.
    EXPECT_GT(gain, -4.5);
    EXPECT_LT(gain, -3.3);
    double R[28], P[28], F[28];
    std::fill(R, R + 28, 1.0);
    std::fill(P, P + 28, 0.0);
    std::fill(F, F + 28, 1.0);
    const Reference ref = reference(R, P, F, 100, true);
    EXPECT_NEAR(gain, ref.gainDb, 2e-5);
}

TEST(IFFilter, MatchesReferenceOnAMeasuredMesaImage) {
    const auto im = makeMesaImage();
    CorrectionSet set;
    set.LoadCorrections(*im);
    set.SetTemperature(tempBetween(6, 0.37));
    ASSERT_GT(set.tempFrac, 0.0);
    for (int slice : {0, 3, 4, 5, 17, 260, 524})
        for (bool narrow : {false, true}) expectMatches(set, referenceFor(*im, set, slice, narrow), slice, narrow);
    // On a table point and at the ends of the axis.
    for (float deg : {kCalTemperatures[2], -70.0f, 80.0f}) {
        set.SetTemperature(deg);
        expectMatches(set, referenceFor(*im, set, 123, true), 123, true);
    }
}

TEST(IFFilter, MatchesReferenceOnAMeasuredRidgeImage) {
    const auto im = makeRidgeImage();
    CorrectionSet set;
    set.LoadCorrections(*im);
    set.SetTemperature(tempBetween(1, 0.8));
    for (int slice : {2, 4, 600, 1129}) expectMatches(set, referenceFor(*im, set, slice, false), slice, false);
}

// Columns from the count of good columns on are not read; the last good
// column stands in for them. Disturbing a column shows whether it is read.
TEST(IFFilter, GoodColumnCountBySliceAndWidth) {
    struct Case {
        int slice;
        bool narrow;
        int good;
    };
    for (const Case& c : {Case{3, true, 23}, Case{3, false, 23}, Case{4, false, 9}, Case{4, true, 9},
                          Case{5, true, 15}, Case{5, false, 25}}) {
        auto im = makeMesaImage();
        CorrectionSet set;
        set.LoadCorrections(*im);
        set.SetTemperature(20.0f);
        float base[126], moved[126];
        double g0, g1;
        set.BuildIFFilter(c.slice, base, c.narrow, &g0);

        for (int t = 0; t < 11; ++t) set.mesa->ifFlatness[t][c.slice][c.good] += 3.0f;
        set.BuildIFFilter(c.slice, moved, c.narrow, &g1);
        EXPECT_EQ(std::memcmp(base, moved, sizeof base), 0) << "slice " << c.slice << " narrow " << c.narrow;
        EXPECT_EQ(g0, g1);

        for (int t = 0; t < 11; ++t) set.mesa->ifFlatness[t][c.slice][c.good - 1] += 3.0f;
        set.BuildIFFilter(c.slice, moved, c.narrow, &g1);
        EXPECT_NE(std::memcmp(base, moved, sizeof base), 0) << "slice " << c.slice << " narrow " << c.narrow;
    }
}

// A slice whose IF is badly tilted needs outer taps beyond 0.25 of the
// centre; the filter is then scaled so the largest outer tap is 0.25 and the
// lost level is returned in the gain. Its coefficients all fit.
TEST(IFFilter, PeakLimitScalesOuterTapsIntoSixteenBits) {
    auto im = makeMesaImage();
    const int slice = 200;
    for (int t = 0; t < 11; ++t)
        for (int k = 0; k < 28; ++k) {
            // A narrow pass band inside a deep trough: a long ringing
            // impulse response.
            im->ifFlatness[t][slice][k] = static_cast<float>(k >= 10 && k <= 12 ? 4.0 + 0.2 * t : -20.0);
            im->ifPhase[t][slice][k] = static_cast<float>(0.3 * std::sin(0.9 * k));
        }
    CorrectionSet set;
    set.LoadCorrections(*im);
    set.SetTemperature(tempBetween(3, 0.5));
    const Reference ref = referenceFor(*im, set, slice, false);
    ASSERT_GT(ref.outerPeakBeforeLimit, 0.25);  // the case under test
    expectMatches(set, ref, slice, false);

    float taps[126];
    double gain;
    set.BuildIFFilter(slice, taps, false, &gain);
    float peak = 0;
    for (int i = 0; i < 126; ++i)
        if (i < 60 || i > 65) peak = std::max(peak, std::fabs(taps[i]));
    EXPECT_NEAR(peak, 0.25f, 1e-6);
    EXPECT_LT(std::max(taps[62], taps[63]), 1.0f);  // the centre came down with it

    int coeffs[126];
    bool fits = false;
    ASSERT_EQ(ifCorrectionCoefficients(im.get(), slice, tempBetween(3, 0.5), false, coeffs, fits), zrNoError);
    EXPECT_TRUE(fits);
    for (int i = 0; i < 126; ++i) {
        EXPECT_EQ(coeffs[i], static_cast<int>(taps[i] * 131071.0)) << i;
        if (i < 60 || i > 65) {
            EXPECT_LE(std::abs(coeffs[i]), 32767) << i;
        }
    }

    // The measured image stays below the limit: centre at full scale.
    const auto plain = makeMesaImage();
    set.LoadCorrections(*plain);
    set.SetTemperature(tempBetween(3, 0.5));
    EXPECT_LE(referenceFor(*plain, set, slice, false).outerPeakBeforeLimit, 0.25);
    set.BuildIFFilter(slice, taps, false, &gain);
    EXPECT_EQ(std::max(taps[62], taps[63]), 1.0f);
    ASSERT_EQ(ifCorrectionCoefficients(plain.get(), slice, tempBetween(3, 0.5), false, coeffs, fits), zrNoError);
    EXPECT_TRUE(fits);
    EXPECT_EQ(std::max(coeffs[62], coeffs[63]), 131071);
}

TEST(IFFilter, CoefficientRangesAndRefusals) {
    EXPECT_TRUE(ifCoefficientFits(0, 32768));  // one above what a 16-bit register holds
    EXPECT_FALSE(ifCoefficientFits(0, 32769));
    EXPECT_TRUE(ifCoefficientFits(125, -32768));
    EXPECT_FALSE(ifCoefficientFits(59, -32769));
    EXPECT_TRUE(ifCoefficientFits(60, 131071));
    EXPECT_TRUE(ifCoefficientFits(65, -131071));
    EXPECT_FALSE(ifCoefficientFits(65, 131072));
    EXPECT_FALSE(ifCoefficientFits(66, 40000));

    const auto im = makeRidgeImage();
    int coeffs[126];
    bool fits = true;
    EXPECT_EQ(ifCorrectionCoefficients(static_cast<const RidgeCalData*>(nullptr), 0, 20.0f, true, coeffs, fits),
              zrNullPtrErr);
    EXPECT_EQ(ifCorrectionCoefficients(im.get(), 0, 20.0f, true, nullptr, fits), zrNullPtrErr);
    EXPECT_EQ(ifCorrectionCoefficients(im.get(), 1130, 20.0f, true, coeffs, fits), zrInvalidParameterErr);
    EXPECT_EQ(ifCorrectionCoefficients(reinterpret_cast<const MesaCalData*>(im.get()), 525, 20.0f, true, coeffs, fits),
              zrInvalidParameterErr);
    ASSERT_EQ(ifCorrectionCoefficients(im.get(), 1129, 20.0f, true, coeffs, fits), zrNoError);
    EXPECT_TRUE(fits);

    // A damaged table (a NaN column) cannot fit any register.
    auto broken = makeRidgeImage();
    for (int t = 0; t < 11; ++t) broken->ifFlatness[t][50][0] = std::nanf("");
    ASSERT_EQ(ifCorrectionCoefficients(broken.get(), 50, 20.0f, true, coeffs, fits), zrNoError);
    EXPECT_FALSE(fits);

    // An image without corrections is measured with the neutral tables.
    auto empty = std::make_unique<MesaCalData>();
    std::memset(empty.get(), 0xFF, sizeof *empty);
    ASSERT_EQ(ifCorrectionCoefficients(empty.get(), 10, 20.0f, false, coeffs, fits), zrNoError);
    EXPECT_TRUE(fits);
    for (int n = 0; n < 63; ++n) EXPECT_EQ(coeffs[2 * n], coeffs[2 * n + 1]);
    EXPECT_EQ(coeffs[62], 131071);
}

// Low-pass shapes of every width and depth: from filters that need no limit
// through ones just past it to narrow ones whose centre neighbours are the
// largest taps. All must match the reference, and the set must reach each
// of those regimes, or the comparison would prove little.
TEST(IFFilter, MatchesReferenceAcrossShapesAroundThePeakLimit) {
    auto im = makeMesaImage();
    CorrectionSet set;
    set.LoadCorrections(*im);
    set.SetTemperature(tempBetween(7, 0.2));
    const int slice = 300;
    bool unlimited = false, justPast = false, neighbourLargest = false;
    for (int edge = 1; edge <= 14; ++edge)
        for (double depth : {2.0, 4.0, 7.0, 12.0, 25.0}) {
            for (int t = 0; t < 11; ++t)
                for (int k = 0; k < 28; ++k)
                    set.mesa->ifFlatness[t][slice][k] = static_cast<float>(k < edge ? 0.05 * t : -depth);
            const Reference ref = referenceFor(*set.mesa, set, slice, false);
            expectMatches(set, ref, slice, false);
            const double p = ref.outerPeakBeforeLimit;
            unlimited |= p <= 0.25;
            justPast |= p > 0.25 && p < 0.3;
            const double scale = p > 0.25 ? 0.25 / p : 1.0;
            neighbourLargest |= std::max({std::fabs(ref.a[30]), std::fabs(ref.a[32])}) > p * scale;
        }
    EXPECT_TRUE(unlimited);
    EXPECT_TRUE(justPast);
    EXPECT_TRUE(neighbourLargest);
}
