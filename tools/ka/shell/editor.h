// SPDX-License-Identifier: MIT
//
// A person's lines: edited with the keys of the line editor, with history and completion. The prompt and what is
// typed are on standard error, so that standard output has the results alone.
#ifndef KA_TOOL_SHELL_EDITOR_H
#define KA_TOOL_SHELL_EDITOR_H

#include <csignal>
#include <cwchar>
#include <functional>
#include <histedit.h>
#include <string>
#include <sys/types.h>
#include <vector>

#include "input.h"

// The words that may be at the cursor: they would replace the text from begin on. When there are none, the hint is
// shown.
struct Completion {
    size_t begin;
    std::vector<std::string> words;
    std::string hint;
};

// Asked with the line up to the cursor.
using Completer = std::function<Completion(const std::string &)>;

class Editor {
public:
    Editor(std::string prompt, Completer completer, int interruption);
    ~Editor();
    Editor(const Editor &) = delete;
    Editor &operator=(const Editor &) = delete;

    // The line is added to the history, unless it begins with a blank.
    LineEvent next(std::string &line);

private:
    static Editor &of(EditLine *line);
    static char *prompt_of(EditLine *line);
    static int read_key(EditLine *line, wchar_t *key);
    static unsigned char complete(EditLine *line, int key);
    const char *edit_line(int &length);
    void take_typed_ahead();
    ssize_t read_byte(char &byte);
    void remember(const std::string &line);

    std::string prompt_;
    Completer completer_;
    int interruption_;
    int signal_ = 0;       // that came while the line was typed
    sigset_t open_mask_{}; // that of the program, which holds whenever no key is worked on
    std::string typed_ahead_;
    std::mbstate_t partial_{};
    std::string history_file_;
    History *history_;
    EditLine *line_;
};

#endif
