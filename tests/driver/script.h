// SPDX-License-Identifier: MIT
//
// The actions of a function of the module driver in a call: the steps that the test leaves in the segment, between
// the descriptors and the data. Every function performs them; it changes nothing else in the segment.
#ifndef TESTS_DRIVER_SCRIPT_H
#define TESTS_DRIVER_SCRIPT_H

#include <stddef.h>
#include <stdint.h>

namespace driver {

// Slots and prototypes are counted from 0, arguments from 1.
enum Op : int32_t {
    //                  a           b            c
    SEE,           //  -           -            -       writes what the function found in its vector
    EDIT,          //  -           -            -       changes all of it, see edit() in modules/values.cpp
    RETURN,        //  return code -            -
    LEVEL,         //  level       -            -       of the trace
    POKE,          //  offset      value        -       a word of the segment
    RETYPE,        //  prototype   kind         -       of the function itself
    UNREF,         //  argument    -            -       u_unref_arg
    CALL_BACK,     //  value       -            -       writes the answer
    SET_DOUBLE,    //  slot        element      -       to number
    SET_LENGTH,    //  slot        element      length  of a string record
    SET_TEXT,      //  slot        element      -       of a string record, by str2KaStr; writes its result
    OWN_TEXT,      //  slot        element      length  of a string record: so many m of the module's own
    ROOM,          //  slot        -            -       writes how large the slot's buffer is
    FUNCTION_INFO, //  -           -            -       writes what KaFuncInfo says
    INFO_AT,       //  x           -            -       writes what KaArgInfo(x) says
    INFO_OF,       //  slot        bytes        -       the same for the slot's pointer, moved by bytes
    INFO_NULL,     //  slot        -            -       the same for a null pointer, while the slot is null
    SAME_INFO,     //  x           y            -       writes what KaArgInfo(x) says after KaArgInfo(y) was asked
    SET_POINTER, //  slot        value        -       the slot's pointer itself, of a slot that nothing was allocated
                 //  for
    BUFFER,      //  -           -            -       standard error is kept in a buffer from now on
    DUMP,        //  code        count        -       dump_value of slot 0; only in the module inside
};

struct Step {
    int32_t op, a, b, c;
    double number;
    char text[8];
};
static_assert(sizeof(Step) == 32);

struct Script {
    int32_t count;
    int32_t unused;
    Step steps[40];
};

// The record of the module counted: the heap's requests since the test cleared it.
struct HeapCount {
    int32_t requests; // buffers asked for and given
    int32_t frees;
    int32_t sizes[40]; // of the first requests, bytes
};

inline constexpr int32_t script_offset = 2048;
inline constexpr int32_t heap_offset = 3584;
static_assert(script_offset + sizeof(Script) <= heap_offset);
static_assert(heap_offset + sizeof(HeapCount) <= 4096);

} // namespace driver

#endif
