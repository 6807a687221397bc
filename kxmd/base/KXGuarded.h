#pragma once

#include <mutex>
#include <utility>

/// A value together with the lock that guards it: without the lock it cannot be reached. A copy
/// takes the value and has a lock of its own.
template <class Value, class Mutex = std::mutex> class KXGuarded {
public:
    /// Access to the value for as long as this object lives.
    template <class Accessed> class Access {
    public:
        Access(Accessed& value, Mutex& mutex)
            : _lock(mutex)
            , _value(value)
        {
        }

        Accessed* operator->() const { return &_value; }
        Accessed& operator*() const { return _value; }

    private:
        std::unique_lock<Mutex> _lock;
        Accessed& _value;
    };

    KXGuarded() = default;
    explicit KXGuarded(Value value)
        : _value(std::move(value))
    {
    }
    KXGuarded(KXGuarded const& other)
        : _value(other.load())
    {
    }
    KXGuarded& operator=(KXGuarded const& other)
    {
        store(other.load());
        return *this;
    }

    [[nodiscard]] Access<Value> lock() { return { _value, _mutex }; }
    [[nodiscard]] Access<Value const> lock() const { return { _value, _mutex }; }

    /// A copy of the value, taken as one unit.
    [[nodiscard]] Value load() const { return *lock(); }

    /// Replaces the value as one unit; the old value is destroyed after the lock is left.
    void store(Value value)
    {
        auto access = lock();
        std::swap(*access, value);
    }

private:
    mutable Mutex _mutex;
    Value _value {};
};
