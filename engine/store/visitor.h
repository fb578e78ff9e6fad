// A reference to a callable, for visitors that are called during a call and not kept: two words, no
// allocation. The callable must outlive the call it is passed to; a lambda written in the argument list does.
#ifndef BRYND_STORE_VISITOR_H
#define BRYND_STORE_VISITOR_H

#include <memory>
#include <type_traits>
#include <utility>

namespace brynd::store {

template <class Signature>
class Visitor;

template <class Result, class... Arguments>
class Visitor<Result(Arguments...)> {
 public:
  template <class Callable>
  requires(!std::is_same_v<std::remove_cvref_t<Callable>, Visitor> &&
           std::is_invocable_r_v<Result, Callable&, Arguments...>)
      Visitor(Callable&& callable)  // NOLINT: a lambda converts where it is passed
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

}  // namespace brynd::store

#endif  // BRYND_STORE_VISITOR_H
