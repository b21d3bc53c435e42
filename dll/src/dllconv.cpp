/* SPDX-License-Identifier: MIT
 *
 * The conversions of arguments: one function per code and way. Results of the REAL layer are ignored: it saturates or
 * replaces what does not fit, and a null REAL ends the process there. */
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "block.h"
#include "call.h"
#include "ka/kastring.h"
#include "ka/real.h"
#include "wire/sure_pair.h"
#include "wire/sure_real.h"

namespace {

/* A buffer for the slot, asked for even when it is empty. The size is computed in 64 bits: what 32 bits cannot hold,
   and a negative count, is memory that cannot be had. */
template <typename T>
T *allocate(int32_t slot, int64_t count)
{
    const int64_t bytes = count * static_cast<int64_t>(sizeof(T));
    const bool possible = count >= 0 && bytes <= INT32_MAX;
    KaAv[slot] = possible ? malloc(static_cast<size_t>(bytes)) : nullptr;
    return static_cast<T *>(KaAv[slot]);
}

/* The elements of an argument one after the other. Each is where element() says: sums wrap as products do. */
class t_ELEMENTS {
public:
    explicit t_ELEMENTS(const t_DLL_ARG &arg)
        : first_(reinterpret_cast<uintptr_t>(arg.ptr)), step_(static_cast<uint32_t>(arg.elsz) * 4u)
    {
    }
    char *next(void)
    {
        const auto distance = static_cast<int32_t>(distance_);
        distance_ += step_;
        return reinterpret_cast<char *>(first_ + static_cast<uintptr_t>(distance));
    }

private:
    uintptr_t first_;
    uint32_t step_;
    uint32_t distance_ = 0;
};

/* In two pieces, as the REAL layer reads it: a processor waits with a load that joins what two stores have left. */
t_DECIMAL load_real(const char *from)
{
    t_DECIMAL real;
    memcpy(&real, from, offsetof(t_DECIMAL, dec_dgts));
    memcpy(real.dec_dgts, from + offsetof(t_DECIMAL, dec_dgts), sizeof real.dec_dgts);
    return real;
}

int32_t real_to_double(const t_DLL_ARG &arg, int32_t slot)
{
    double *to = allocate<double>(slot, arg.elcnt);
    if (to == nullptr) return KA_NO_MEMORY;
    t_ELEMENTS elements(arg);
    for (int32_t k = 0; k < arg.elcnt; k++) {
        const t_DECIMAL real = load_real(elements.next());
        m_to_dbl(&real, &to[k]);
    }
    return KA_OK;
}

/* KEPT: the buffer has 8 bytes per element, of which integers use the first half only; a function that writes the
   doubles it expected stays inside. Test: Conversions.real_to_int_buffer_has_room_for_doubles. */
int32_t real_to_int(const t_DLL_ARG &arg, int32_t slot)
{
    int32_t *to = allocate<int32_t>(slot, 2 * static_cast<int64_t>(arg.elcnt));
    if (to == nullptr) return KA_NO_MEMORY;
    t_ELEMENTS elements(arg);
    for (int32_t k = 0; k < arg.elcnt; k++) {
        const t_DECIMAL real = load_real(elements.next());
        m_to_int(&real, &to[k]);
    }
    return KA_OK;
}

int32_t int_to_double(const t_DLL_ARG &arg, int32_t slot)
{
    double *to = allocate<double>(slot, arg.elcnt);
    if (to == nullptr) return KA_NO_MEMORY;
    for (int32_t k = 0; k < arg.elcnt; k++) {
        to[k] = load32(element(arg, k));
    }
    return KA_OK;
}

/* The first element only; maxlen plays no part. */
int32_t to_zstring(const t_DLL_ARG &arg, int32_t slot)
{
    const int32_t length = load32(arg.ptr);
    char *to = length < 0 ? nullptr : allocate<char>(slot, static_cast<int64_t>(length) + 1);
    if (to == nullptr) return KA_NO_MEMORY;
    memcpy(to, static_cast<const char *>(arg.ptr) + sizeof length, static_cast<size_t>(length));
    to[length] = '\0';
    return KA_OK;
}

int32_t to_string_records(const t_DLL_ARG &arg, int32_t slot)
{
    KaStr *to = allocate<KaStr>(slot, arg.elcnt);
    if (to == nullptr) return KA_NO_MEMORY;
    for (int32_t k = 0; k < arg.elcnt; k++) {
        char *from = element(arg, k);
        to[k] = {arg.maxlen, load32(from), from + sizeof(int32_t)};
    }
    return KA_OK;
}

int32_t use_in_place(const t_DLL_ARG &arg, int32_t slot)
{
    KaAv[slot] = arg.ptr;
    return KA_OK;
}

/* The characters are already in the block. KEPT: a length above maxlen goes back as it is.
   Test: WriteBack.string_length_is_not_compared_with_maxlen. */
int32_t store_lengths(const t_DLL_ARG &arg, int32_t slot)
{
    const KaStr *from = static_cast<const KaStr *>(KaAv[slot]);
    for (int32_t k = 0; k < arg.elcnt; k++) {
        store32(element(arg, k), from[k].len);
    }
    return KA_OK;
}

/* By way of a copy: the caller may have put REALs at odd addresses. */
void store_real(double from, char *to)
{
    t_DECIMAL real;
    m_cv_dbl(from, &real);
    memcpy(to, &real, sizeof real);
}

/* Two at a time, where that needs no more than a few steps; element by element the same comes out. */
int32_t store_reals(const t_DLL_ARG &arg, int32_t slot)
{
    const double *from = static_cast<const double *>(KaAv[slot]);
    const bool in_pairs = wire::rounds_to_nearest(); /* the function may have set it */
    t_ELEMENTS elements(arg);
    int32_t k = 0;
    for (; in_pairs && k + 1 < arg.elcnt; k += 2) {
        char *const first = elements.next();
        char *const second = elements.next();
        if (wire::store_sure_pair(from + k, first, second)) continue;
        store_real(from[k], first);
        store_real(from[k + 1], second);
    }
    for (; k < arg.elcnt; k++)
        store_real(from[k], elements.next());
    return KA_OK;
}

} // namespace

int32_t convert(int32_t code, const t_DLL_ARG &arg, int32_t slot)
{
    KaCv[slot] = code;
    switch (code) {
    case CV_BLOCK:
        return use_in_place(arg, slot);
    case CV_STRREC:
        return to_string_records(arg, slot);
    case CV_ZSTRING:
        return to_zstring(arg, slot);
    case CV_INT_DBL:
        return int_to_double(arg, slot);
    case CV_REAL_INT:
        return real_to_int(arg, slot);
    case CV_REAL_DBL:
        return real_to_double(arg, slot);
    default:
        return KA_BAD_PROTOTYPE;
    }
}

int32_t give_back(const t_DLL_ARG &arg, int32_t slot)
{
    switch (KaCv[slot]) {
    case CV_BLOCK:
        return KA_OK; /* the function changed the block itself */
    case CV_STRREC:
        return store_lengths(arg, slot);
    case CV_REAL_DBL:
        return store_reals(arg, slot);
    default:
        return KA_BAD_PROTOTYPE; /* the function changed its own prototypes during the call */
    }
}
