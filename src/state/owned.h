// src/state/owned.h — an owning pointer to an object of a layer above the state: the deleter is
// chosen where the object is made, so that ServiceState can own it without seeing its type.
#pragma once

#include <memory>
#include <utility>

namespace tessera {

// Destroys through the function that makeOwned chose, where T was complete.
template <class T>
struct OwnedDelete {
  void (*destroy)(T*) = nullptr;
  void operator()(T* object) const { destroy(object); }
};

// Null, or the one owner of a T made by makeOwned.
template <class T>
using Owned = std::unique_ptr<T, OwnedDelete<T>>;

// Builds a T that the returned pointer owns.
template <class T, class... Args>
[[nodiscard]] Owned<T> makeOwned(Args&&... args) {
  return Owned<T>(std::make_unique<T>(std::forward<Args>(args)...).release(),
                  OwnedDelete<T>{[](T* object) { std::default_delete<T>()(object); }});
}

}  // namespace tessera
