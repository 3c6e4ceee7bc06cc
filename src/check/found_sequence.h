// Two sequences in the same order that should hold the same items.
//
// The wanted items come one by one; the found ones are pulled, some of them ahead. A found item that sorts before the
// wanted one is surplus. One that sorts behind it may be damaged and would hide all that follows: when the wanted item
// is seen ahead, those in front of it are surplus, else the wanted one is missing. So a fault costs one or two
// differences and the sequences meet again behind it.
//
//   wanted  A B C D    found  A Z C D    for B: Z sorts behind and B is not ahead: B is missing
//                                        for C: Z sorts behind, C is ahead: Z is surplus
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <utility>

namespace tarnvale {

template <typename Item>
class FoundSequence {
 public:
  /// `pull` puts the next found item into its argument; false at the end, also when it is called again.
  explicit FoundSequence(std::function<bool(Item&)> pull) : pull_(std::move(pull)) {}

  /// Takes the found item for which `order` is 0 out of the sequence, or returns null when it is missing. `order` is
  /// negative for an item that sorts before the wanted one, positive for one behind. `surplus` gets those left out. The
  /// item holds until the next call.
  template <typename Order, typename Surplus>
  const Item* find(const Order& order, const Surplus& surplus) {
    while (const Item* const item = at(0)) {
      const int found = order(*item);
      if (found > 0 && !isAhead(order)) return nullptr;
      drop();
      if (found == 0) return item;
      surplus(*item);
    }
    return nullptr;
  }

  /// Hands all that is left to `surplus`.
  template <typename Surplus>
  void finish(const Surplus& surplus) {
    for (const Item* item = at(0); item != nullptr; item = at(0)) {
      surplus(*item);
      drop();
    }
  }

 private:
  static constexpr std::size_t capacity = 16;

  Item* at(std::size_t ahead) {
    while (count_ <= ahead && pull_(items_[(first_ + count_) % capacity])) ++count_;
    return ahead < count_ ? &items_[(first_ + ahead) % capacity] : nullptr;
  }

  template <typename Order>
  bool isAhead(const Order& order) {
    for (std::size_t ahead = 1; ahead < capacity; ++ahead) {
      const Item* const item = at(ahead);
      if (item == nullptr) return false;
      if (order(*item) == 0) return true;
    }
    return false;
  }

  void drop() {
    first_ = (first_ + 1) % capacity;
    --count_;
  }

  std::function<bool(Item&)> pull_;
  std::array<Item, capacity> items_{};  // a ring
  std::size_t first_ = 0;
  std::size_t count_ = 0;
};

}  // namespace tarnvale
