/* SPDX-License-Identifier: MIT
 *
 * The shared call block, through which caller and call host talk. It begins a System V shared memory segment that the
 * caller creates. After the header come the argument descriptors; each points at value data elsewhere in the segment.
 * The block has layout 32 or 64, as the host's command line says; callers and hosts of either word size use both. The
 * records of those names are the layouts. t_DLL_INFO and t_DLL_ARG hold pointers of the program that includes this
 * header, and are no layout of the block: a 64-bit module may well be called with layout 32. Modules reach the block
 * through ka/dll_host.h.
 *
 * All integers are little-endian. Addresses in the block are the caller's; the host translates them by the low 32
 * bits of their distance from base, as a signed number. Values need not be aligned. */
#ifndef KA_DLL_BLOCK_H
#define KA_DLL_BLOCK_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/* The first 8 bytes of every block: the characters and two zero bytes. */
#define DLL_MAGIC "KA.DLL\0"

enum {
    DLL_VERSION = 0x101,
    DLL_MAX_ARGS = 50,              /* arguments of a call, the function name not counted */
    DLL_MAX_ARGC = DLL_MAX_ARGS + 1 /* descriptors: descriptor 0 is the function name */
};

/* Value types. Element k of an argument begins at ptr + 4 * elsz * k. */
enum {
    DLL_NONE = 0,    /* no value: the type that u_get_arg reports for an argument that does not exist */
    DLL_INTEGER = 1, /* int32_t */
    DLL_REAL = 2,    /* t_DECIMAL, 12 bytes */
    DLL_STRING = 3   /* int32_t length, then room for maxlen characters, not terminated */
};

/* ---- Argument descriptors -------------------------------------------------------------------------------------- */

typedef struct t_DLL_ARG {
    int32_t type;   /* DLL_INTEGER, DLL_REAL or DLL_STRING */
    int32_t ref;    /* nonzero: passed by reference; the host may clear it */
    void *ptr;      /* the value data: the caller's address, or the host's in a record from u_get_arg */
    int32_t maxlen; /* DLL_STRING: room for the characters of each element, bytes */
    int32_t elsz;   /* distance between elements, in 4-byte words */
    int32_t elcnt;  /* number of elements; a single value has 1 */
} t_DLL_ARG;

typedef struct t_DLL_ARG32 {
    int32_t type;
    int32_t ref;
    uint32_t ptr;
    int32_t maxlen;
    int32_t elsz;
    int32_t elcnt;
} t_DLL_ARG32;

typedef struct t_DLL_ARG64 {
    int32_t type;
    int32_t ref;
    uint64_t ptr; /* only the low 32 bits are used */
    int32_t maxlen;
    int32_t elsz;
    int32_t elcnt;
    int32_t reserved; /* never read or written by the host */
} t_DLL_ARG64;

/* ---- The block ------------------------------------------------------------------------------------------------- */

typedef struct t_DLL_INFO {
    char magic[8];                /* DLL_MAGIC */
    int32_t version;              /* DLL_VERSION */
    int32_t pid;                  /* the caller's process id, or the id of one of its threads; replies go there */
    void *base;                   /* the caller's address of byte 0 of the segment */
    int32_t retcode;              /* the host's return code; during a call-back the caller's answer */
    int32_t shmsz;                /* size of the segment, bytes */
    void *scratch;                /* the caller's address of the scratch area, which ends with the segment; or 0 */
    int32_t cbval;                /* the value of a call-back; written by the host */
    int32_t argc;                 /* descriptors in use, the function name included */
    t_DLL_ARG args[DLL_MAX_ARGC]; /* the segment need only hold those in use */
} t_DLL_INFO;

typedef struct t_DLL_INFO32 {
    char magic[8];
    int32_t version;
    int32_t pid;
    uint32_t base;
    int32_t retcode;
    int32_t shmsz;
    uint32_t scratch;
    int32_t cbval;
    int32_t argc;
    t_DLL_ARG32 args[DLL_MAX_ARGC];
} t_DLL_INFO32;

typedef struct t_DLL_INFO64 {
    char magic[8];
    int32_t version;
    int32_t pid;
    uint64_t base; /* only the low 32 bits are used */
    int32_t retcode;
    int32_t shmsz;
    uint64_t scratch; /* empty only when all 8 bytes are zero; only the low 32 bits are translated */
    int32_t cbval;
    int32_t argc;
    t_DLL_ARG64 args[DLL_MAX_ARGC];
} t_DLL_INFO64;

/* ---- The wire, field by field ---------------------------------------------------------------------------------- */

