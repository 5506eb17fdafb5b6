// What zr iq writes beside the samples: SigMF metadata and the spectrum of
// its plot.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "zr/sigmf.h"
#include "zr/spectrum.h"
#include "zr/units.h"

using namespace zrtool;

TEST(ToolSigmf, TimesSegmentsAndAnnotationsAsSigmfReadsThem) {
    EXPECT_EQ(isoUtc(0), "1970-01-01T00:00:00.000000000Z");
    EXPECT_EQ(isoUtc(1795478400123456789), "2026-11-24T00:00:00.123456789Z");
    EXPECT_EQ(isoUtc(-1), "1969-12-31T23:59:59.999999999Z");

    SigmfMeta m;
    m.datatype = "ci16_le";
    m.sampleRate = 781250;
    m.recorder = "test \"quoted\"";
    m.scale = 0.5;
    m.captures = {{0, 1e9, 0}, {4096, 1e9, 1000}};
    m.annotations = {{5000, 1, "trigger", ""}, {4096, 0, "sample loss", "about 10 samples lost"}};
    const std::string j = sigmfJson(m);
    EXPECT_NE(j.find("\"core:sample_rate\": 781250,"), std::string::npos);
    EXPECT_NE(j.find("\"zr:scale\": 0.5,"), std::string::npos);
    EXPECT_NE(j.find("\"test \\\"quoted\\\"\""), std::string::npos);
    // Annotations in sample order; a count only where one was given.
    const size_t loss = j.find("\"core:sample_start\": 4096, \"core:label\": \"sample loss\"");
    const size_t trigger = j.find("\"core:sample_start\": 5000, \"core:sample_count\": 1, \"core:label\": \"trigger\"");
    ASSERT_NE(loss, std::string::npos);
    ASSERT_NE(trigger, std::string::npos);
    EXPECT_LT(loss, trigger);
    EXPECT_NE(j.find("\"core:datetime\": \"1970-01-01T00:00:00.000001000Z\""), std::string::npos);
}

TEST(ToolSpectrum, ToneReadsItsPowerBetweenBinsAndSitsInItsBin) {
    const int n = 1024;
    std::vector<std::complex<float>> x(static_cast<size_t>(n));
    for (double binOffset : {100.0, 100.5, -300.25}) {
        SpectrumAverager one(n);
        const double amplitude = std::sqrt(1e-3);  // -30 dBm
        for (int i = 0; i < n; ++i)
            x[size_t(i)] = std::complex<float>(std::polar(amplitude, 2.0 * M_PI * binOffset * i / n));
        one.add(x.data());
        const std::vector<float> db = one.dbm();
        const int peak = int(std::max_element(db.begin(), db.end()) - db.begin());
        EXPECT_NEAR(peak - n / 2, binOffset, 0.5) << binOffset;
        EXPECT_NEAR(db[size_t(peak)], -30.0, 0.05) << binOffset;
    }
}
