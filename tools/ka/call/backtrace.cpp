// SPDX-License-Identifier: MIT
//
// See backtrace.h.
#include "backtrace.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <fstream>
#include <memory>
#include <string>
#include <sys/ptrace.h>
#include <vector>

#include "base/text.h"
#include "debug_library.h"

namespace {

// The stack of an endless recursion is deep, and is unwound to its bottom, which shows where it began.
constexpr size_t max_frames = 1 << 20;
constexpr std::chrono::seconds max_time(3);
constexpr size_t max_lines = 64;
constexpr size_t lines_at_the_bottom = 24; // of them, when they are not enough
constexpr size_t longest_cycle = 8;        // functions that call each other in turn
constexpr size_t least_repeats = 4;        // of a cycle that is folded
constexpr uint64_t near_stack = 1 << 16;   // of the stack pointer: what a function can reach below it in one step

const DebugLibrary &library()
{
    static const DebugLibrary opened;
    return opened;
}

struct Frame {
    Dwarf_Addr address; // of the instruction, or of the one after a call
    bool is_exact;
};

// ---- Names -----------------------------------------------------------------------------------------------------

// A function of KA_MODULE (ka/module.hpp) that became a part of what calls it goes by its own name.
std::string without_invoker(const std::string &name)
{
    const std::string before = "int ka::module_detail::invoke<&(", after = "), (ka::module_detail::returns)";
    const size_t end = name.find(after);
    if (name.rfind(before, 0) != 0 || end == std::string::npos) return name;
    return name.substr(before.size(), end - before.size());
}

std::string readable(const char *symbol)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&free)> name(abi::__cxa_demangle(symbol, nullptr, nullptr, &status), free);
    return printable(status == 0 ? without_invoker(name.get()) : symbol);
}

std::string file_name(const char *path)
{
    const char *slash = strrchr(path, '/');
    return printable(slash ? slash + 1 : path);
}

// " at tasks.c:174", or nothing.
std::string source_line(Dwfl_Module *module, Dwarf_Addr address)
{
    int line = 0;
    Dwfl_Line *found = library().dwfl_module_getsrc(module, address);
    const char *file = found ? library().dwfl_lineinfo(found, nullptr, &line, nullptr, nullptr, nullptr) : nullptr;
    return file ? " at " + printable(file) + ":" + std::to_string(line) : "";
}

// The address after a call can belong to the next line, or the next function.
std::string describe(Dwfl *dwfl, const Frame &frame)
{
    const Dwarf_Addr inside = frame.is_exact ? frame.address : frame.address - 1;
    Dwfl_Module *module = library().dwfl_addrmodule(dwfl, inside);
    if (!module) return hex_number(frame.address);
    GElf_Off offset = 0;
    GElf_Sym symbol;
    Dwarf_Addr start = 0;
    const char *path =
        library().dwfl_module_info(module, nullptr, &start, nullptr, nullptr, nullptr, nullptr, nullptr);
    const std::string file = path ? file_name(path) : "?";
    const char *name = library().dwfl_module_addrinfo(module, inside, &offset, &symbol, nullptr, nullptr, nullptr);
    if (!name) return file + "+" + hex_number(frame.address - start);
    const std::string line = source_line(module, inside);
    if (!line.empty()) return readable(name) + line;
    return readable(name) + "+" + hex_number(offset + (frame.address - inside)) + " in " + file;
}

// Of the function alone.
std::string function_of(Dwfl *dwfl, const Frame &frame)
{
    const std::string text = describe(dwfl, frame);
    return text.substr(0, std::min(text.find(" at "), text.find("+0x")));
}

// ---- Frames ----------------------------------------------------------------------------------------------------

struct Unwinding {
    std::vector<Frame> frames;
    std::chrono::steady_clock::time_point end = std::chrono::steady_clock::now() + max_time;
    bool is_cut = false;
};

int add_frame(Dwfl_Frame *state, void *argument)
{
    auto *unwinding = static_cast<Unwinding *>(argument);
    Frame frame = {};
    if (!library().dwfl_frame_pc(state, &frame.address, &frame.is_exact)) return DWARF_CB_ABORT;
    unwinding->frames.push_back(frame);
    const size_t count = unwinding->frames.size();
    const bool is_late = count % 1024 == 0 && std::chrono::steady_clock::now() > unwinding->end;
    unwinding->is_cut = is_late || count == max_frames;
    return unwinding->is_cut ? DWARF_CB_ABORT : DWARF_CB_OK;
}

// ---- Cycles ----------------------------------------------------------------------------------------------------

// A frame that is shown, or frames that are counted.
struct Line {
    size_t frame;      // the first
    size_t folded = 0; // 0: it is shown
    size_t period = 0; // folded frames repeat after so many; 0: they do not
};

// How many frames from first on repeat those that are period before them.
size_t repeated(const std::vector<Frame> &frames, size_t first, size_t period)
{
    size_t at = first;
    while (at + period < frames.size() && frames[at].address == frames[at + period].address)
        at++;
    return at - first;
}

// The number of frames in whole cycles from first on; 0 when there are too few of them.
size_t cycle_at(const std::vector<Frame> &frames, size_t first, size_t &period)
{
    for (period = 1; period <= longest_cycle; period++) {
        const size_t cycles = repeated(frames, first, period) / period + 1;
        if (cycles >= least_repeats) return cycles * period;
    }
    return 0;
}

