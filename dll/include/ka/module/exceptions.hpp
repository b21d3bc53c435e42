// SPDX-License-Identifier: MIT
//
// Exceptions that would leave a function become its return code, and one line on standard error:
//
//     ka: FUNCTION: TEXT
//
//     ka::failure                its code
//     ka::no_room                18
//     std::bad_alloc             1003
//     other std::exception       1001
//     anything else              1002
//
// KA_ON_EXCEPTION decides otherwise, and KA_MODULE_TEXT gives callers the text. ka/module.hpp includes this.
#ifndef KA_MODULE_EXCEPTIONS_HPP
#define KA_MODULE_EXCEPTIONS_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>

#include "ka/module/failure.hpp"

namespace ka {

// What a module with KA_MODULE_TEXT(offset) writes at that offset of the scratch area, if there is room, when an
// exception has ended a function. It stays there: the caller clears magic before a call, or looks at the code first.
struct module_text {
    char magic[8];       // module_text_magic
    std::int32_t code;   // the return code
    std::int32_t length; // of the text, which is cut if it does not fit
    char text[240];      // not terminated
};

inline constexpr char module_text_magic[8] = {'K', 'A', '.', 'T', 'E', 'X', 'T', '\0'};
static_assert(sizeof(module_text) == 256, "ka::module_text is a record that callers know");

namespace module_detail {

// Defined by KA_ON_EXCEPTION and KA_MODULE_TEXT, if at all.
__attribute__((weak)) code decide(const char *function, std::exception_ptr thrown);
__attribute__((weak)) std::int32_t text_offset() noexcept;

#ifdef __cpp_exceptions

inline void leave_text(std::int32_t code, const char *text) noexcept
{
    const std::int32_t offset = text_offset != nullptr ? text_offset() : -1;
    constexpr auto size = static_cast<std::int32_t>(sizeof(module_text));
    if (offset < 0 || offset > INT32_MAX - size) return;
    auto *const area = static_cast<char *>(dll_scratch(offset + size));
    if (area == nullptr) return;
    module_text record{};
    const std::size_t length = std::strlen(text), most = sizeof record.text;
    record.code = code;
    record.length = static_cast<std::int32_t>(length < most ? length : most);
    std::memcpy(record.magic, module_text_magic, sizeof record.magic);
    std::memcpy(record.text, text, static_cast<std::size_t>(record.length));
    std::memcpy(area + offset, &record, sizeof record);
}

inline std::int32_t told(std::int32_t code, const char *text) noexcept
{
    tell(text);
    leave_text(code, text);
    return code;
}

inline std::int32_t code_by_type() noexcept
{
    try {
        throw;
    } catch (const failure &thrown) {
        return told(static_cast<std::int32_t>(thrown.code()), thrown.what());
    } catch (const std::bad_alloc &thrown) {
        return told(1003, thrown.what());
    } catch (const std::exception &thrown) {
        return told(1001, thrown.what());
    } catch (...) {
        return told(1002, "an exception of an unknown type");
    }
}

// The code for the exception that is being handled.
__attribute__((cold, noinline)) inline std::int32_t caught() noexcept
{
    if (decide == nullptr) return code_by_type();
    try {
        return static_cast<std::int32_t>(decide(KaFuncInfo()->name, std::current_exception()));
    } catch (...) {
        return code_by_type();
    }
}

#endif

} // namespace module_detail

} // namespace ka

// Once in a module, outside of all namespaces: HANDLER, a ka::code (const char *function, std::exception_ptr), says
// which code an exception becomes. Then nothing is written by itself. An exception of the handler's own is treated as
// if there were no handler.
#define KA_ON_EXCEPTION(HANDLER)                                                              \
    static ::ka::code ka_decide(const char *ka_function, const std::exception_ptr &ka_thrown) \
    {                                                                                         \
        return (HANDLER)(ka_function, ka_thrown);                                             \
    }                                                                                         \
    ::ka::code ka::module_detail::decide(const char *function, std::exception_ptr thrown)     \
    {                                                                                         \
        return ka_decide(function, thrown);                                                   \
    }

// Once in a module, outside of all namespaces: ka::module_text is left at OFFSET of the scratch area.
#define KA_MODULE_TEXT(OFFSET)                                    \
    static constexpr std::int32_t ka_module_text_offset = OFFSET; \
    std::int32_t ka::module_detail::text_offset() noexcept        \
    {                                                             \
        return ka_module_text_offset;                             \
    }

#endif
