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
        /// Waits for the lock and holds it.
        Access(Accessed& value, Mutex& mutex)
            : _lock(mutex)
            , _value(value)
        {
        }

        /// The value; not to be kept longer than this object.
        Accessed* operator->() const { return &_value; }
        /// The value; not to be kept longer than this object.
        Accessed& operator*() const { return _value; }

    private:
        std::unique_lock<Mutex> _lock;
        Accessed& _value;
    };

    /// A value made without arguments.
    KXGuarded() = default;
    /// The value that is given.
    explicit KXGuarded(Value value)
        : _value(std::move(value))
    {
    }
    /// The value of `other`, taken as one unit.
    KXGuarded(KXGuarded const& other)
        : _value(other.load())
    {
    }
    /// Takes the value of `other`; never holds both locks.
    KXGuarded& operator=(KXGuarded const& other)
    {
        store(other.load());
        return *this;
    }

    /// Waits for the lock; the answer holds it and gives access to the value.
    [[nodiscard]] Access<Value> lock() { return { _value, _mutex }; }
    /// The same, for reading.
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
