// SPDX-License-Identifier: MIT
//
// A function module of ordinary functions, for C++17 and later.
//
//     #include <ka/module.hpp>
//
//     double area(double radius) { return 3.14159265358979 * radius * radius; }
//     void scale(ka::array<double, 2> values, double f) { for (double &x : values) x *= f; }
//
//     KA_MODULE(KA_FN(area, "radius"), KA_FN(scale, "values", "factor"))
//
// The types of the parameters are the kinds of the arguments (ka/dll_module.h); what they promise is in the headers
// named here:
//
//     std::int32_t, std::int32_t &                       an INTEGER, a REAL truncated; an INTEGER to be changed
//     double, double &                                   a REAL or INTEGER of 14 decimals; a REAL to be changed
//     ka::decimal, ka::decimal &                         the same, exact                        ka/module/decimal.hpp
//     const char *                                       a STRING, terminated
//     std::string_view, ka::string                       a STRING; one to be changed            ka/module/string.hpp
//     ka::array<T, Min>                                  Min elements or more                   ka/module/array.hpp
//     ka::args                                           last: any further arguments            ka/module/args.hpp
//
// const T & is an input as T is. A scalar sees the first of several elements; without one the call has code 17.
//
// A function that returns ka::code answers with that (ka/module/code.hpp), any other with code 0. What else it
// returns, std::int32_t, double, ka::decimal, std::string, std::string_view or const char *, is a result: one
// argument more, behind the others, that the caller passes by reference. Exceptions become codes
// (ka/module/exceptions.hpp).
#ifndef KA_MODULE_HPP
#define KA_MODULE_HPP

#if __cplusplus < 201703L
#error "ka/module.hpp is C++17: give the compiler -std=c++17 or a later standard"
#endif

#include <cstddef>
#include <cstdint>

#include "ka/module/checks.hpp"
#include "ka/module/life.hpp"
#include "ka/module/tables.hpp"

// A function of KA_MODULE and the names of its arguments: KA_FN(bank::rate, "principal", "years"), called "rate" by
// callers. Behind the function and behind each name there can be a text about it, ka::doc("..."); ka::result("...")
// names what it returns, which is "result" otherwise.
#define KA_FN(...) KA_FN_TAKE_(KA_FIRST_(__VA_ARGS__, ), __VA_ARGS__)

// The same under any name, for overloads, templates, and in C++20 for lambdas without captures (and without a +
// before them): KA_FN_AS("f", (static_cast<double (*)(double)>(f)), "x").
#define KA_FN_AS(...) KA_FN_AS_TAKE_(KA_FIRST_(__VA_ARGS__, ), KA_SECOND_(__VA_ARGS__, , ), __VA_ARGS__)

// KA_FN of a function whose std::int32_t is the call's code, not a result.
#define KA_FN_STATUS(...) KA_FN_STATUS_TAKE_(KA_FIRST_(__VA_ARGS__, ), __VA_ARGS__)

// The functions of a module; once, outside of all namespaces.
#define KA_MODULE(...)                                                                                        \
    namespace { /* where a function of this file is found before one of the C library */                      \
    constexpr auto ka_module_tables = ::ka::module_detail::collect(__VA_ARGS__);                              \
    constexpr auto ka_module_invokers = ka_module_tables.invokers;                                            \
    constexpr auto ka_module_doc_texts = ka_module_tables.docs;                                               \
    constexpr auto ka_module_docs = ::ka::module_detail::doc_records(ka_module_tables, ka_module_doc_texts);  \
    static_assert(::ka::module_detail::check_names<std::remove_const_t<decltype(ka_module_tables)>,           \
                                                   ::ka::module_detail::first_repeated(ka_module_tables)>()); \
    }                                                                                                         \
    KA_TABLE_(decltype(ka_module_tables.functions), ka_module_functions, "KaFuncList") =                      \
        ::ka::module_detail::with_docs(ka_module_tables, ka_module_docs);                                     \
    KA_TABLE_(decltype(ka_module_tables.prototypes), ka_module_prototypes, "KaArgList") =                     \
        ka_module_tables.prototypes;                                                                          \
    extern "C" std::int32_t KaCall(std::int32_t index, void **argv)                                           \
    {                                                                                                         \
        return ::ka::module_detail::call(ka_module_invokers.record[index], argv);                             \
    }

// ---- Parts of the above ------------------------------------------------------------------------------------------

// A constant that the call host knows by a name with which ka/dll_module.h has declared something that can change.
#define KA_TABLE_(TYPE, NAME, SYMBOL)              \
    extern const TYPE NAME __asm__(SYMBOL) KA_API; \
    __attribute__((used)) constexpr TYPE NAME

#define KA_FIRST_(FIRST, ...) FIRST
#define KA_SECOND_(FIRST, SECOND, ...) SECOND

#define KA_FN_TAKE_(...) KA_FN_NAMED_(__VA_ARGS__)
#define KA_FN_NAMED_(F, ...) \
    KA_DECLARE_("KA_FN(" #F "): ", &F, value, ::ka::module_detail::plain_name(#F), __VA_ARGS__)
#define KA_FN_STATUS_TAKE_(...) KA_FN_STATUS_NAMED_(__VA_ARGS__)
#define KA_FN_STATUS_NAMED_(F, ...) \
    KA_DECLARE_("KA_FN_STATUS(" #F "): ", &F, status, ::ka::module_detail::plain_name(#F), __VA_ARGS__)
#define KA_FN_AS_TAKE_(...) KA_FN_AS_NAMED_(__VA_ARGS__)
#define KA_FN_AS_NAMED_(NAME, F, NAME_AGAIN, ...) \
    KA_DECLARE_("KA_FN_AS(" #NAME ", " #F "): ", F, value, ::ka::module_detail::word(NAME), __VA_ARGS__)

#endif
