// SPDX-License-Identifier: MIT
//
// The library that edits lines: opened by ka shell on a terminal.
#ifndef KA_TOOL_SHELL_EDIT_LIBRARY_H
#define KA_TOOL_SHELL_EDIT_LIBRARY_H

#include <histedit.h>

#include "base/library.h"

struct EditLibrary : Library {
    EditLibrary() : Library(KA_LIBEDIT) {}

#define KA_FUNCTION(name) decltype(&::name) name = find(#name)
    KA_FUNCTION(el_end);
    KA_FUNCTION(el_get);
    KA_FUNCTION(el_gets);
    KA_FUNCTION(el_init);
    KA_FUNCTION(el_insertstr);
    KA_FUNCTION(el_line);
    KA_FUNCTION(el_resize);
    KA_FUNCTION(el_set);
    KA_FUNCTION(el_source);
    KA_FUNCTION(history);
    KA_FUNCTION(history_end);
    KA_FUNCTION(history_init);
#undef KA_FUNCTION
};

// Throws std::runtime_error when the library cannot be opened.
const EditLibrary &edit_library();

#endif
