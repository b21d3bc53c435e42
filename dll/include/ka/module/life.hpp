// SPDX-License-Identifier: MIT
//
// The life of a module and of a call: hooks, call-backs, the scratch area, the end. ka/module.hpp includes this.
#ifndef KA_MODULE_LIFE_HPP
#define KA_MODULE_LIFE_HPP

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "ka/dll_host.h"
#include "ka/dll_module.h"

namespace ka {

// SIGTERM, with which a caller ends a module, comes at any moment and ends the process in the middle of a function,
// with the heap perhaps half changed. For the life of this object it waits: for the scopes in which a function
// changes what dll_cleanup, or a static destructor, works with. The caller waits for its grace time only, then comes
// SIGKILL.
class uninterrupted {
public:
    uninterrupted() noexcept { was_held_ = hold(); }
    ~uninterrupted()
    {
        if (was_held_) return;
        const sigset_t end = just_the_end();
        pthread_sigmask(SIG_UNBLOCK, &end, nullptr);
    }
    uninterrupted(const uninterrupted &) = delete;
    uninterrupted &operator=(const uninterrupted &) = delete;

    // Holds SIGTERM back in this thread; true if it was held back before.
    static bool hold() noexcept
    {
        const sigset_t end = just_the_end();
        sigset_t before;
        pthread_sigmask(SIG_BLOCK, &end, &before);
        return sigismember(&before, SIGTERM) == 1;
    }
    static bool is_held() noexcept
    {
        sigset_t now;
        pthread_sigmask(SIG_BLOCK, nullptr, &now);
        return sigismember(&now, SIGTERM) == 1;
    }

private:
    static sigset_t just_the_end() noexcept
    {
        sigset_t end;
        sigemptyset(&end);
        sigaddset(&end, SIGTERM);
        return end;
    }
    bool was_held_;
};

// dll_callback: sends value to the caller, and returns its answer. While it waits, SIGTERM comes in spite of an
// ka::uninterrupted around it, which holds again afterwards.
inline std::int32_t callback(std::int32_t value) noexcept
{
    const bool is_held = uninterrupted::is_held();
    const std::int32_t answer = dll_callback(value);
    if (is_held) uninterrupted::hold();
    return answer;
}

// The scratch area as a T; null when it is too small for one, or there is none. It stays from call to call, and the
// caller sees it.
template <typename T>
T *scratch() noexcept
{
    static_assert(std::is_trivially_copyable_v<T>, "ka::scratch: the caller sees only the bytes of the object");
    constexpr std::size_t size = sizeof(T);
    static_assert(size <= INT32_MAX, "ka::scratch: no segment is that large");
    return static_cast<T *>(dll_scratch(static_cast<std::int32_t>(size)));
}

} // namespace ka

// Once in a module, outside of all namespaces: void F() runs at the start, before the first call.
#define KA_ON_SETUP(F)   \
    void dll_setup(void) \
    {                    \
        (F)();           \
    }

// The same at the end, when the segment is already detached. SIGTERM may have come in the middle of a function.
#define KA_ON_CLEANUP(F)   \
    void dll_cleanup(void) \
    {                      \
        (F)();             \
    }

#endif
