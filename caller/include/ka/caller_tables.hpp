// SPDX-License-Identifier: MIT
//
// A module's tables as ranges; ka/caller.hpp includes this.
#ifndef KA_CALLER_TABLES_HPP
#define KA_CALLER_TABLES_HPP

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "ka/caller_error.hpp"

namespace ka {

// The functions of a module, as a range of ka_function, in the module's order.
class Tables {
public:
    explicit Tables(std::shared_ptr<const ka_tables> tables) : tables_(std::move(tables)) {}
    const ka_function *begin() const noexcept { return tables_->functions; }
    const ka_function *end() const noexcept { return begin() + tables_->function_count; }
    std::size_t size() const noexcept { return static_cast<std::size_t>(tables_->function_count); }
    // True of a module's file when the module fills a part of its tables as it starts: see ka_tables.
    bool filled_at_start() const noexcept { return tables_->filled_at_start != 0; }
    // The function of that name, or null.
    const ka_function *find(std::string_view name) const
    {
        return ka_find_function(tables_.get(), detail::without_zeros(name).c_str());
    }
    // What the module's author has written about one of these functions, or about its argument, from 1 on; or empty.
    std::string_view doc(const ka_function &function, std::int32_t argument = 0) const
    {
        const char *const text = ka_doc(tables_.get(), &function, argument);
        return text ? text : "";
    }

private:
    std::shared_ptr<const ka_tables> tables_;
};

// The prototypes of a function, as a range of ka_prototype.
struct Prototypes {
    const ka_function &function;
    const ka_prototype *begin() const noexcept { return function.prototypes; }
    const ka_prototype *end() const noexcept { return begin() + function.prototype_count; }
    std::size_t size() const noexcept { return static_cast<std::size_t>(function.prototype_count); }
};

// Of ka_prototype.kind, in words: "IntByValue", "INTEGER or REAL"; does an argument by reference come back changed?
inline const char *kind_name(std::int32_t kind) noexcept
{
    return ka_kind_name(kind);
}

inline const char *kind_takes(std::int32_t kind) noexcept
{
    return ka_kind_takes(kind);
}

inline bool kind_gives_back(std::int32_t kind) noexcept
{
    return ka_kind_gives_back(kind) != 0;
}

// The tables in a module's file; see ka_read_tables. Throws KA_ARGUMENT with the reason when there are none.
inline Tables read_tables(const std::string &module)
{
    char why[256] = "";
    ka_tables *const tables = ka_read_tables(detail::without_zeros(module).c_str(), why, sizeof why);
    if (!tables) detail::raise(KA_ARGUMENT, why);
    return Tables(std::shared_ptr<const ka_tables>(tables, [](ka_tables *owned) { ka_free_tables(owned); }));
}

} // namespace ka

#endif
