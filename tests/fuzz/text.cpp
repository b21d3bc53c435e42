// SPDX-License-Identifier: MIT
//
// Any characters as a number, any bytes as a packed field. The first byte of the input chooses the value of the
// result before; 255 also asks for a negative length. The field is alone on the heap, for the sanitizer.
#include <algorithm>

#include "fuzz/machine.h"
#include "ka/real.h"
#include "model/real.h"

using namespace model;

namespace fuzz {

static void try_deccvasc(Machine &m, const std::vector<char> &field, int length, const t_DECIMAL &before)
{
    const std::string_view read(field.data(), static_cast<size_t>(std::max(length, 0)));
    const Outcome expected = length < 0 ? Outcome{DEC_OK, record(0, DEC_POSITIVE, {})} : parse(read);
    t_DECIMAL result = before;
    m.expect("deccvasc code", deccvasc(field.data(), length, &result), expected.code);
    m.expect("deccvasc result", result, expected.record);
    if (!is_null(expected.record)) return;
    t_DECIMAL marked = before;
    marked.dec_pos = DEC_NULL;
    m.expect("deccvasc null", show_raw(result), show_raw(marked));
}

static void try_m_cv_asc(Machine &m, const std::vector<char> &field, const t_DECIMAL &before)
{
    const std::optional<Real> expected = real_from_text({field.data(), field.size()});
    if (!expected) return; // ends the process
    t_DECIMAL result = before;
    m.expect("m_cv_asc status", m_cv_asc(field.data(), static_cast<int>(field.size()), &result), expected->status);
    m.expect("m_cv_asc result", result, expected->value);
}

// A byte of 100 or more is not a digit: then the header alone is known.
static void try_load(Machine &m, const Bytes &field, const t_DECIMAL &before)
{
    if (field.empty()) return;
    const int length = static_cast<int>(field.size());
    t_DECIMAL loaded = before;
    t_DECIMAL real = before;
    m.expect("lddecimal code", lddecimal(field.data(), length, &loaded), DEC_OK + 0);
    const int status = m_load(field.data(), length, &real);
    m.expect("m_load status", status, field[0] == 0 ? +REAL_NULL_FIELD : +REAL_OK);
    m.expect("digits at most 8", std::clamp<int>(loaded.dec_ndgts, 0, DEC_DIGITS), +loaded.dec_ndgts);
    const auto is_digit = [](uint8_t byte) { return byte < DEC_BASE; };
    if (!std::all_of(field.begin() + 1, field.begin() + std::min(length, DEC_DIGITS + 1), is_digit)) return;
    m.expect("lddecimal", loaded, unpacked(field));
    m.expect("m_load", real, real_from_field(field).value);
}

std::string try_text(const Bytes &input)
{
    if (input.empty()) return "";
    Machine m = {};
    const t_DECIMAL before = filled(input[0], DEC_POSITIVE, input[0] % 9, input[0]);
    const std::vector<char> field(input.begin() + 1, input.end());
    const int size = static_cast<int>(field.size());
    try_deccvasc(m, field, input[0] == 255 ? -size - 1 : size, before);
    try_m_cv_asc(m, field, before);
    try_load(m, Bytes(input.begin() + 1, input.end()), before);
    if (m.complaint.empty()) return "";
    return "field \"" + std::string(field.begin(), field.end()) + "\", bytes " +
           show(Bytes(input.begin() + 1, input.end())) + ": " + m.complaint;
}

} // namespace fuzz
