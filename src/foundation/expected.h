#pragma once
// Expected<T>: a value or an Error. Failures in this code base are values
// that carry a readable reason, never exceptions escaping into callers and
// never crashes on bad input.

#include <cstddef>
#include <optional>
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

  T& value() & { return std::get<0>(state_); }
  const T& value() const& { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  const Error& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, Error> state_;
};

// For operations that produce nothing but can fail.
struct Done {};
using Status = Expected<Done>;
inline Status success() { return Done{}; }

}  // namespace halyard
