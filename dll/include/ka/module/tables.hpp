// SPDX-License-Identifier: MIT
//
// The functions of KA_MODULE as the tables that the call host reads: all of them constants. ka/module.hpp includes
// this. Nothing here folds or recurs over functions: compilers allow that for a few hundred only.
#ifndef KA_MODULE_TABLES_HPP
#define KA_MODULE_TABLES_HPP

#include <cstddef>
#include <cstdint>
#include <utility>

#include "ka/dll_doc.h"
#include "ka/dll_module.h"
#include "ka/module/invoke.hpp"
#include "ka/module/words.hpp"

namespace ka::module_detail {

// ---- One function ------------------------------------------------------------------------------------------------

template <std::size_t Count>
struct entry {
    static constexpr std::size_t count = Count;
    const char *name;
    invoker call;
    const char *doc;
    t_DLL_PROTO prototypes[Count + 1]; // the last one is not used: none of them is no special case
    const char *docs[Count + 1];
};

// The type says which function it is, for messages.
template <auto F, std::size_t Count>
struct entry_of : entry<Count> {
};

// The entry of any function of this signature.
template <typename S, std::int32_t Result, std::size_t Count, std::size_t Words>
constexpr void fill(entry<Count> &made, const words<Words> &given)
{
    made.call.scalars = S::scalars | (Result >= 0 ? std::uint64_t{1} << S::arity : 0);
    made.doc = given.doc;
    for (std::size_t i = 0; i < S::arity; i++) {
        made.prototypes[i] = {given.names[i], S::kinds[i], S::least[i]};
        made.docs[i] = given.docs[i];
    }
    if (Result >= 0) {
        made.prototypes[S::arity] = {given.name_of_result(), Result, 0};
        made.docs[S::arity] = given.result_doc;
    }
}

// Of what is no function of a module, which KA_FN has said, only the name is left.
template <auto F, returns How, bool IsSound, std::size_t Words>
constexpr auto declare(const char *name, const words<Words> &given)
{
    if constexpr (IsSound) {
        using S = signature_of<decltype(F)>;
        using R = returned<typename S::result_type>;
        constexpr bool has_result = How == returns::value && R::is_value;
        entry_of<F, S::arity + (has_result ? 1 : 0)> made{};
        made.name = name;
        made.call.run = &invoke<F, How>;
        fill<S, has_result ? R::kind : -1>(made, given);
        return made;
    } else {
        entry<0> made{};
        made.name = name;
        return made;
    }
}

// ---- All functions -----------------------------------------------------------------------------------------------

// Exactly as large as their contents, since readers of a module's file take the sizes from there.
template <typename Record, std::size_t Count>
struct table {
    Record record[Count];
};
template <typename Record>
struct table<Record, 0> {
};

// An entry, whatever the number of its prototypes.
struct entry_view {
    const char *name;
    invoker call;
    const char *doc;
    const t_DLL_PROTO *prototypes;
    const char *const *docs;
    std::size_t count;

    template <std::size_t Count>
    constexpr entry_view(const entry<Count> &e)
        : name(e.name), call(e.call), doc(e.doc), prototypes(e.prototypes), docs(e.docs), count(Count)
    {
    }

