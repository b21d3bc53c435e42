/* SPDX-License-Identifier: MIT
 *
 * The kinds of arguments: which value types each accepts, how the host converts them, and which prototype matches
 * which argument. The host goes by these rules; the caller and the tools apply them before a call is sent. */
#ifndef KA_WIRE_KINDS_H
#define KA_WIRE_KINDS_H

#include "ka/dll_block.h"
#include "ka/dll_module.h"

/* How a slot of KaAv was made. */
enum {
    CV_NONE = -1,    /* the kind does not accept the value type */
    CV_BLOCK = 0,    /* the block's own integers; nothing allocated */
    CV_STRREC = 1,   /* allocated KaStr records whose characters are in the block */
    CV_ZSTRING = 2,  /* an allocated zero-terminated copy */
    CV_INT_DBL = 3,  /* allocated doubles, from INTEGER */
    CV_REAL_INT = 4, /* allocated 32-bit integers, from REAL */
    CV_REAL_DBL = 5  /* allocated doubles, from REAL */
};

struct t_KIND {
    const char *name;
    int32_t conversion[DLL_STRING + 1]; /* by value type */
    bool array;                         /* min_elcnt counts */
    bool gives_back;                    /* results of an argument passed by reference go back to the caller */
};

namespace wire {

/* ORDER KIND: the row number is the prototype's kind. */
// clang-format off
inline constexpr t_KIND kinds[] = {
    /*                  none     INTEGER     REAL         STRING         array  gives back */
    {"VarArg",          {CV_NONE, CV_BLOCK,   CV_REAL_DBL, CV_STRREC },   false, true },
    {"IntByValue",      {CV_NONE, CV_BLOCK,   CV_REAL_INT, CV_NONE   },   false, false},
    {"IntByReference",  {CV_NONE, CV_BLOCK,   CV_NONE,     CV_NONE   },   false, true },
    {"IntArray",        {CV_NONE, CV_BLOCK,   CV_NONE,     CV_NONE   },   true,  true },
    {"RealByValue",     {CV_NONE, CV_INT_DBL, CV_REAL_DBL, CV_NONE   },   false, false},
    {"RealByReference", {CV_NONE, CV_NONE,    CV_REAL_DBL, CV_NONE   },   false, true },
    {"RealArray",       {CV_NONE, CV_NONE,    CV_REAL_DBL, CV_NONE   },   true,  true },
    {"zString",         {CV_NONE, CV_NONE,    CV_NONE,     CV_ZSTRING},   false, false},
    {"String",          {CV_NONE, CV_NONE,    CV_NONE,     CV_STRREC },   false, true },
    {"StringArray",     {CV_NONE, CV_NONE,    CV_NONE,     CV_STRREC },   true,  true },
};
// clang-format on
static_assert(sizeof kinds / sizeof kinds[0] == KA_STRING_ARRAY + 1);

inline bool is_kind(int32_t number)
{
    return number >= KA_VARARG && number <= KA_STRING_ARRAY;
}

inline bool is_type(int32_t number)
{
    return number >= DLL_INTEGER && number <= DLL_STRING;
}

inline constexpr const char *type_names[] = {"", "INTEGER", "REAL", "STRING"};
static_assert(sizeof type_names / sizeof type_names[0] == DLL_STRING + 1);

/* Empty for a number that is not a value type. */
inline const char *type_name(int32_t type)
{
    return is_type(type) ? type_names[type] : "";
}

/* CV_NONE also for a number that is not a value type. */
inline int32_t conversion(const t_KIND &kind, int32_t type)
{
    return is_type(type) ? kind.conversion[type] : CV_NONE;
}

inline bool accepts(const t_KIND &kind, int32_t type)
{
    return conversion(kind, type) != CV_NONE;
}

/* "INTEGER or REAL": the value types that a kind accepts. */
inline const char *types_taken(const t_KIND &kind)
{
    static constexpr const char *texts[] = {"",       "INTEGER",           "REAL",           "INTEGER or REAL",
                                            "STRING", "INTEGER or STRING", "REAL or STRING", "anything"};
    int types = 0;
    for (int32_t type = DLL_INTEGER; type <= DLL_STRING; type++)
        if (accepts(kind, type)) types |= 1 << (type - DLL_INTEGER);
    return texts[types];
}

/* A VarArg matches its own argument and all that follow, or none: prototypes after it are never used. */
inline bool takes_all_further(int32_t kind)
{
    return kind == KA_VARARG;
}

/* The place of the prototype for the next argument, after one at place has matched an argument. */
inline int32_t next_prototype(int32_t place, int32_t kind)
{
    return takes_all_further(kind) ? place : place + 1;
}

} // namespace wire

#endif
