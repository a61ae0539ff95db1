#pragma once
// The exception guard of a model object's locked accessors: the body runs
// inside it; an exception is logged as "<Error:> Exception caught in
// <selector>" and swallowed, and a getter then answers its type's empty
// value. `fault`, when set, is called first with the selector: the seam by
// which tests make a guarded body fail.

#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "foundation/log_sink.h"

namespace halyard {

template <class Body>
auto runGuarded(const char* selector, const std::function<void(std::string_view)>& fault, Body&& body) {
  using Result = std::invoke_result_t<Body&>;
  try {
    if (fault) fault(selector);
    return body();
  } catch (...) {
    logLine(std::string("<Error:> Exception caught in ") + selector, LogPriority::Error);
    if constexpr (!std::is_void_v<Result>) return Result{};
  }
}

}  // namespace halyard
