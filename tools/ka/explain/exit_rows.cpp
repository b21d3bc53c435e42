// SPDX-License-Identifier: MIT
//
// See rows.h: exit statuses, and the signals that end a process.
#include <csignal>

#include "base/exit_status.h"
#include "ka/dll_codes.h"
#include "rows.h"

namespace {

constexpr const char *ka_exit = "exit status of ka";
constexpr const char *host_exit = "exit status of a host";
constexpr const char *death = "signal";

constexpr Explanation rows[] = {
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
     "ended, is not a host, has no segment, or may not be looked into",
     "ka check MODULE; ipcs -m lists segments, ps -ef shows hosts as children of their caller"},
    {ka_exit, EXIT_DIED, "EXIT_DIED", "", "the module died in the call", "a crash, an exit, a kill",
     "explain the signal or status that standard error names"},
    {ka_exit, EXIT_DEADLINE, "EXIT_DEADLINE", "", "no answer within the deadline", "the function hangs or is slow",
     "--deadline TIME"},
    {ka_exit, EXIT_INTERRUPTED, "EXIT_INTERRUPTED", "", "interrupted by SIGINT or SIGTERM",
     "somebody pressed ctrl-C, or ended ka", "nothing to do: the host was ended too"},
    {host_exit, 0, "", "", "the host ended in order", "SIGTERM asked it to, or its caller is gone",
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
     "a compiled-in trap, or one that a debugger left", "look at the backtrace"},
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
    {death, SIGPIPE, "SIGPIPE", "Broken pipe", "a write into a pipe or connection without a reader",
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
    {death, SIGSTOP, "SIGSTOP", "Stopped (signal)", "the process is stopped; a stopped host answers nothing",
     "somebody, or a debugger, stopped it", "kill -CONT PID; the deadline of a call goes on"},
    {death, SIGTSTP, "SIGTSTP", "Stopped", "ctrl-Z in the terminal: the process is stopped", "somebody pressed it",
     "fg, or kill -CONT PID"},
    {death, SIGTTIN, "SIGTTIN", "Stopped (tty input)", "a background process read from the terminal",
     "it has no input", "fg, or give it input from a file"},
    {death, SIGTTOU, "SIGTTOU", "Stopped (tty output)", "a background process wrote to the terminal", "stty tostop",
     "fg, or stty -tostop"},
    {death, SIGCONT, "SIGCONT", "Continued", "a stopped process goes on", "fg, or kill -CONT", "nothing to do"},
    {death, SIGCHLD, "SIGCHLD", "Child exited", "a child of the process ended: hosts are children of their caller",
     "with it ignored, or a handler that waits for any child, the library does not learn how a host ended",
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
};

} // namespace

std::span<const Explanation> exit_rows()
{
    return rows;
}
