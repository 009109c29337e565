// A map that finds keys by its own ordering and gives its entries back in insertion order.
#ifndef WX_MAP_ORDERED_HPP
#define WX_MAP_ORDERED_HPP

#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

namespace wx {

// Keys are matched with Compare (case-insensitive for every table of this library); a key keeps
// the spelling and the position of its first insertion, while assignments through operator[]
// replace its value. There is no erase, so sequence numbers of live entries have no gaps.
template <class K, class V, class Compare = std::less<K>,
          class Alloc = std::allocator<std::pair<const K, V>>>
class map_ordered {
 public:
  typedef K key_type;
  typedef V mapped_type;
  typedef std::pair<const K, V> value_type;
  typedef unsigned long long index_type;
  typedef std::map<K, V, Compare, Alloc> values_type;
  typedef std::map<index_type, K> order_type;
  typedef std::map<K, index_type> index_of_key_type;

  // Walks the entries in order of first insertion. It designates the map and a position in the
  // order member; dereferencing finds the entry by its key.
  class const_iterator {
   public:
    typedef std::bidirectional_iterator_tag iterator_category;
    typedef typename map_ordered::value_type value_type;
    typedef std::ptrdiff_t difference_type;
    typedef const value_type* pointer;
    typedef const value_type& reference;

    const_iterator() : map_(0), pos_() {}
    const_iterator(const map_ordered* map, typename order_type::const_iterator pos)
        : map_(map), pos_(pos) {}

    reference operator*() const { return *map_->values_.find(pos_->second); }
    pointer operator->() const { return &**this; }
    const_iterator& operator++() {
      ++pos_;
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old(*this);
      ++pos_;
      return old;
    }
    const_iterator& operator--() {
      --pos_;
      return *this;
    }
    const_iterator operator--(int) {
      const_iterator old(*this);
      --pos_;
      return old;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) {
      return a.pos_ == b.pos_;
    }
    friend bool operator!=(const const_iterator& a, const const_iterator& b) {
      return a.pos_ != b.pos_;
    }

   private:
    const map_ordered* map_;
    typename order_type::const_iterator pos_;
  };
  typedef const_iterator iterator;

  map_ordered() : next_index_(0) {}

  // The value of `key`, inserted empty first when no key compares equal to it. An existing key
  // keeps its spelling and its position.
  V& operator[](const K& key) { return findOrInsert(key); }
  // The same; a new key is moved into the last of its three copies.
  V& operator[](K&& key) { return findOrInsert(std::move(key)); }

  // The stored value of `key`, or null when absent. Never inserts.
  const V* lookup(const K& key) const {
    typename values_type::const_iterator it = values_.find(key);
    return it == values_.end() ? 0 : &it->second;
  }

  const_iterator begin() const { return const_iterator(this, order_.begin()); }
  const_iterator end() const { return const_iterator(this, order_.end()); }
  std::size_t size() const { return values_.size(); }
  bool empty() const { return values_.empty(); }

 private:
  // Finds `key` in the values, or inserts it into the values, the order and the index of keys,
  // in that order, each copy built in place.
  template <class Key>
  V& findOrInsert(Key&& key) {
    typename values_type::iterator it = values_.lower_bound(key);
    if (it != values_.end() && !values_.key_comp()(key, it->first)) return it->second;
    it = values_.emplace_hint(it, std::piecewise_construct, std::forward_as_tuple(key),
                              std::forward_as_tuple());
    const index_type index = next_index_++;
    order_.emplace_hint(order_.end(), index, key);
    index_of_key_.emplace(std::forward<Key>(key), index);
    return it->second;
  }

  values_type values_;
  index_type next_index_;
  order_type order_;
  index_of_key_type index_of_key_;
};

}  // namespace wx

#endif  // WX_MAP_ORDERED_HPP
