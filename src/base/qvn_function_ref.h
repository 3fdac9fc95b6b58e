/// A callable of the caller's that is handed down for the time of one call: two pointers, no copy,
/// no memory. For loaders that hand over a million rows.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

template <class Signature>
class qvn_function_ref;

template <class Result, class... Arguments>
class qvn_function_ref<Result(Arguments...)> {
 public:
  /// The callable must live as long as this is used. Implicit, so that a lambda can be handed over.
  template <class Callable>
  requires(!std::is_same_v<std::remove_cvref_t<Callable>, qvn_function_ref>)
      qvn_function_ref(Callable&& callable)  // NOLINT(bugprone-forwarding-reference-overload)
      : target_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        call_([](void* target, Arguments... arguments) -> Result {
          return (*static_cast<std::remove_reference_t<Callable>*>(target))(
              std::forward<Arguments>(arguments)...);
        }) {}

  Result operator()(Arguments... arguments) const {
    return call_(target_, std::forward<Arguments>(arguments)...);
  }

 private:
  void* target_;
  Result (*call_)(void*, Arguments...);
};
