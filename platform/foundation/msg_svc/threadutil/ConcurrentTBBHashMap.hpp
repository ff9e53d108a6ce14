#pragma once

#include "foundation/msg_svc/threadutil/ConcurrentMap.hpp"

#include <boost/thread/lock_types.hpp>
#include <boost/thread/shared_mutex.hpp>
#include <oneapi/tbb/concurrent_hash_map.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace foundation::msg_svc::threadutil {

/// The map on oneTBB's hash map, which guards its entries but not the map as a whole: iteration,
/// `clear` and `size` must be alone. So there are two levels of locks, always taken in this order:
///
/// 1. an upgrade mutex over the map: shared for the operations on one key, exclusive for the others;
/// 2. the lock of one entry, inside the accessor, which ends before the shared lock does.
///
/// `Value` is default-constructible, copyable and movable.
template <typename Key, typename Value>
class ConcurrentTBBHashMap final : public ConcurrentMap<Key, Value> {
  public:
    void clear() override {
        Map doomed;
        const ExclusiveLock lock(mutex_);
        // Swapped, so that the values die behind the lock: `doomed` outlives it.
        doomed.swap(map_);
    }

    std::optional<Value> erase(const Key& key) override {
        const SharedLock lock(mutex_);
        typename Map::accessor entry;
        if (!map_.find(entry, key)) {
            return std::nullopt;
        }
        std::optional<Value> value(std::move(entry->second));
        map_.erase(entry);
        return value;
    }

    std::optional<Value> find(const Key& key) const override {
        const SharedLock lock(mutex_);
        typename Map::const_accessor entry;
        return map_.find(entry, key) ? std::optional<Value>(entry->second) : std::nullopt;
    }

    Value findOrInsert(const Key& key, const boost::function<Value()>& factory) override {
        const SharedLock lock(mutex_);
        typename Map::accessor entry;
        if (map_.insert(entry, key)) {
            // Nobody sees the default value that stands there now: the entry's lock is held.
            try {
                entry->second = factory();
                return entry->second;
            } catch (...) {
                map_.erase(entry);
                throw;
            }
        }
        if (entry.empty()) {
            throw std::logic_error("neither inserted nor found?");
        }
        return entry->second;
    }

    void forEach(const boost::function<void(const Key&, const Value&)>& visitor) const override {
        const ExclusiveLock lock(mutex_);
        for (const auto& [key, value] : map_) {
            visitor(key, value);
        }
    }

    void forEach(const boost::function<void(const Key&, Value&)>& visitor) override {
        const ExclusiveLock lock(mutex_);
        for (auto& [key, value] : map_) {
            visitor(key, value);
        }
    }

    bool contains(const Key& key) const override {
        const SharedLock lock(mutex_);
        return map_.count(key) != 0;
    }

    std::size_t size() const override {
        const ExclusiveLock lock(mutex_);
        return map_.size();
    }

  private:
    /// With the standard allocator: entries are freed on other threads than made them, and the thread
    /// sanitizer sees how memory changes hands there, but not inside the system's oneTBB.
    using Map = oneapi::tbb::concurrent_hash_map<Key, Value, oneapi::tbb::tbb_hash_compare<Key>,
                                                 std::allocator<std::pair<const Key, Value>>>;
    using SharedLock = boost::shared_lock<boost::upgrade_mutex>;

    /// Waits until those that share the lock have gone, and lets no further ones in.
    class ExclusiveLock {
      public:
        explicit ExclusiveLock(boost::upgrade_mutex& mutex) : upgradable_(mutex), exclusive_(upgradable_) {}

      private:
        boost::upgrade_lock<boost::upgrade_mutex> upgradable_;
        boost::upgrade_to_unique_lock<boost::upgrade_mutex> exclusive_;
    };

    mutable boost::upgrade_mutex mutex_;
    Map map_;
};

}  // namespace foundation::msg_svc::threadutil
