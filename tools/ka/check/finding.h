// SPDX-License-Identifier: MIT
//
// What ka check finds in a module, and the parts of the check.
#ifndef KA_TOOL_CHECK_FINDING_H
#define KA_TOOL_CHECK_FINDING_H

#include <optional>
#include <string>
#include <vector>

#include "elf/elf_file.h"
#include "ka/caller.h"

// fatal: the module does not start. error: something in it cannot work. warning: it works otherwise than it looks.
enum class Severity { note, warning, error, fatal };

struct Finding {
    Severity severity;
    std::string text;
    std::string remedy;
    std::vector<std::string> backtrace = {}; // of the host when it died or was late
    bool never_answers = false;              // a start would wait for an answer that cannot come
};

using Findings = std::vector<Finding>;

// program.cpp: the file, its loader, libraries and symbols. Null when there is nothing more to be looked at.
std::optional<ElfFile> check_program(const std::string &module, Findings &findings);

// tables.cpp: KaFuncList and KaArgList as the file has them. False when the module fills them as it starts, so
// that there is nothing to be looked at yet; then those of its host are looked at.
bool check_tables(const ElfFile &program, Findings &findings);
void check_tables(const ka_tables &tables, Findings &findings);

// start.cpp: starts the module, asks for a function that it does not have, and ends it; with_tables: looks at
// those of the host. An interruption's text when one ended it; nothing is found then.
std::optional<std::string> check_start(const std::string &module, int deadline_ms, bool with_tables,
                                       Findings &findings);

#endif
