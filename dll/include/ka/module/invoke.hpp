// SPDX-License-Identifier: MIT
//
// From argv to a function of C++ and back. ka/module.hpp includes this.
#ifndef KA_MODULE_INVOKE_HPP
#define KA_MODULE_INVOKE_HPP

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "ka/dll_block.h"
#include "ka/module/exceptions.hpp"
#include "ka/module/parameter.hpp"
#include "ka/module/returned.hpp"

// Without exceptions there is nothing to catch.
#ifdef __cpp_exceptions
#define KA_TRY_ try
#define KA_CATCH_        \
    catch (...)          \
    {                    \
        return caught(); \
    }
#else
#define KA_TRY_
#define KA_CATCH_
#endif

namespace ka::module_detail {

enum class returns { value, status };

// Parameter I of a function.
template <std::size_t I, typename A>
struct nth : parameter<A> {
    explicit nth(void **slots) noexcept : parameter<A>(slots, I) {}
};

template <typename Positions, typename R, typename... A>
struct invocation;

// The parameters of a function of this signature, for the time of a call. Only run and invoke are there once for each
// function of a module, since every further instance takes compilers long. They are not one function: that would keep
// gcc from merging functions that are alike.
template <std::size_t... I, typename R, typename... A>
struct invocation<std::index_sequence<I...>, R, A...> : nth<I, A>... {
    explicit invocation([[maybe_unused]] void **slots) noexcept : nth<I, A>(slots)... {}
    bool is_ready() const noexcept { return (true && ... && nth<I, A>::is_ready()); }

    template <auto F, returns How>
    static std::int32_t run(void **argv)
    {
        invocation given(argv);
        if (!given.is_ready()) return KA_NO_MEMORY;
        if constexpr (std::is_void_v<R>)
            return F(given.nth<I, A>::get()...), KA_OK;
        else if constexpr (std::is_same_v<std::remove_cv_t<R>, code> || How == returns::status)
            return static_cast<std::int32_t>(F(given.nth<I, A>::get()...));
        else
            return returned<std::remove_cv_t<R>>::put(F(given.nth<I, A>::get()...), argv[sizeof...(A)]);
    }
};

// What a function's type says. F is a pointer to a function; anything else is no function of a module.
template <typename F>
struct signature {
    static constexpr bool is_function = false;
    using result_type = void;
    static constexpr std::size_t arity = 0;
    static constexpr std::int32_t kinds[1] = {-1}, least[1] = {0};
    static constexpr instead wrong = instead::nothing;
    static constexpr std::uint64_t scalars = 0;
};

template <typename R, typename... A>
struct signature<R (*)(A...)> {
    static constexpr bool is_function = true;
    using result_type = std::remove_cv_t<R>;
    static constexpr std::size_t arity = sizeof...(A);

    // One more than there are parameters, so that none is no special case.
    static constexpr std::int32_t kinds[arity + 1] = {parameter<A>::kind..., -1};
    static constexpr std::int32_t least[arity + 1] = {parameter<A>::least..., 0};

    static constexpr instead first_wrong()
    {
        for (const instead each : {parameter<A>::wrong..., instead::nothing})
            if (each != instead::nothing) return each;
        return instead::nothing;
    }
    static constexpr instead wrong = first_wrong();

    // Bit n: parameter n needs an element.
    static constexpr std::uint64_t scalars_of()
    {
        std::uint64_t bits = 0, bit = 1;
        for (const bool each : {parameter<A>::is_scalar..., false}) {
            if (each) bits |= bit;
            bit <<= 1;
        }
        return bits;
    }
    static constexpr std::uint64_t scalars = scalars_of();

    using invocation_type = invocation<std::index_sequence_for<A...>, R, A...>;
};

template <typename R, typename... A>
struct signature<R (*)(A...) noexcept> : signature<R (*)(A...)> {
};

// What F's type says; that of a lambda is the one of the function that it stands for.
template <typename F, typename = void>
struct pointer {
    using type = F;
};
template <typename F>
struct pointer<F, std::enable_if_t<std::is_class_v<F>, decltype(static_cast<void>(+std::declval<F>()))>> {
    using type = decltype(+std::declval<F>());
};
template <typename F>
using signature_of = signature<typename pointer<std::remove_const_t<F>>::type>;

// What KaCall runs for function F.
template <auto F, returns How>
std::int32_t invoke(void **argv)
{
    using S = signature_of<decltype(F)>;
    KA_TRY_
    {
        return S::invocation_type::template run<F, How>(argv);
    }
    KA_CATCH_
}

struct invoker {
    std::int32_t (*run)(void **argv);
    std::uint64_t scalars; // bit n: without an element in argument n there is no call
};

__attribute__((noinline)) inline bool all_have_elements(std::uint64_t scalars) noexcept
{
    for (std::int32_t n = 1; scalars != 0; n++, scalars >>= 1)
        if ((scalars & 1) != 0 && u_get_arg(n).elcnt < 1) return false;
    return true;
}

inline std::int32_t call(const invoker &function, void **argv)
{
    if (function.scalars != 0 && !all_have_elements(function.scalars)) return KA_TOO_FEW_ELEMENTS;
#ifdef __cpp_exceptions
    return function.run(argv);
#else
    const std::int32_t code = function.run(argv);
    const std::int32_t failed = std::exchange(first_failure, 0);
    return code != KA_OK ? code : failed;
#endif
}

} // namespace ka::module_detail

#undef KA_TRY_
#undef KA_CATCH_

#endif
