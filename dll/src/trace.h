/* SPDX-License-Identifier: MIT
 *
 * The diagnostic trace. The driver calls these at its steps and never mentions dll_debug: each is a test of the level
 * around a function that writes, so an untraced call pays one load and one branch per step. The level is read afresh
 * at every test: a function may change it during its own call. */
#ifndef KA_TRACE_H
#define KA_TRACE_H

#include "call.h"
#include "ka/dll_host.h"

/* The first level is any nonzero value; the others are compared as signed numbers.
   KEPT: a negative level shows the calls and nothing else. Test: Trace.negative_level_shows_calls_only. */
enum { TRACE_VALUES = 2, TRACE_MATCHING = 3, TRACE_BLOCK = 4 };

void write_block(void);
void write_no_name(void);
void write_too_many(void);
void write_name_type(void);
void write_undefined(int32_t length, const char *characters);
void write_extra(void);
void write_function(void);
void write_argument(const t_DLL_PROTO *proto, const t_DLL_ARG &arg);
void write_wrong_count(int32_t argi);
void write_call(void);
void write_values(void);
void write_value(const t_DLL_PROTO *proto, const t_DLL_ARG &arg, int32_t slot);
void write_result(int32_t result);

/* Writes count values as slot KaAv holds them after conversion code. */
void dump_value(int32_t code, const void *values, int32_t count);

inline void trace_block(void)
{
    if (dll_debug >= TRACE_BLOCK) write_block();
}
inline void trace_no_name(void)
{
    if (dll_debug >= TRACE_MATCHING) write_no_name();
}
inline void trace_too_many(void)
{
    if (dll_debug >= TRACE_MATCHING) write_too_many();
}
inline void trace_name_type(void)
{
    if (dll_debug >= TRACE_MATCHING) write_name_type();
}
inline void trace_extra(void)
{
    if (dll_debug >= TRACE_MATCHING) write_extra();
}
inline void trace_function(void)
{
    if (dll_debug >= TRACE_MATCHING) write_function();
}

inline void trace_undefined(int32_t length, const char *characters)
{
    if (dll_debug >= TRACE_MATCHING) write_undefined(length, characters);
}

inline void trace_argument(const t_DLL_PROTO *proto, const t_DLL_ARG &arg)
{
    if (dll_debug >= TRACE_MATCHING) write_argument(proto, arg);
}

inline void trace_wrong_count(int32_t argi)
{
    if (dll_debug >= TRACE_VALUES) write_wrong_count(argi);
}

inline void trace_call(void)
{
    if (dll_debug != 0) write_call();
    if (dll_debug >= TRACE_VALUES) write_values();
}

inline void trace_result(int32_t result)
{
    if (dll_debug != 0) write_result(result);
}

inline void trace_value_after(const t_DLL_PROTO *proto, const t_DLL_ARG &arg, int32_t slot)
{
    if (dll_debug >= TRACE_VALUES) write_value(proto, arg, slot);
}

#endif
