// SPDX-License-Identifier: MIT
//
// See rows.h: what the caller's library says. The tests compare this table with the messages in its sources.
#include "ka/caller.h"
#include "rows.h"

namespace {

constexpr const char *error = "error of libkacall";

constexpr Explanation rows[] = {
    // ---- Errors of the caller's library
    {error, KA_DONE, "KA_DONE", "", "no error", "none", "nothing to do"},
    {error, KA_START, "KA_START", "cannot start %s: %s\n%s ended at start with status %d",
     "the module could not be started, or ended at start", "the text says what the system or the module answered",
     "ka check MODULE says what is missing"},
    {error, KA_REFUSED, "KA_REFUSED",
     "the module has no function \"%s\"\n"
     "takes %s, got %s\n"
     "takes no arguments\n"
     "(%s) is %s: takes %s, got %s\n"
     "the module's own table is wrong: %s",
     "the call does not suit the module's tables; nothing was sent",
     "a wrong name, or a wrong count, type or length of arguments; the text names the argument",
     "compare the call with ka list MODULE; the host can be used further"},
    {error, KA_DIED, "KA_DIED", "the host ended with status %d\nthe host was killed by %s",
     "the host ended by itself, or was killed", "a crash or an exit inside the function, or a kill from outside",
     "look at the report: the signal, the arguments, the last lines of standard error; explain the signal too"},
    {error, KA_DEADLINE, "KA_DEADLINE", "took more than %d ms\ndid not start within %d ms",
     "no answer in time; the host was ended", "the function hangs, waits, or works longer than the deadline allows",
     "give it longer (--deadline), or find out where it waits"},
    {error, KA_TOO_BIG, "KA_TOO_BIG", "needs a segment of %d bytes, this one has %d",
     "the call does not fit the shared segment", "the arguments together are larger than the segment",
     "open the host with a segment of the size that the error names (--segment)"},
    {error, KA_CLOSED, "KA_CLOSED", "the host has ended\n%s: the host was closed", "the host ended earlier",
     "an earlier call killed it, ran out of time or was cancelled, or it was closed or retired",
     "open it again, or choose a restart policy"},
    {error, KA_SYSTEM, "KA_SYSTEM", "", "the system refused something",
     "no memory, no right, or a limit of processes, descriptors or shared segments",
     "the text and errno name it; ulimit -a and ipcs -l show the limits"},
    {error, KA_ARGUMENT, "KA_ARGUMENT", "", "a bad argument, or a function out of turn",
     "the program gave the library something impossible; the text says what", "mend the program"},
    {error, KA_CANCELLED, "KA_CANCELLED", "was cancelled",
     "ka_cancel or the program's cancel descriptor ended a start or a call",
     "an interruption, SIGINT or SIGTERM in the case of ka", "nothing to do; the host was ended"},
    {error, NO_NUMBER, "", "its loader %s is missing (the %d-bit C library is not installed)",
     "this machine lacks what every program of the module's word size needs",
     "the C library of that word size is not installed",
     "install it, for 32 bits on Debian: dpkg --add-architecture i386, apt-get update, apt-get install libc6:i386; "
     "or build the module for the other word size"},
    {error, NO_NUMBER, "",
     "the command \"%s\" cannot be run: %s\n"
     "did not start under the command \"%s\" within %d ms\n"
     "its command \"%s\" %s\n"
     "under has no words; the first is the name of a command\n"
     "cannot keep the words of under",
     "the command that is to run the module (--under, ka_options.under) has not started it",
     "its name or its options are wrong, it ended before the module ran, or it waits for something",
     "try the command with another program in the module's place, and look at its standard error"},
    {error, NO_NUMBER, "",
     "cannot enter the directory %s: %s\n"
     "cannot tell where the program is",
     "the host cannot be started in its directory (ka_options.directory)",
     "there is no such directory, or this user may not enter it",
     "give the path of a directory, from the root on if the program changes its own"},
    {error, NO_NUMBER, "", "not executable", "the file may not be run", "its mode has no x bit for this user",
     "chmod +x"},
    {error, NO_NUMBER, "", "not an ELF file\na cut off ELF file\nan ELF file but not a program",
     "the file is not an executable", "a script, a text, a damaged copy or an object file was given",
     "give the path of the linked module"},
    {error, NO_NUMBER, "", "this system does not run %d-bit programs", "the kernel refused the file's format",
     "the kernel has 32 bits itself, or is built or started without 32-bit emulation",
     "build the module for the other word size, or enable IA32 emulation (ia32_emulation=1)"},
    {error, NO_NUMBER, "",
     "%s before ka_begin\n"
     "%s before ka_call\n"
     "%s inside a call-back of the same host; use a second host\n"
     "%s inside a call-back of the same host; ka_call must return first\n"
     "%s before ka_send\n"
     "%s without a call-back from ka_wait\n"
     "%s before ka_wait has ended the call that was sent\n"
     "%s before ka_answer has answered the call-back\n"
     "%s while a call is under way; ka_cancel and then ka_wait end it\n"
     "timeout_ms is %d; it must not be below -1\n"
     "%s was never opened: its options are wrong",
     "a function of the library was called when it could do nothing",
     "the order is ka_open, then for each call ka_begin, ka_add_..., ka_call, ka_get_...; in place of ka_call "
     "ka_send, "
     "then ka_wait and ka_answer until it returns; a call-back answers, and calls nothing of its own host",
     "put the calls in order; for a second call inside a call-back open a second host"},
    {error, NO_NUMBER, "", "%s: the host is used by another thread",
     "a second thread used a host while a function with it was at work; nothing was changed",
     "two threads share the host without a lock, or a garbage collector closed it beside a call",
     "use a host in one thread at a time; close it beside others with ka_retire"},
    {error, NO_NUMBER, "",
     "a call of %s with more than %d arguments\n"
     "argument %d of %s: %s\n"
     "a null REAL\n"
     "%s cannot be held by a REAL\n"
     "count is %d; it must not be below 0\n"
     "length is %d; it must not be below 0\n"
     "room is %d; it must not be below 0\n"
     "passing is %d; it is KA_BY_VALUE (%d) or KA_BY_REFERENCE (%d)\n"
     "a string of %d bytes is longer than its room of %d\n"
     "%s is not a REAL",
     "an argument that no call can have; nothing was sent",
     "the program gave ka_add_... a wrong count, length, room or passing, or a number that no REAL holds",
     "mend the argument that the text names"},
    {error, NO_NUMBER, "",
     "%s was called without an argument %d\n"
     "%s gives nothing back in argument %d\n"
     "argument %d of %s is %s, not %s\n"
     "argument %d of %s has %d elements, not %d\n"
     "the texts of argument %d of %s have more than %d bytes\n"
     "index is %d; it must not be below 0\n"
     "size is %d; it must not be below 0",
     "a result was asked for that the call does not have",
     "ka_get_... names an argument by number, from 1; only what goes by reference comes back, in the type and the "
     "count that was sent",
     "ask ka_gives_back first"},
    {error, NO_NUMBER, "",
     "checking is KA_CHECKED (0); descriptors can be seen and changed with KA_RAW (1) only\n%s has no argument %d "
     "yet",
     "a descriptor of the block cannot be set", "ka_set_descriptor changes an argument that was added to a raw call",
     "open the host with checking KA_RAW, and add the argument before"},
    {error, NO_NUMBER, "",
     "error_output is %d; it is KA_STDERR_INHERIT (%d) to KA_STDERR_RING (%d)\n"
     "ring_bytes is %d; KA_STDERR_RING needs at least 1\n"
     "reasons is %d; it is KA_REASONS_OFF (%d) or KA_REASONS_ON (%d)\n"
     "reasons is KA_REASONS_ON (%d); it needs error_output KA_STDERR_RING (%d)\n"
     "error_fd %d is not open\n"
     "cancel_fd %d is not open\n"
     "restart is %d; it is KA_RESTART_NEVER (%d) to KA_RESTART_AT_ONCE (%d)\n"
     "%s is %d; it must not be below 0\n"
     "options of %d bytes were not filled by ka_options_init\n"
     "deadline_ms is %d; it must be above 0\n"
     "trace_level is %d; it must be 0 to %d\n"
     "checking is %d; it is KA_CHECKED (%d) or KA_RAW (%d)\n"
     "layout is %d; it is KA_LAYOUT_NATIVE (%d) or KA_LAYOUT_64 (%d)\n"
     "segment_bytes is %d; it must be at least scratch_bytes (%d) + %d\n"
     "segment_bytes is %d; it must not be above %d\n"
     "segment_max is %d; it must be 0, or segment_bytes (%d) to %d\n"
     "waiting is %d; it is KA_WAIT_SAFE (%d) or KA_WAIT_FAST (%d)\n"
     "transport is %d; it is KA_TRANSPORT_SIGNALS (%d) to KA_TRANSPORT_PLAIN (%d)\n"
     "spin_us is %d; it must be 0 to %d",
     "an option of a host has an impossible value",
     "ka_options was not filled by ka_options_init, or a field is wrong",
     "give the field a value that ka/caller.h allows"},
    {error, NO_NUMBER, "", "waiting is %s, but open hosts of this program wait the %s way",
     "a program waits in one way for all its hosts", "two parts of the program open hosts with different waiting",
     "give both the same; KA_WAIT_SAFE suits every program"},
    {error, NO_NUMBER, "",
     "cannot create a signalfd\n"
     "cannot create a descriptor to wait for\n"
     "cannot wait for the host\n"
     "cannot handle SIGUSR2\n"
     "cannot read the host's state from /proc\n"
     "cannot signal the host\n"
     "process %d is left: %s\n"
     "SIGKILL does not end it\n"
     "cannot copy error_fd\n"
     "cannot keep the environment\n"
     "cannot keep the directory\n"
     "cannot keep the path\n"
     "cannot create a shared segment of %d bytes\n"
     "cannot reserve addresses for segment_max\n"
     "cannot write to a pipe\n"
     "cannot read from a pipe\n"
     "cannot create a process\n"
     "cannot create a pipe\n"
     "cannot collect the host's standard error",
     "the system refused what a host needs; its own reason follows the colon",
     "a limit of processes, descriptors, pipes or shared segments; a /proc that is not mounted; or a sandbox",
     "ulimit -a, ipcs -l and /proc/sys/kernel/shm* show the limits; close hosts that are not used"},
    {error, NO_NUMBER, "", "the module had overwritten the block's header (%s)",
     "the host ended after its module had written into fields that only the caller writes",
     "a pointer gone astray, or an array or string that was written past its end",
     "compare what the function writes with the lengths that it was given; ka call --trace 4 shows the block before "
     "the call"},
    {error, NO_NUMBER, "", "there is no memory for another host\nno memory", "the program has no memory left",
     "ulimit -v, a limit of the container, or a 32-bit program that is full", "raise the limit, or close hosts"},
    {error, NO_NUMBER, "", "ended, how is not known",
     "the host has ended, and somebody else has collected its exit status",
     "the program ignores SIGCHLD, or waits for any child",
     "leave the hosts to the library: wait for own children only"},
    {error, NO_NUMBER, "",
     "the program closed file descriptors of the library%s\n"
     "the program has closed the library's copy of error_fd",
     "the program has closed descriptors that it did not open",
     "closefrom, close_range or a loop over all descriptors, while a call was under way or a host had an error_fd",
     "close them between calls; a host with an error_fd is closed and opened again; raise ulimit -n where the "
     "system refuses others"},
    {error, NO_NUMBER, "", "the host was not ready for a call within %d ms",
     "the first call could not be sent: the module was still starting", "dll_setup takes long, or never returns",
     "a longer deadline; ka check MODULE starts it alone"},
    {error, NO_NUMBER, "", "dll_setup calls back, and call-backs before the first call are not answered",
     "the module waits in its start for an answer that does not come",
     "dll_callback is used in dll_setup, where no call is under way",
     "call back from functions; pass dll_setup what it needs by the environment or a file"},
    {error, NO_NUMBER, "", "was not answered: the module handles SIGUSR2 itself",
     "the host does not answer calls any more, and was ended",
     "the module, or a library that it uses, has installed a handler of SIGUSR2, the host's own signal",
     "give the other use of SIGUSR2 another signal"},
    {error, NO_NUMBER, "", "after %d ends in a row the host is not started again within %d ms",
     "the restart policy waits before the next start", "the module ends again and again, at start or in every call",
     "find out why it ends: ka check MODULE, its standard error, the report; a longer deadline covers the pause"},
    {error, NO_NUMBER, "",
     "its tables cannot be read: %s\n"
     "function %d has a name outside the module\n"
     "function %d has a name of more than %d bytes\n"
     "KaFuncList has no end within 100000 functions\n"
     "the tables take more than 64 MiB\n"
     "KaFuncList runs out of the module\n"
     "not a module: KaFuncList is missing\n"
     "not a module: KaArgList is missing",
     "the module's tables are not to be had, or damaged",
     "the program is not a module, it is one file (libkahost.a) linked without -rdynamic, KaFuncList does not end "
     "with a "
     "null name, or the tables are built at start",
     "ka check MODULE says where; ka list --start reads the tables of the running module"},
    {error, NO_NUMBER, "",
     "an ELF file with impossible program headers\n"
     "a program with more than %d relocations\n"
     "its relocations lie outside the file\n"
     "a program without dynamic symbols\n"
     "a program for another processor (ELF machine %d)\n"
     "no such file\n"
     "a directory\n"
     "not a regular file",
     "the path does not lead to a module",
     "a wrong path, a damaged copy, or a program that was built for something else",
     "give the path of the linked module; ka check MODULE says more"},
    {error, NO_NUMBER, "",
     "is not a host: it has no dll_debug\n"
     "is not a host: it has no KaFuncList\n"
     "does not let its dll_debug be read\n"
     "does not let its dll_debug be written\n"
     "has ended\n"
     "no permission to look into process %d: be its user or root, and see /proc/sys/kernel/yama/ptrace_scope\n"
     "cannot look into process %d: %s\n"
     "there is no process %d\n"
     "process %d has no program: it has ended, or belongs to the kernel\n"
     "process %d is %s\n"
     "process %d runs a program without dynamic symbols\n"
     "its trace level cannot be set: %s",
     "a process that was named as a host cannot be read or written",
     "it is not a host (its caller, perhaps), it has ended, or it belongs to somebody else",
     "ps -ef shows hosts as children of their caller; be their user or root"},
};

} // namespace

std::span<const Explanation> library_rows()
{
    return rows;
}
