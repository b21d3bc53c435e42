// SPDX-License-Identifier: MIT
//
// See backtrace.h.
#include "backtrace.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <memory>
#include <string>
#include <sys/ptrace.h>
#include <vector>

namespace {

constexpr size_t most_frames = 64; // the stack of an endless recursion is deep

struct Frame {
    Dwarf_Addr address; // of the instruction, or of the one behind a call
    bool is_exact;
};

std::string hexadecimal(uint64_t number)
{
    char text[2 + 16 + 1];
    snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

// ---- Names -----------------------------------------------------------------------------------------------------

std::string readable(const char *symbol)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&free)> name(abi::__cxa_demangle(symbol, nullptr, nullptr, &status), free);
    return status == 0 ? name.get() : symbol;
}

std::string file_name(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// " at tasks.c:174", or nothing.
std::string source_line(Dwfl_Module *module, Dwarf_Addr address)
{
    int line = 0;
    Dwfl_Line *found = dwfl_module_getsrc(module, address);
    const char *file = found ? dwfl_lineinfo(found, nullptr, &line, nullptr, nullptr, nullptr) : nullptr;
    return file ? " at " + std::string(file) + ":" + std::to_string(line) : "";
}

// The address behind a call can belong to the next line, or the next function.
std::string describe(Dwfl *dwfl, const Frame &frame)
{
    const Dwarf_Addr inside = frame.is_exact ? frame.address : frame.address - 1;
    Dwfl_Module *module = dwfl_addrmodule(dwfl, inside);
    if (!module) return hexadecimal(frame.address);
    GElf_Off offset = 0;
    GElf_Sym symbol;
    Dwarf_Addr start = 0;
    const char *path = dwfl_module_info(module, nullptr, &start, nullptr, nullptr, nullptr, nullptr, nullptr);
    const std::string file = path ? file_name(path) : "?";
    const char *name = dwfl_module_addrinfo(module, inside, &offset, &symbol, nullptr, nullptr, nullptr);
    if (!name) return file + "+" + hexadecimal(frame.address - start);
    const std::string line = source_line(module, inside);
    if (!line.empty()) return readable(name) + line;
    return readable(name) + "+" + hexadecimal(offset + (frame.address - inside)) + " in " + file;
}

// ---- Frames ----------------------------------------------------------------------------------------------------

int add_frame(Dwfl_Frame *state, void *argument)
{
    auto *frames = static_cast<std::vector<Frame> *>(argument);
    Frame frame = {};
    if (!dwfl_frame_pc(state, &frame.address, &frame.is_exact)) return DWARF_CB_ABORT;
    frames->push_back(frame);
    return frames->size() < most_frames ? DWARF_CB_OK : DWARF_CB_ABORT;
}

// Debug information is taken from the file itself and from the local directories for it; nothing is fetched.
const Dwfl_Callbacks callbacks = {.find_elf = dwfl_linux_proc_find_elf,
                                  .find_debuginfo = dwfl_build_id_find_debuginfo,
                                  .section_address = nullptr,
                                  .debuginfo_path = nullptr};

std::string backtrace(int32_t pid)
{
    const std::unique_ptr<Dwfl, decltype(&dwfl_end)> dwfl(dwfl_begin(&callbacks), dwfl_end);
    if (!dwfl || dwfl_linux_proc_report(dwfl.get(), pid) != 0) return "";
    dwfl_report_end(dwfl.get(), nullptr, nullptr);
    if (dwfl_linux_proc_attach(dwfl.get(), pid, true) != 0) return "";
    std::vector<Frame> frames;
    dwfl_getthread_frames(dwfl.get(), pid, add_frame, &frames); // fails at the end of what can be unwound
    std::string text;
    for (size_t i = 0; i < frames.size(); i++)
        text += "#" + std::to_string(i) + (i < 10 ? "  " : " ") + describe(dwfl.get(), frames[i]) + "\n";
    return text;
}

// Only a fault of the processor has an address.
std::string fault_address(int32_t pid, int32_t signal)
{
    siginfo_t info = {};
    const bool has_address = signal == SIGSEGV || signal == SIGBUS;
    if (!has_address || ptrace(PTRACE_GETSIGINFO, pid, nullptr, &info) != 0 || info.si_code <= 0) return "";
    return "fault at address " + hexadecimal(reinterpret_cast<uintptr_t>(info.si_addr)) + "\n";
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
