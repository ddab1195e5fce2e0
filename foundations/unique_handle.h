// The owner of a system handle. A handle is closed exactly once, when its owner is destroyed or given another value.
// The value that means "none" is part of the type, because Windows uses INVALID_HANDLE_VALUE for some kinds and null
// for others. Any type with a `value_type`, a `none()` and a `close()` makes a kind of handle.
#pragma once

#include <utility>

namespace kvx {

template <typename Traits>
class UniqueHandle {
 public:
  using value_type = typename Traits::value_type;

  UniqueHandle() = default;
  explicit UniqueHandle(value_type value) : value_(value) {}
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  UniqueHandle(UniqueHandle&& other) noexcept : value_(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~UniqueHandle() { reset(); }

  [[nodiscard]] explicit operator bool() const { return value_ != Traits::none(); }
  [[nodiscard]] value_type get() const { return value_; }
  [[nodiscard]] value_type release() { return std::exchange(value_, Traits::none()); }
  void reset(value_type value = Traits::none()) {
    const value_type old = std::exchange(value_, value);
    if (old != Traits::none()) Traits::close(old);
  }

 private:
  value_type value_ = Traits::none();
};

}  // namespace kvx