    constexpr bool is_documented() const
    {
        for (std::size_t i = 0; i < count; i++)
            if (docs[i] != nullptr) return true;
        return doc != nullptr;
    }
};

template <std::size_t Count>
constexpr std::size_t sum(const std::size_t (&numbers)[Count])
{
    std::size_t all = 0;
    for (const std::size_t each : numbers)
        all += each;
    return all;
}

template <typename... Entries>
struct list {
};

// What KA_MODULE takes apart into the objects that stay.
template <typename Entries, std::size_t Functions, std::size_t Prototypes>
struct module_tables {
    using entries = Entries;
    static constexpr std::size_t function_count = Functions, prototype_count = Prototypes;
    table<t_DLL_FUNC, Functions + 1> functions;
    table<t_DLL_PROTO, Prototypes> prototypes;
    table<invoker, Functions> invokers;
    table<const char *, Prototypes> docs; // of the arguments
    table<const char *, Functions> function_docs;
    bool documented[Functions];
};

template <typename... Entries>
constexpr auto collect(const Entries &...entries)
{
    static_assert(sizeof...(Entries) > 0, "KA_MODULE: a module has one function at least: KA_MODULE(KA_FN(f))");
    module_tables<list<Entries...>, sizeof...(Entries), sum({Entries::count..., 0})> made{};
    std::size_t f = 0, p = 0;
    for (const entry_view &each : {entry_view(entries)...}) {
        made.functions.record[f] = {each.name, static_cast<std::int32_t>(p), static_cast<std::int32_t>(each.count),
                                    nullptr};
        made.invokers.record[f] = each.call;
        made.function_docs.record[f] = each.doc;
        made.documented[f] = each.is_documented();
        if constexpr (made.prototype_count > 0) {
            for (std::size_t i = 0; i < each.count; i++, p++) {
                made.prototypes.record[p] = each.prototypes[i];
                made.docs.record[p] = each.docs[i];
            }
        }
        f++;
    }
    return made;
}

// ---- Documentation -----------------------------------------------------------------------------------------------

template <typename Tables>
constexpr bool is_documented(const Tables &tables)
{
    for (const bool each : tables.documented)
        if (each) return true;
    return false;
}

// One record for each function. Texts are those of all arguments, where they stay.
template <typename Tables, typename Texts>
constexpr auto doc_records(const Tables &tables, const Texts &texts)
{
    table<t_DLL_DOC, Tables::function_count> made{};
    for (std::size_t f = 0; f < Tables::function_count; f++) {
        const t_DLL_FUNC &function = tables.functions.record[f];
        const char *const *arguments = nullptr;
        if constexpr (Tables::prototype_count > 0)
            if (function.arg_cnt > 0) arguments = texts.record + function.arg_idx;
        made.record[f] = {DLL_DOC_MAGIC, DLL_DOC_VERSION, static_cast<std::int32_t>(sizeof(t_DLL_DOC)),
                          tables.function_docs.record[f], arguments};
    }
    return made;
}

// The functions with their records, where those stay.
template <typename Tables, typename Docs>
constexpr auto with_docs(const Tables &tables, const Docs &docs)
{
    auto functions = tables.functions;
    for (std::size_t f = 0; f < Tables::function_count; f++)
        if (tables.documented[f]) functions.record[f].user = const_cast<t_DLL_DOC *>(docs.record + f);
    return functions;
}

// ---- No function twice -------------------------------------------------------------------------------------------

inline constexpr std::size_t none = static_cast<std::size_t>(-1);

constexpr std::uint32_t hash_of(const char *text)
{
    std::uint32_t hash = 2166136261; // the constants of FNV-1a
    for (; *text != '\0'; text++)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619;
    return hash;
}

// The first function with the name of one before it. By hash value: compilers count the steps that they compute.
template <typename Tables>
constexpr std::size_t first_repeated(const Tables &tables)
{
    constexpr std::size_t count = Tables::function_count;
    std::size_t newest[2 * count] = {}, older[count] = {}; // functions of one hash value, from 1 on
    for (std::size_t f = 0; f < count; f++) {
        const char *const name = tables.functions.record[f].name;
        std::size_t &place = newest[hash_of(name) % (2 * count)];
        for (std::size_t other = place; other != 0; other = older[other - 1])
            if (is_same_text(name, tables.functions.record[other - 1].name)) return f;
        older[f] = place;
        place = f + 1;
    }
    return none;
}

template <std::size_t Position, typename Entry>
struct numbered {
};
template <typename Positions, typename Entries>
struct numbered_list;
template <std::size_t... Position, typename... Entries>
struct numbered_list<std::index_sequence<Position...>, list<Entries...>> : numbered<Position, Entries>... {
};
template <std::size_t Position, typename Entry>
Entry entry_at(const numbered<Position, Entry> &);

template <auto F>
struct this_function_is_declared_twice_in_KA_MODULE;

template <auto F, std::size_t Count>
constexpr bool refuse(const entry_of<F, Count> *)
{
    return sizeof(this_function_is_declared_twice_in_KA_MODULE<F>) != 0;
}

template <typename Tables, std::size_t Repeated>
constexpr bool check_names()
{
    if constexpr (Repeated != none) {
        using positions = std::make_index_sequence<Tables::function_count>;
        using repeated = decltype(entry_at<Repeated>(numbered_list<positions, typename Tables::entries>()));
        return refuse(static_cast<const repeated *>(nullptr));
    }
    return true;
}

} // namespace ka::module_detail

#endif
