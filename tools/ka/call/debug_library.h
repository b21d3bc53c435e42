// SPDX-License-Identifier: MIT
//
// The library that reads debugging information and unwinds stacks: opened when a host has died.
#ifndef KA_TOOL_CALL_DEBUG_LIBRARY_H
#define KA_TOOL_CALL_DEBUG_LIBRARY_H

#include <elfutils/libdwfl.h>

#include "base/library.h"

struct DebugLibrary : Library {
    DebugLibrary() : Library(KA_LIBDW) {}

#define KA_FUNCTION(name) decltype(&::name) name = find(#name)
    KA_FUNCTION(dwfl_addrmodule);
    KA_FUNCTION(dwfl_begin);
    KA_FUNCTION(dwfl_build_id_find_debuginfo);
    KA_FUNCTION(dwfl_end);
    KA_FUNCTION(dwfl_frame_pc);
    KA_FUNCTION(dwfl_getthread_frames);
    KA_FUNCTION(dwfl_lineinfo);
    KA_FUNCTION(dwfl_linux_proc_attach);
    KA_FUNCTION(dwfl_linux_proc_find_elf);
    KA_FUNCTION(dwfl_linux_proc_report);
    KA_FUNCTION(dwfl_module_addrinfo);
    KA_FUNCTION(dwfl_module_getsrc);
    KA_FUNCTION(dwfl_module_info);
    KA_FUNCTION(dwfl_report_end);
#undef KA_FUNCTION
};

#endif
