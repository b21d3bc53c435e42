// SPDX-License-Identifier: MIT
//
// See editor.h.
#include "editor.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <iostream>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

#include "base/terminal.h"
#include "base/text.h"
#include "edit_library.h"
#include "history.h"

namespace {

constexpr char ctrl_d = 4;

std::string common_start(const std::vector<std::string> &words)
{
    std::string start = words[0];
    for (const std::string &word : words) {
        const auto differs = std::mismatch(start.begin(), start.end(), word.begin(), word.end()).first;
        start.erase(differs, start.end());
    }
    return start;
}

// In columns, from left to right.
void list_words(const std::vector<std::string> &words)
{
    size_t width = 0;
    for (const std::string &word : words)
        width = std::max(width, word.size() + 2);
    const size_t in_line = std::max<size_t>(1, static_cast<size_t>(columns_of(STDERR_FILENO)) / width);
    std::cerr << '\n';
    for (size_t i = 0; i < words.size(); i++) {
        const bool ends_line = i % in_line == in_line - 1 || i + 1 == words.size();
        std::cerr << words[i] << (ends_line ? "\n" : std::string(width - words[i].size(), ' '));
    }
}

// The editing library handles the first of these signals in a line, and leaves the next to the program, which must be
// woken by it too.
void wake_by_stops_and_windows()
{
    struct sigaction waking = {};
    waking.sa_handler = [](int) {};
    sigaction(SIGCONT, &waking, nullptr);
    sigaction(SIGWINCH, &waking, nullptr);
}

// After a stop others have written to the terminal and set its mode; after a change of the window the line lies
// elsewhere.
void show_again(EditLine *line)
{
    edit_library().el_set(line, EL_PREP_TERM, 1);
    edit_library().el_resize(line);
    edit_library().el_set(line, EL_REFRESH);
}

} // namespace

const EditLibrary &edit_library()
{
    static const EditLibrary opened;
    if (!opened.is_whole()) throw std::runtime_error("lines cannot be edited: " + printable(opened.why_not()));
    return opened;
}