// Of a cycle the first and the last turn are shown.
std::vector<Line> fold(const std::vector<Frame> &frames)
{
    std::vector<Line> lines;
    for (size_t at = 0; at < frames.size();) {
        size_t period = 0;
        const size_t length = cycle_at(frames, at, period);
        const size_t end = length == 0 ? at + 1 : at + length;
        for (size_t i = at; i < (length == 0 ? end : at + period); i++)
            lines.push_back({i});
        if (length != 0) lines.push_back({at + period, length - 2 * period, period});
        for (size_t i = end - period; length != 0 && i < end; i++)
            lines.push_back({i});
        at = end;
    }
    return lines;
}

// Those in the middle make room.
void shorten(std::vector<Line> &lines)
{
    if (lines.size() <= max_lines) return;
    const size_t top = max_lines - lines_at_the_bottom - 1;
    const size_t bottom = lines.size() - lines_at_the_bottom;
    const Line between = {lines[top].frame, lines[bottom].frame - lines[top].frame};
    lines.erase(lines.begin() + static_cast<ptrdiff_t>(top), lines.begin() + static_cast<ptrdiff_t>(bottom));
    lines.insert(lines.begin() + static_cast<ptrdiff_t>(top), between);
}

std::string show(Dwfl *dwfl, const std::vector<Frame> &frames, const Line &line)
{
    const std::string number = std::to_string(line.frame);
    if (line.folded == 0)
        return "#" + number + std::string(number.size() < 2 ? 2 : 1, ' ') + describe(dwfl, frames[line.frame]) + "\n";
    std::string names;
    for (size_t i = 0; i < line.period; i++)
        names += (i == 0 ? " of " : ", ") + function_of(dwfl, frames[line.frame + i]);
    return "    ... " + std::to_string(line.folded) + " more" + names + "\n";
}

std::string show_all(Dwfl *dwfl, const Unwinding &unwinding)
{
    std::vector<Line> lines = fold(unwinding.frames);
    shorten(lines);
    std::string text;
    for (const Line &line : lines)
        text += show(dwfl, unwinding.frames, line);
    return text + (unwinding.is_cut ? "    ... and more: the stack is too deep to be followed to its end\n" : "");
}

// ---- A process -------------------------------------------------------------------------------------------------

// Debug information is taken from the file itself and from the local directories for it; nothing is fetched.
std::string backtrace(int32_t pid)
{
    if (!library().is_whole()) return "no backtrace: " + printable(library().why_not()) + "\n";
    const Dwfl_Callbacks callbacks = {.find_elf = library().dwfl_linux_proc_find_elf,
                                      .find_debuginfo = library().dwfl_build_id_find_debuginfo,
                                      .section_address = nullptr,
                                      .debuginfo_path = nullptr};
    const std::unique_ptr<Dwfl, decltype(&dwfl_end)> dwfl(library().dwfl_begin(&callbacks), library().dwfl_end);
    if (!dwfl || library().dwfl_linux_proc_report(dwfl.get(), pid) != 0) return "";
    library().dwfl_report_end(dwfl.get(), nullptr, nullptr);
    if (library().dwfl_linux_proc_attach(dwfl.get(), pid, true) != 0) return "";
    Unwinding unwinding;
    library().dwfl_getthread_frames(dwfl.get(), pid, add_frame, &unwinding); // fails where no more can be unwound
    return show_all(dwfl.get(), unwinding);
}

// Where the memory begins that the stack pointer is in, or has just left; 0 when that is not known.
uint64_t stack_begin(int32_t pid, uint64_t stack_pointer)
{
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        unsigned long long begin = 0;
        unsigned long long end = 0;
        char rights[8] = "";
        if (sscanf(line.c_str(), "%llx-%llx %7s", &begin, &end, rights) != 3 || rights[1] != 'w') continue;
        if (end > stack_pointer) return begin;
    }
    return 0;
}

// A full stack: what lies below it cannot be used, and that was tried from near the stack pointer.
bool is_stack_overflow(int32_t pid, uint64_t address)
{
    struct __ptrace_syscall_info state = {}; // which has the stack pointer of every machine, in a system call or not
    if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof state, &state) <= 0) return false;
    const uint64_t stack_pointer = state.stack_pointer;
    return address + near_stack >= stack_pointer && address < stack_begin(pid, stack_pointer);
}

// Only a fault of the processor has an address.
std::string fault_address(int32_t pid, int32_t signal)
{
    siginfo_t info = {};
    const bool has_address = signal == SIGSEGV || signal == SIGBUS;
    if (!has_address || ptrace(PTRACE_GETSIGINFO, pid, nullptr, &info) != 0 || info.si_code <= 0) return "";
    const uint64_t address = reinterpret_cast<uintptr_t>(info.si_addr);
    const bool is_overflow = signal == SIGSEGV && is_stack_overflow(pid, address);
    return (is_overflow ? "stack overflow: " : "") + ("fault at address " + hex_number(address)) + "\n";
}

// Cut at the end of a line where it does not fit.
void write_backtrace(int32_t pid, int32_t signal, char *text, int32_t size, void *)
{
    std::string lines = fault_address(pid, signal) + backtrace(pid);
    if (lines.size() >= static_cast<size_t>(size)) lines.resize(lines.rfind('\n', static_cast<size_t>(size) - 2) + 1);
    memcpy(text, lines.c_str(), lines.size() + 1);
}

} // namespace

ka_inspector *backtrace_inspector()
{
    return write_backtrace;
}
