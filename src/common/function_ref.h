// A reference to something callable: how a part is handed what it must call without knowing who that is.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace tarnvale {

template <typename Signature>
class FunctionRef;

/// Refers to a callable for the length of a call; owns nothing. Two words, no allocation.
template <typename Result, typename... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
  // A lambda is passed as it is; copies are left to the copy constructor.
  template <typename Callable>
  requires(!std::is_same_v<std::remove_cvref_t<Callable>, FunctionRef>)
      // NOLINTNEXTLINE(google-explicit-constructor,bugprone-forwarding-reference-overload)
      FunctionRef(Callable&& callable)
      : object_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        call_([](void* object, Arguments... arguments) -> Result {
          return (*static_cast<std::remove_reference_t<Callable>*>(object))(std::forward<Arguments>(arguments)...);
        }) {}

  Result operator()(Arguments... arguments) const { return call_(object_, std::forward<Arguments>(arguments)...); }

 private:
  void* object_;
  Result (*call_)(void*, Arguments...);
};

}  // namespace tarnvale
