/* SPDX-License-Identifier: MIT
 *
 * What threads and signal handlers share, with the members of std::atomic that the library uses. <atomic> itself
 * includes a third of the C++ library: ten times as much to compile, and to check. */
#ifndef KA_CALLER_ATOMIC_H
#define KA_CALLER_ATOMIC_H

enum t_ORDER : int {
    RELAXED = __ATOMIC_RELAXED,
    ACQUIRE = __ATOMIC_ACQUIRE,
    RELEASE = __ATOMIC_RELEASE,
    IN_ORDER = __ATOMIC_SEQ_CST
};

template <typename T>
struct t_ATOMIC {
    t_ATOMIC() = default;
    t_ATOMIC(const t_ATOMIC &) = delete;
    t_ATOMIC &operator=(const t_ATOMIC &) = delete;

    T load(t_ORDER order = IN_ORDER) const { return __atomic_load_n(&value, order); }
    void store(T desired, t_ORDER order = IN_ORDER) { __atomic_store_n(&value, desired, order); }
    T exchange(T desired) { return __atomic_exchange_n(&value, desired, IN_ORDER); }

    /* False when another value is found, which is stored in expected. */
    bool compare_exchange(T &expected, T desired, t_ORDER success = IN_ORDER, t_ORDER failure = IN_ORDER)
    {
        return __atomic_compare_exchange_n(&value, &expected, desired, false, success, failure);
    }

    operator T() const { return load(); }
    T operator=(T desired)
    {
        store(desired);
        return desired;
    }
    T operator++(int) { return __atomic_fetch_add(&value, T{1}, IN_ORDER); }
    T operator--(int) { return __atomic_fetch_sub(&value, T{1}, IN_ORDER); }

private:
    T value = {};
};

#endif
