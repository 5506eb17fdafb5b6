#include "platform/guard.h"

#include <new>
#include <stdexcept>

#include "platform/checked.h"
#include "platform/error_log.h"

namespace zr {

ZrStatus statusForException(std::exception_ptr e, const char* where) noexcept {
    try {
        std::rethrow_exception(e);
    } catch (const std::bad_alloc&) {
        return zrAllocationErr;
    } catch (const OutOfRange&) {
        // Settings that a plan cannot turn into counts and sizes.
        return zrInvalidParameterErr;
    } catch (const std::length_error&) {
        // A size past what a container can hold: the same story for the
        // caller as memory that is not there.
        return zrAllocationErr;
    } catch (const std::exception& x) {
        logError("Error: %s caught %s\n", where, x.what());
    } catch (...) {
        logError("Error: %s caught an exception of unknown type\n", where);
    }
    return zrMeasErr;
}

}  // namespace zr
