// SPDX-License-Identifier: MIT
//
// See explanations.h. Where a message can take several forms, or comes in pieces, each form has a line. The tests
// compare this table with the constants of the public headers and the messages in the sources.
#include "explanations.h"

#include <algorithm>
#include <csignal>

#include "exit_status.h"
#include "ka/dll_codes.h"
#include "ka/kastring.h"
#include "ka/real.h"

namespace {

constexpr const char *call = "return code of a call";
constexpr const char *string = "return code of a string function";
constexpr const char *real = "status of a REAL operation";
constexpr const char *decimal = "result of the decimal library";
constexpr const char *ka_exit = "exit status of ka";
constexpr const char *host_exit = "exit status of a host";
constexpr const char *death = "signal";
constexpr const char *start = "message of a host that cannot start";
constexpr const char *refusal = "trace line of a refused call";
constexpr const char *trace = "trace line";
constexpr const char *fatal = "last words of a host";

#define OUTSIDE_THE_SEGMENT(layout) "Assertion `ofs >= 0 && ofs < " layout "->shmsz' failed"
#define BARE_RANGE(layout) "ofs >= 0 && ofs < " layout "->shmsz"

constexpr Explanation rows[] = {
    // ---- Return codes of a call: the host's own
    {call, KA_OK, "KA_OK", "", "the function returned 0", "by custom: it succeeded", "nothing to do"},
    {call, KA_NO_MEMORY, "KA_NO_MEMORY", "", "the host has no memory for a converted argument",
     "an element count or a string length is huge or negative, or the 32-bit process is full",
     "pass less at once; look at the descriptors with ka dump; restart a module that loses memory"},
    {call, KA_NO_FUNCTION, "KA_NO_FUNCTION", "", "the module has no function of that name",
     "the name is misspelt, or differs in letter case or by a blank; or another module runs",
     "compare it with ka list MODULE"},
    {call, KA_WRONG_TYPE, "KA_WRONG_TYPE", "", "the type of an argument does not suit its prototype",
     "an INTEGER, REAL or STRING was passed where the kind takes another; or the function name is no STRING",
     "compare the call with ka list MODULE; a trace of level 3 shows the argument last"},
    {call, KA_WRONG_COUNT, "KA_WRONG_COUNT", "", "too many or too few arguments, or no function name",
     "the call does not have the arguments that the prototypes name, or argc in the block is 0 or less",
     "compare the call with ka list MODULE; a stray SIGUSR2 between calls is answered so and does no harm"},
    {call, KA_TOO_FEW_ELEMENTS, "KA_TOO_FEW_ELEMENTS", "", "an array has fewer elements than its prototype asks for",
     "the array is shorter than the minimum, or its element count is negative",
     "pass more elements; ka list MODULE shows the minimum"},
    {call, KA_TOO_MANY_ARGS, "KA_TOO_MANY_ARGS", "", "more than 50 arguments",
     "argc in the block is above 51, the function name counted", "pass many values as one array"},
    {call, KA_BAD_PROTOTYPE, "KA_BAD_PROTOTYPE", "",
     "the module's own tables are wrong, or what came back could not be stored",
     "a prototype's kind is not 0 to 9, or the function changed its prototypes during the call",
     "mend the module: ka check MODULE names the prototype"},

    // ---- String functions, REAL operations, the decimal library
    {string, KASTR_OK, "KASTR_OK", "", "done", "none", "nothing to do"},
    {string, KASTR_NO_ROOM, "KASTR_NO_ROOM", "", "the text does not fit the string, which is left unchanged",
     "it is longer than the room that the caller gave (maxlen)",
     "give the argument more room: 'text':80 or str:80 with ka call"},
    {real, REAL_OK, "REAL_OK", "", "done", "none", "nothing to do"},
    {real, REAL_NOT_INTEGER, "REAL_NOT_INTEGER", "",
     "the REAL does not fit a 32-bit integer; the nearer of 2147483647 and -2147483648 is stored",
     "its whole part is beyond those limits", "test the range before, or take it as a double"},
    {real, REAL_RANGE, "REAL_RANGE", "",
     "the result is out of range: too large stores the largest REAL with its sign, too small stores zero",
     "the result is above about 1e126 or below about 1e-130; or a double is infinite or no number",
     "check the operands; use the stored substitute where that is good enough"},
    {real, REAL_DIVISION_BY_ZERO, "REAL_DIVISION_BY_ZERO", "",
     "division by zero; the largest REAL with a sign is stored", "the divisor is zero", "test the divisor before"},
    {real, REAL_NOT_NUMBER, "REAL_NOT_NUMBER", "", "the text is not a number; zero is stored",
     "letters or a second point in it, or an exponent above 999", "check the text"},
    {real, REAL_NULL_FIELD, "REAL_NULL_FIELD", "", "a packed field holds null; zero is stored",
     "the field was never filled, or was stored from a null", "treat it as missing, or use the zero"},
    {decimal, DEC_OK, "DEC_OK", "", "done", "none", "nothing to do"},
    {decimal, DEC_NEGATIVE_PLACES, "DEC_NEGATIVE_PLACES", "", "a negative number of decimal places was asked for",
     "the places given to rounding or truncation are below 0", "give 0 or more places"},
    {decimal, DEC_NOT_COMPARABLE, "DEC_NOT_COMPARABLE", "", "the numbers cannot be compared", "one of them is null",
     "test for null before"},
    {decimal, DEC_OVERFLOW, "DEC_OVERFLOW", "", "the result is too large",
     "its base-100 exponent is above 63 (about 1e126), or it is outside the integer asked for",
     "check the operands; the REAL layer stores the largest REAL in its place"},
    {decimal, DEC_UNDERFLOW, "DEC_UNDERFLOW", "", "the result is too small",
     "its base-100 exponent is below -64 (about 1e-130)", "check the operands; the REAL layer stores zero"},
    {decimal, DEC_DIVISION_BY_ZERO, "DEC_DIVISION_BY_ZERO", "", "division by zero", "the divisor has no digits",
     "test the divisor before"},
    {decimal, DEC_BAD_TEXT, "DEC_BAD_TEXT", "", "the text is not a number", "a character that no number has",
     "check the text"},
    {decimal, DEC_BAD_EXPONENT, "DEC_BAD_EXPONENT", "", "the exponent in the text is above 999",
     "a number that no REAL can hold", "check the text"},

    // ---- Exit statuses
    {ka_exit, EXIT_DONE, "EXIT_DONE", "", "done", "none", "nothing to do"},
    {ka_exit, EXIT_NONZERO, "EXIT_NONZERO", "", "the function returned another code than 0",
     "the function's own verdict; or the status of a REAL is not 0; or ka check or ka dump found something wrong",
     "look at what was printed"},
    {ka_exit, EXIT_USAGE, "EXIT_USAGE", "", "bad usage, or results that could not be written",
     "an unknown option, a malformed argument, a full disk", "read the line on standard error; ka --help"},
    {ka_exit, EXIT_REFUSED, "EXIT_REFUSED", "", "refused: the call does not suit the module's tables, or is too big",
     "a wrong name, or a wrong count, type or length of arguments", "compare the call with ka list MODULE"},
    {ka_exit, EXIT_NOT_STARTED, "EXIT_NOT_STARTED", "",
     "there is no such module, process or segment, or the module could not be started",
     "no such file, no program, something missing, or it ended at start; for ka trace and ka dump: the process has "
     "ended, is no host, has no segment, or may not be looked into",
     "ka check MODULE; ipcs -m lists segments, ps -ef shows hosts as children of their caller"},
    {ka_exit, EXIT_DIED, "EXIT_DIED", "", "the module died in the call", "a crash, an exit, a kill",
     "explain the signal or status that standard error names"},
    {ka_exit, EXIT_DEADLINE, "EXIT_DEADLINE", "", "no answer within the deadline", "the function hangs or is slow",
     "--deadline TIME"},
    {ka_exit, EXIT_INTERRUPTED, "EXIT_INTERRUPTED", "", "interrupted by SIGINT or SIGTERM",
     "somebody pressed ctrl-C, or ended ka", "nothing to do: the host was ended too"},
    {host_exit, 0, "", "", "the host ended in order", "it was told to by SIGTERM, or its caller is gone",
     "nothing to do; when it was not expected: look who sent SIGTERM, or whether the module calls exit(0)"},
    {host_exit, KA_EXIT_START, "KA_EXIT_START", "", "the host could not start",
     "it was started by hand, or with a wrong segment or block; or a function ended the process with this status",
     "explain the line that it wrote; modules are started by a caller: ka call MODULE FUNCTION"},
    {host_exit, 126, "", "", "the file was found and could not be run", "no right, or no program", "ka check MODULE"},
    {host_exit, 127, "",
     "error while loading shared libraries: %s\n"
     "symbol lookup error: %s\n"
     "version `%s' not found (required by %s)",
     "the dynamic linker could not put the program together",
     "a shared library, a version of one, or a symbol is missing; the line on standard error names it",
     "ka check MODULE lists all that is missing; install it, or set the module's RUNPATH or LD_LIBRARY_PATH"},

    // ---- Signals
    {death, SIGSEGV, "SIGSEGV", "Segmentation fault", "the function used memory that is not there",
     "a null or stale pointer, an index out of range, or recursion without end",
     "look at the backtrace; build the module with -g -fsanitize=address and call it again"},
    {death, SIGBUS, "SIGBUS", "Bus error", "the function used memory that cannot be had",
     "a mapped file was cut off, or shared memory is full", "look at the file, and at df /dev/shm"},
    {death, SIGFPE, "SIGFPE", "Floating point exception", "an integer division by zero or out of range",
     "a divisor of 0, or -2147483648 / -1", "test the divisor"},
    {death, SIGILL, "SIGILL", "Illegal instruction", "an instruction that this processor does not have",
     "built for another processor; or a deliberate trap of the compiler (unreachable code)",
     "build without -march=native; look at the backtrace"},
    {death, SIGABRT, "SIGABRT", "Aborted", "the process gave itself up",
     "a failed assertion, a fatal REAL error, damaged memory found by the C library, or abort()",
     "explain the line that it wrote on standard error right before"},
    {death, SIGTRAP, "SIGTRAP", "Trace/breakpoint trap", "a breakpoint without a debugger",
     "a compiled-in trap, or a debugger that left one behind", "look at the backtrace"},
    {death, SIGKILL, "SIGKILL", "Killed", "the process was killed without a chance to end in order",
     "a kill -9, the kernel's memory killer (see dmesg), or the library after a grace time that SIGTERM did not end",
     "give it more memory, or longer; dll_cleanup did not run"},
    {death, SIGTERM, "SIGTERM", "Terminated", "ends a host in order: dll_cleanup runs and the status is 0",
     "the caller closed the host, or ended itself: the kernel then sends it",
     "nothing to do; a module that dies by it has changed the signal's handling"},
    {death, SIGUSR2, "SIGUSR2", "User defined signal 2", "the doorbell between caller and host: a call, a reply",
     "a process that dies by it got a reply, or a stray signal, without being ready for it",
     "open a host before its signals can come; send it to nothing but hosts"},
    {death, SIGUSR1, "SIGUSR1", "User defined signal 1", "blocked in a host but for the time after a call-back",
     "somebody sent it from outside", "find the sender; the module can install a handler"},
    {death, SIGINT, "SIGINT", "Interrupt", "ctrl-C in the terminal; blocked in a host", "somebody interrupted",
     "nothing to do"},
    {death, SIGHUP, "SIGHUP", "Hangup", "the terminal went away", "a closed window or connection",
     "start with nohup or setsid what must outlive it"},
    {death, SIGPIPE, "SIGPIPE", "Broken pipe", "a write into a pipe or connection that nobody reads",
     "the reader has ended", "have the module ignore SIGPIPE or use MSG_NOSIGNAL"},
    {death, SIGALRM, "SIGALRM", "Alarm clock", "a timer ran out; blocked while a host waits for a call",
     "the function set an alarm without a handler", "install a handler, and unblock SIGALRM, in the function"},
    {death, SIGIO, "SIGIO", "I/O possible", "a descriptor became ready; blocked while a host waits for a call",
     "the module asked for signals of a descriptor", "install a handler"},
    {death, SIGXCPU, "SIGXCPU", "CPU time limit exceeded", "the limit of processor time is used up", "ulimit -t",
     "raise the limit"},
    {death, SIGXFSZ, "SIGXFSZ", "File size limit exceeded", "a file grew beyond its limit", "ulimit -f",
     "raise the limit"},
    {death, SIGQUIT, "SIGQUIT", "Quit", "ctrl-\\ in the terminal", "somebody ended it with a memory image",
     "nothing to do"},
    {death, SIGSTOP, "SIGSTOP", "Stopped (signal)", "the process stands still; a host answers nothing meanwhile",
     "somebody, or a debugger, stopped it", "kill -CONT PID; the deadline of a call goes on"},
    {death, SIGTSTP, "SIGTSTP", "Stopped", "ctrl-Z in the terminal: the process stands still", "somebody pressed it",
     "fg, or kill -CONT PID"},
    {death, SIGTTIN, "SIGTTIN", "Stopped (tty input)", "a background process read from the terminal",
     "it has no input", "fg, or give it input from a file"},
    {death, SIGTTOU, "SIGTTOU", "Stopped (tty output)", "a background process wrote to the terminal", "stty tostop",
     "fg, or stty -tostop"},
    {death, SIGCONT, "SIGCONT", "Continued", "a stopped process goes on", "fg, or kill -CONT", "nothing to do"},
    {death, SIGCHLD, "SIGCHLD", "Child exited", "a child of the process ended: hosts are children of their caller",
     "with it ignored, or a handler that waits for any child, the library cannot tell how a host ended",
     "leave the hosts to the library"},
    {death, SIGURG, "SIGURG", "Urgent I/O condition", "urgent data on a connection; ignored by default",
     "the peer sent it", "nothing to do"},
    {death, SIGVTALRM, "SIGVTALRM", "Virtual timer expired", "a timer of the process's own time ran out",
     "the function set it without a handler", "install a handler, or do not set it"},
    {death, SIGPROF, "SIGPROF", "Profiling timer expired", "a profiler's timer ran out",
     "the timer was inherited, and the handler was not", "do not profile across the start of a host"},
    {death, SIGWINCH, "SIGWINCH", "Window changed", "the terminal has another size; ignored by default",
     "somebody changed the window", "nothing to do"},
    {death, SIGPWR, "SIGPWR", "Power failure", "the machine loses power", "its supply said so", "save what matters"},
    {death, SIGSTKFLT, "SIGSTKFLT", "Stack fault", "not raised by the system", "somebody sent it", "find the sender"},
    {death, SIGSYS, "SIGSYS", "Bad system call", "a system call that is not allowed here",
     "a sandbox or container filters system calls", "allow it there"},

    // ---- What a host writes: at start
    {start, NO_NUMBER, "", "%s: Illegal call", "the host was not given exactly one argument",
     "a module is no command: it was started by hand, or by a caller that gives too much",
     "start it through a caller: ka call MODULE FUNCTION [ARGUMENT...]"},
    {start, NO_NUMBER, "", "%s: Illegal argument: %s", "the layout behind the colon is not 0, 32 or 64",
     "the caller asks for a layout that does not exist", "start it with SEGMENT, SEGMENT:32 or SEGMENT:64"},
    {start, NO_NUMBER, "", "shmat: %s\nshmat", "the shared segment could not be attached",
     "the identifier is wrong, the segment is gone, or belongs to another user",
     "ipcs -m lists the segments; caller and host must be of one user and one IPC namespace"},
    {start, NO_NUMBER, "", "Bad DLL_MAGIC", "the segment holds no block of this kind",
     "its first 8 bytes are not \"KA.DLL\" and two zero bytes: a wrong identifier, or the caller wrote no header",
     "ka dump SEGMENT shows what is there"},
    {start, NO_NUMBER, "", "Unsupported DLL_VERSION %x", "the block is of another version",
     "the caller writes another version than 101 (hexadecimal)", "use a caller and a host of the same version"},

    // ---- What a host writes: refusals, levels 2 and 3
    {refusal, NO_NUMBER, "", "illegal argument count, function name is required", "the call has no function name: 9",
     "argc in the block is 0 or less; a stray SIGUSR2 between calls looks so", "write the call before the signal"},
    {refusal, NO_NUMBER, "", "argument count exceeds maximum (%d)", "the call has too many arguments: 606",
     "argc in the block is above 51", "pass many values as one array"},
    {refusal, NO_NUMBER, "", "first argument must be function name", "descriptor 0 is no STRING: 8",
     "the caller does not write the function name first", "mend the caller; ka dump shows the descriptors"},
    {refusal, NO_NUMBER, "", "undefined function name: \"%s\"", "the module has no function of that name: 7",
     "the name is misspelt, or differs in letter case or by a blank", "compare it with ka list MODULE"},
    {refusal, NO_NUMBER, "", "extra argument detected", "more arguments than prototypes: 9", "the call has too many",
     "compare it with ka list MODULE"},
    {refusal, NO_NUMBER, "", "%s: wrong number of arguments\nKaFunc->arg_cnt = %d, argi = %d, proto->type = %d",
     "fewer arguments than prototypes: 9; arg_cnt is what the function takes, argi what was given",
     "the call has too few", "compare it with ka list MODULE"},

    // ---- What a host writes: trace
    {trace, NO_NUMBER, "", "calling %s, argc = %d", "level 1: the function is about to be called",
     "dll_debug is not 0", "ka trace PID --level 0 ends the trace"},
    {trace, NO_NUMBER, "", "return code is %d", "level 1: what the function returned", "dll_debug is not 0",
     "ka trace PID --level 0 ends the trace"},
    {trace, NO_NUMBER, "", "%s = array [%d]\n= array [%d]",
     "level 2: an array argument; a line for each element follows", "dll_debug is 2 or more",
     "an array of one element ends without a line end: the next name follows on its line"},
    {trace, NO_NUMBER, "", "*ERROR*", "level 2: a value that cannot be shown",
     "the function changed its own prototypes, or how the argument was converted, during the call",
     "mend the module: tables are not to change during a call"},
    {trace, NO_NUMBER, "", "function name = \"%s\", argc = %d",
     "level 3: the function was found; its arguments follow", "dll_debug is 3 or more",
     "when no 'calling' line follows, the argument shown last was refused"},
    {trace, NO_NUMBER, "",
     "arg = %s, %s, CALL = %s, elcnt = %d (%s)\n"
     "arg = %s\n"
     ", CALL = %s\n"
     ", elcnt = %d\n"
     "(%s)\n"
     "(ByRef)\n"
     "(ByValue)",
     "level 3: an argument: its prototype's name and kind, then the type, the number of elements and the way passed",
     "dll_debug is 3 or more", "when it is the last line of a call, this argument was refused (8, 17 or -1)"},
    {trace, NO_NUMBER, "", "dll base = %s", "level 4: the block dump begins, with the host's address of the block",
     "dll_debug is 4 or more", "ka dump PID shows the same with values decoded"},
    {trace, NO_NUMBER, "", "argc = %d\n# %d",
     "level 4: number of descriptors, and of the descriptor whose fields follow", "dll_debug is 4 or more",
     "descriptor 0 is the function name"},
    {trace, NO_NUMBER, "", "type   = %s\nDLL_???", "level 4: the value type; DLL_??? is none that exists",
     "dll_debug is 4 or more", "DLL_??? is answered with 8: mend the caller"},
    {trace, NO_NUMBER, "", "ptr    = %s\nofs    = %d",
     "level 4: the value's address in the host, and its distance from the function name's", "dll_debug is 4 or more",
     "nothing to do"},
    {trace, NO_NUMBER, "", "maxlen = %d\nelsz   = %d\nelcnt  = %d",
     "level 4: room for characters, words of 4 bytes from element to element, number of elements",
     "dll_debug is 4 or more", "nothing to do"},
    {trace, NO_NUMBER, "", "= \"%s\"\n= %x %x %x\n= %d",
     "level 4: the first element: a string, the words of a REAL, an integer", "dll_debug is 4 or more",
     "ka dump PID shows REALs in decimal"},

    // ---- What a host writes: the end
    {fatal, NO_NUMBER, "", "fatal math error cc #-2", "a REAL operation was given null; the host aborted",
     "a REAL argument was never set, or came from a null field: hosts end at a null REAL",
     "have the caller pass numbers only; test with dec_pos before operations in the module"},
    {fatal, NO_NUMBER, "", "fatal math error cc #%d\nfile = %s, line = %d",
     "a REAL operation cannot go on; the host aborted. The number is a result of the decimal library",
     "a result that the operation does not expect: negative places, an empty text, a damaged REAL",
     "explain the number; the line is the place in the REAL layer; the backtrace shows who called it"},
    {fatal, NO_NUMBER, "",
     OUTSIDE_THE_SEGMENT("dll_info") "\n" OUTSIDE_THE_SEGMENT("((t_DLL_INFO32 *)dll_info)") "\n" OUTSIDE_THE_SEGMENT(
         "((t_DLL_INFO64 *)dll_info)") "\n" BARE_RANGE("dll_info") "\n" BARE_RANGE("((t_DLL_INFO32 *)dll_info)") "\n" BARE_RANGE("((t_DLL_INFO64 *)dll_info)"),
     "an address in the block lies outside the segment; the host aborted",
     "u_get__arg: the ptr of an argument; dll_scratch: the scratch field. Or base or shmsz is wrong, or the layout "
     "is "
     "not the one that the host was started with",
     "mend the caller: addresses are its own, from base to base + shmsz - 1; ka dump names the one that is outside"},
    {fatal, NO_NUMBER, "",
     "Assertion `s->dec_ndgts >= 0 && s->dec_ndgts <= ACCSIZE' failed\n"
     "s->dec_ndgts >= 0 && s->dec_ndgts <= ACCSIZE",
     "a number with an impossible count of digits; the host aborted", "a REAL that was never set, or was overwritten",
     "look for the function that writes past its arguments"},
    {fatal, NO_NUMBER, "", "stack overflow: fault at address %s", "the stack is full: a line of the report of ka",
     "a recursion without end, or local variables of megabytes",
     "the backtrace shows the turns, and at its end where they began; ulimit -s is the limit of the stack"},
    {fatal, NO_NUMBER, "",
     "double free or corruption\n"
     "free(): invalid pointer\n"
     "malloc(): %s\n"
     "corrupted size vs. prev_size%s\n"
     "*** stack smashing detected ***",
     "the C library found its memory damaged; the process aborted",
     "the function wrote past a buffer: beyond elcnt elements, or beyond a string's maxlen",
     "build the module with -fsanitize=address and call it again"},
};

} // namespace

std::span<const Explanation> explanations()
{
    static const std::vector<Explanation> all = [] {
        const std::span<const Explanation> of_library = library_explanations();
        std::vector<Explanation> both(std::begin(rows), std::end(rows));
        const std::span<const Explanation> of_build = build_explanations();
        both.insert(both.end(), of_build.begin(), of_build.end());
        const auto is_exit = [](const Explanation &row) { return row.layer == ka_exit; };
        both.insert(std::find_if(both.begin(), both.end(), is_exit), of_library.begin(), of_library.end());
        return both;
    }();
    return all;
}
