#pragma once
// Expected<T>: a value or an Error, the core's one way to carry a failure.
//
// The convention:
// - Anything that can fail on its input (bytes, files, paths, the system)
//   returns Expected<T>, or Status when there is no value. The Error says
//   what failed in words that name the path or value; `offset` locates it in
//   a byte stream.
// - Where a numeric code is itself the interface (an errno value or a
//   platform code such as fileservices' kUserCanceledErr that callers compare
//   against), the code travels as the value: Expected<ErrorCode> or an
//   ErrorCode result, and its message is made from it where it is shown.
// - A caller's own fault is not an Error value: reading value() of an
//   Expected that holds an error, or handing the archive writer a type
//   string it cannot write, throws std::logic_error with the message, so the
//   fault is told, not silently turned into a default.
// Never an exception escaping on bad input, never a crash.

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

namespace halyard {

// Why something failed. `offset` is the byte position in the input where the
// failure was found, when the input is a byte stream.
struct Error {
  std::string message;
  std::optional<std::size_t> offset;

  std::string describe() const {
    if (!offset) return message;
    return message + " (at byte offset " + std::to_string(*offset) + ")";
  }
};

inline Error makeError(std::string message, std::optional<std::size_t> offset = std::nullopt) {
  return Error{std::move(message), offset};
}

// The result of an operation that can fail: either a T or an Error.
template <class T>
class [[nodiscard]] Expected {
 public:
  Expected(T value) : state_(std::move(value)) {}
  Expected(Error error) : state_(std::move(error)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & {
    checked();
    return std::get<0>(state_);
  }
  const T& value() const& {
    checked();
    return std::get<0>(state_);
  }
  T&& value() && {
    checked();
    return std::get<0>(std::move(state_));
  }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  const Error& error() const {
    if (ok()) throw std::logic_error("error() read on a value");
    return std::get<1>(state_);
  }

 private:
  void checked() const {
    if (!ok()) throw std::logic_error("value() read on an error: " + std::get<1>(state_).describe());
  }

  std::variant<T, Error> state_;
};

// For operations that produce nothing but can fail.
struct Done {};
using Status = Expected<Done>;
inline Status success() { return Done{}; }

}  // namespace halyard
