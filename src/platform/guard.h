#pragma once
// Where exceptions stop. Nothing thrown inside the library crosses the C
// interface: every export runs its work through guarded() (or withDevice(),
// which adds the handle checks). An allocation failure answers
// zrAllocationErr, settings that a plan cannot turn into counts and sizes
// (OutOfRange) zrInvalidParameterErr; anything else is logged once with the
// export's name and answers zrMeasErr.
#include <exception>
#include <source_location>

#include "zr_api.h"

namespace zr {

// The status for an exception that reached an export; logs it.
ZrStatus statusForException(std::exception_ptr e, const char* where) noexcept;

template <class F>
auto guarded(F&& work, std::source_location where = std::source_location::current()) noexcept
    -> decltype(work()) {
    try {
        return work();
    } catch (...) {
        return static_cast<decltype(work())>(statusForException(std::current_exception(), where.function_name()));
    }
}

}  // namespace zr