Editor::Editor(std::string prompt, Completer completer, int interruption)
    : prompt_(std::move(prompt)), completer_(std::move(completer)), interruption_(interruption),
      history_file_(history_file()), history_(edit_library().history_init()),
      line_(edit_library().el_init("ka", stdin, stderr, stderr))
{
    std::setlocale(LC_CTYPE, "");
    wake_by_stops_and_windows();
    edit_library().el_set(line_, EL_CLIENTDATA, this);
    edit_library().el_set(line_, EL_PROMPT, prompt_of);
    edit_library().el_set(line_, EL_EDITOR, "emacs");
    edit_library().el_set(line_, EL_SIGNAL, 1); // the mode survives a stop; a new width of the window counts
    edit_library().el_set(line_, EL_GETCFN, read_key);
    edit_library().el_set(line_, EL_HIST, edit_library().history, history_);
    edit_library().el_set(line_, EL_ADDFN, "ka-complete", "completes the word", complete);
    edit_library().el_set(line_, EL_BIND, "^I", "ka-complete", nullptr);
    edit_library().el_set(line_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    edit_library().el_source(line_, nullptr); // ~/.editrc has the last word
    HistEvent event;
    edit_library().history(history_, &event, H_SETSIZE, static_cast<int>(history_lines));
    edit_library().history(history_, &event, H_SETUNIQUE, 1);
    for (const std::string &line : read_history(history_file_))
        edit_library().history(history_, &event, H_ENTER, line.c_str());
}

Editor::~Editor()
{
    edit_library().el_end(line_);
    edit_library().history_end(history_);
}

Editor &Editor::of(EditLine *line)
{
    Editor *editor = nullptr;
    edit_library().el_get(line, EL_CLIENTDATA, &editor);
    return *editor;
}

char *Editor::prompt_of(EditLine *line)
{
    return of(line).prompt_.data();
}

// What was typed while a call was under way, when the terminal made lines of it: there a ctrl-D is not a key but an
// end of input. Read before the editor takes the terminal, which it must do before its prompt invites to type.
void Editor::take_typed_ahead()
{
    struct pollfd typed = {STDIN_FILENO, POLLIN, 0};
    while (poll(&typed, 1, 0) == 1) {
        char buffer[4096];
        const ssize_t length = read(STDIN_FILENO, buffer, sizeof buffer);
        if (length > 0) typed_ahead_.append(buffer, static_cast<size_t>(length));
        if (length == 0) typed_ahead_ += ctrl_d;
        if (length <= 0) break;
    }
    edit_library().el_set(line_, EL_PREP_TERM, 1);
}

ssize_t Editor::read_byte(char &byte)
{
    if (typed_ahead_.empty()) {
        const ssize_t length = read(STDIN_FILENO, &byte, 1);
        return length < 0 && errno == EIO ? 0 : length; // EIO: the terminal is gone
    }
    byte = typed_ahead_[0];
    typed_ahead_.erase(0, 1);
    return 1;
}

// A signal ends the reading of the line, whatever has been typed of it.
int Editor::read_key(EditLine *line, wchar_t *key)
{
    Editor &editor = of(line);
    for (;;) {
        if (editor.typed_ahead_.empty())
            editor.signal_ = await_input(editor.interruption_, &editor.open_mask_, [line] { show_again(line); });
        if (editor.signal_ != 0) {
            errno = EINTR;
            return -1;
        }
        char byte;
        const ssize_t length = editor.read_byte(byte);
        if (length <= 0) return static_cast<int>(length);
        const size_t used = std::mbrtowc(key, &byte, 1, &editor.partial_);
        if (used <= 1) return 1;
        if (used == static_cast<size_t>(-1)) editor.partial_ = {}; // no character: passed over
    }
}

unsigned char Editor::complete(EditLine *line, int)
{
    const LineInfo *typed = edit_library().el_line(line);
    const std::string before(typed->buffer, typed->cursor);
    const Completion completion = of(line).completer_(before);
    const std::string word = before.substr(completion.begin);
    if (completion.words.empty()) {
        if (completion.hint.empty()) return CC_REFRESH_BEEP;
        std::cerr << '\n' << completion.hint << '\n';
        return CC_REDISPLAY;
    }
    const std::string start = common_start(completion.words);
    const bool is_whole = completion.words.size() == 1;
    const std::string more = start.substr(word.size()) + (is_whole ? " " : "");
    if (!more.empty()) return edit_library().el_insertstr(line, more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    list_words(completion.words);
    return CC_REDISPLAY;
}

void Editor::remember(const std::string &line)
{
    HistEvent event;
    if (line.find_first_not_of(" \t") == std::string::npos || line.starts_with(' ')) return;
    const bool is_last = edit_library().history(history_, &event, H_FIRST) != -1 && event.str == line;
    edit_library().history(history_, &event, H_ENTER, line.c_str());
    if (!is_last) add_to_history(history_file_, line);
}

// A stop and a new window are let in while a key is awaited, never while one is worked on: then the line would not be
// shown again until the next key, and the editing library's handler would draw into its own drawing.
const char *Editor::edit_line(int &length)
{
    sigset_t waking;
    sigemptyset(&waking);
    sigaddset(&waking, SIGCONT);
    sigaddset(&waking, SIGWINCH);
    sigprocmask(SIG_BLOCK, &waking, &open_mask_);
    take_typed_ahead();
    const char *typed = edit_library().el_gets(line_, &length);
    sigprocmask(SIG_SETMASK, &open_mask_, nullptr);
    return typed;
}

LineEvent Editor::next(std::string &line)
{
    int length = 0;
    signal_ = 0;
    const char *typed = edit_line(length);
    if (signal_ == SIGTERM) return LineEvent::ended;
    if (signal_ != 0) {
        typed_ahead_.clear();
        std::cerr << "^C\n";
        return LineEvent::interrupted;
    }
    if (typed == nullptr || length <= 0) {
        std::cerr << '\n';
        return LineEvent::end;
    }
    line.assign(typed, static_cast<size_t>(length));
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.pop_back();
    remember(line);
    return LineEvent::line;
}
