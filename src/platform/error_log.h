#pragma once
// The process-wide error log, mesa_error_log.txt in the data folder. Lines
// are time-stamped; the file starts over once it passes 1000000 bytes. Safe
// from any thread. The first format argument is the reporting function's
// name by convention: logError("Error: %s send returned %d\n", __func__, rc).
namespace zr {

void logError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// For tests: forgets the failed flag and closes the file, as a reload would.
void resetErrorLogForTest();

}  // namespace zr
