#pragma once

#include <boost/function.hpp>

#include <cstddef>
#include <optional>

namespace foundation::msg_svc::threadutil {

/// A map that locks for itself. All operations are safe from any thread.
///
/// A factory and a visitor run with locks of the map held: they must not call the map. Values are
/// handed out as copies, so that they are used with no lock held.
template <typename Key, typename Value>
class ConcurrentMap {
  public:
    ConcurrentMap() = default;
    ConcurrentMap(const ConcurrentMap&) = delete;
    ConcurrentMap& operator=(const ConcurrentMap&) = delete;
    virtual ~ConcurrentMap() = default;

    /// Removes all entries. What they hold dies with no lock held.
    virtual void clear() = 0;

    /// Removes the entry and returns its value; nothing where there was none.
    virtual std::optional<Value> erase(const Key& key) = 0;

    virtual std::optional<Value> find(const Key& key) const = 0;

    /// Returns the value that is there, without calling `factory`; else calls `factory` once, keeps
    /// what it returns and returns a copy. A factory that throws leaves no entry behind, and its
    /// exception leaves this function. Throws `std::logic_error` "neither inserted nor found?" where
    /// neither happened.
    virtual Value findOrInsert(const Key& key, const boost::function<Value()>& factory) = 0;

    /// Calls `visitor` with each entry, one at a time, in no particular order. The second form may
    /// change the values.
    virtual void forEach(const boost::function<void(const Key&, const Value&)>& visitor) const = 0;
    virtual void forEach(const boost::function<void(const Key&, Value&)>& visitor) = 0;

    virtual bool contains(const Key& key) const = 0;

    virtual std::size_t size() const = 0;
};

}  // namespace foundation::msg_svc::threadutil
