#pragma once
// Where exceptions stop. Nothing thrown inside the library crosses the C
// interface: every export runs its work through guarded() (or withDevice(),
// which adds the handle checks). An allocation failure answers
// zrAllocationErr, settings that a plan cannot turn into counts and sizes
// (OutOfRange) zrInvalidParameterErr; anything else is logged once with the
// export's name and answers zrMeasErr.
#include <exception>
#if defined(__has_builtin)
#if __has_builtin(__builtin_source_location)
#include <source_location>
#define ZR_HAS_SOURCE_LOCATION 1
#endif
#endif

#include "zr_api.h"

namespace zr {

// Where an export was entered, for the log. Compilers without the standard
// form (the fuzzing builds use one) get the function's name alone.
#if ZR_HAS_SOURCE_LOCATION
using SourceLocation = std::source_location;
#else
struct SourceLocation {
    static constexpr SourceLocation current(const char* function = __builtin_FUNCTION()) noexcept {
        SourceLocation s;
        s.function_ = function;
        return s;
    }
    constexpr const char* function_name() const noexcept { return function_; }

private:
    const char* function_ = "";
};
#endif

// The status for an exception that reached an export; logs it.
ZrStatus statusForException(std::exception_ptr e, const char* where) noexcept;

template <class F>
auto guarded(F&& work, SourceLocation where = SourceLocation::current()) noexcept
    -> decltype(work()) {
    try {
        return work();
    } catch (...) {
        return static_cast<decltype(work())>(statusForException(std::current_exception(), where.function_name()));
    }
}

}  // namespace zr
