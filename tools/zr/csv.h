// A trace as CSV: a header line, then one "frequency_hz,level_dbm" row per bin.
#pragma once

#include <string>

namespace zrtool {

bool writeTraceCsv(const std::string& path, const float* levels, int count, double startHz, double binHz,
                   std::string* error);

}  // namespace zrtool
