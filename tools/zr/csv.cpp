#include "csv.h"

#include "sweep_output.h"

namespace zrtool {

bool writeTraceCsv(const std::string& path, const float* levels, int count, double startHz, double binHz,
                   std::string* error) {
    SweepCsv csv;
    return csv.open(path, false, error) && csv.write(0, 0, levels, SweepAxis{startHz, binHz, count}) &&
           csv.close(error);
}

}  // namespace zrtool
