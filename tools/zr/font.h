// A 5x7 bitmap font of our own for plot labels: digits, both cases of the
// Latin letters and the punctuation that frequencies, levels and settings
// need. Each glyph sits in a 6x8 cell (one column and one row of spacing).
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace zrtool {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kCellWidth = 6;
constexpr int kCellHeight = 8;

// Seven rows, bit 4 the leftmost column. Characters without a glyph get a
// hollow box so that a missing glyph shows instead of vanishing.
std::array<uint8_t, kGlyphHeight> glyphRows(char c);
bool hasGlyph(char c);

// Width in pixels of a text at a scale, without the trailing spacing column.
int textWidth(const std::string& text, int scale);

}  // namespace zrtool