#define DLL_WIRE(record, field, offset, width) \
    static_assert(offsetof(record, field) == (offset) && sizeof(((record *)0)->field) == (width), #record "." #field)
#define DLL_WIRE_SIZE(record, size) static_assert(sizeof(record) == (size), #record)

/* clang-format off */
DLL_WIRE_SIZE(t_DLL_ARG32, 24);
DLL_WIRE(t_DLL_ARG32, type,   0, 4);
DLL_WIRE(t_DLL_ARG32, ref,    4, 4);
DLL_WIRE(t_DLL_ARG32, ptr,    8, 4);
DLL_WIRE(t_DLL_ARG32, maxlen, 12, 4);
DLL_WIRE(t_DLL_ARG32, elsz,   16, 4);
DLL_WIRE(t_DLL_ARG32, elcnt,  20, 4);

DLL_WIRE_SIZE(t_DLL_ARG64, 32);
DLL_WIRE(t_DLL_ARG64, type,     0, 4);
DLL_WIRE(t_DLL_ARG64, ref,      4, 4);
DLL_WIRE(t_DLL_ARG64, ptr,      8, 8);
DLL_WIRE(t_DLL_ARG64, maxlen,   16, 4);
DLL_WIRE(t_DLL_ARG64, elsz,     20, 4);
DLL_WIRE(t_DLL_ARG64, elcnt,    24, 4);
DLL_WIRE(t_DLL_ARG64, reserved, 28, 4);

DLL_WIRE_SIZE(t_DLL_INFO32, 40 + DLL_MAX_ARGC * sizeof(t_DLL_ARG32));
DLL_WIRE(t_DLL_INFO32, magic,   0, 8);
DLL_WIRE(t_DLL_INFO32, version, 8, 4);
DLL_WIRE(t_DLL_INFO32, pid,     12, 4);
DLL_WIRE(t_DLL_INFO32, base,    16, 4);
DLL_WIRE(t_DLL_INFO32, retcode, 20, 4);
DLL_WIRE(t_DLL_INFO32, shmsz,   24, 4);
DLL_WIRE(t_DLL_INFO32, scratch, 28, 4);
DLL_WIRE(t_DLL_INFO32, cbval,   32, 4);
DLL_WIRE(t_DLL_INFO32, argc,    36, 4);
DLL_WIRE(t_DLL_INFO32, args,    40, DLL_MAX_ARGC * sizeof(t_DLL_ARG32));

DLL_WIRE_SIZE(t_DLL_INFO64, 48 + DLL_MAX_ARGC * sizeof(t_DLL_ARG64));
DLL_WIRE(t_DLL_INFO64, magic,   0, 8);
DLL_WIRE(t_DLL_INFO64, version, 8, 4);
DLL_WIRE(t_DLL_INFO64, pid,     12, 4);
DLL_WIRE(t_DLL_INFO64, base,    16, 8);
DLL_WIRE(t_DLL_INFO64, retcode, 24, 4);
DLL_WIRE(t_DLL_INFO64, shmsz,   28, 4);
DLL_WIRE(t_DLL_INFO64, scratch, 32, 8);
DLL_WIRE(t_DLL_INFO64, cbval,   40, 4);
DLL_WIRE(t_DLL_INFO64, argc,    44, 4);
DLL_WIRE(t_DLL_INFO64, args,    48, DLL_MAX_ARGC * sizeof(t_DLL_ARG64));

/* The records with pointers lie as layout 32 does in a 32-bit program, and as layout 64, but for the reserved word's
   name, in a 64-bit one. */
#if UINTPTR_MAX == 0xffffffffu
#define DLL_NATIVE_INFO t_DLL_INFO32
#define DLL_NATIVE_ARG t_DLL_ARG32
#else
#define DLL_NATIVE_INFO t_DLL_INFO64
#define DLL_NATIVE_ARG t_DLL_ARG64
#endif
#define DLL_WIRE_NATIVE(record, native, field) \
    DLL_WIRE(record, field, offsetof(native, field), sizeof(((native *)0)->field))
DLL_WIRE_SIZE(t_DLL_ARG, sizeof(DLL_NATIVE_ARG));
DLL_WIRE_NATIVE(t_DLL_ARG, DLL_NATIVE_ARG, type);
DLL_WIRE_NATIVE(t_DLL_ARG, DLL_NATIVE_ARG, ref);
DLL_WIRE_NATIVE(t_DLL_ARG, DLL_NATIVE_ARG, ptr);
DLL_WIRE_NATIVE(t_DLL_ARG, DLL_NATIVE_ARG, maxlen);
DLL_WIRE_NATIVE(t_DLL_ARG, DLL_NATIVE_ARG, elsz);
DLL_WIRE_NATIVE(t_DLL_ARG, DLL_NATIVE_ARG, elcnt);
DLL_WIRE_SIZE(t_DLL_INFO, sizeof(DLL_NATIVE_INFO));
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, magic);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, version);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, pid);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, base);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, retcode);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, shmsz);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, scratch);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, cbval);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, argc);
DLL_WIRE_NATIVE(t_DLL_INFO, DLL_NATIVE_INFO, args);
/* clang-format on */

#endif
