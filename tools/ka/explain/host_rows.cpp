// SPDX-License-Identifier: MIT
//
// See rows.h: what a host writes. Where a message can take several forms, or comes in pieces, each form has a line.
#include "rows.h"

namespace {

constexpr const char *start = "message of a host that cannot start";
constexpr const char *refusal = "trace line of a refused call";
constexpr const char *trace = "trace line";
constexpr const char *fatal = "last words of a host";
constexpr const char *test = "last words of a unit test";

constexpr Explanation rows[] = {
    // ---- What a host writes: at start
    {start, NO_NUMBER, "", "%s: Illegal call", "the host was not given exactly one argument",
     "a module is not a command: it was started by hand, or by a caller that gives too much",
     "start it through a caller: ka call MODULE FUNCTION [ARGUMENT...]"},
    {start, NO_NUMBER, "", "%s: Illegal argument: %s", "the layout after the colon is not 0, 32 or 64",
     "the caller asks for a layout that does not exist", "start it with SEGMENT, SEGMENT:32 or SEGMENT:64"},
    {start, NO_NUMBER, "", "shmat: %s\nshmat", "the shared segment could not be attached",
     "the identifier is wrong, the segment is gone, or belongs to another user",
     "ipcs -m lists the segments; caller and host must be of one user and one IPC namespace"},
    {start, NO_NUMBER, "", "Bad DLL_MAGIC", "the segment holds no block of this kind",
     "its first 8 bytes are not \"KA.DLL\" and two zero bytes: a wrong identifier, or the caller wrote no "
     "header",
     "ka dump SEGMENT shows what is there"},
    {start, NO_NUMBER, "", "Unsupported DLL_VERSION %x", "the block is of another version",
     "the caller writes another version than 101 (hexadecimal)", "use a caller and a host of the same version"},

    // ---- What a host writes: refusals, levels 2 and 3
    {refusal, NO_NUMBER, "", "illegal argument count, function name is required", "the call has no function name: 9",
     "argc in the block is 0 or less; a stray SIGUSR2 between calls looks so", "write the call before the signal"},
    {refusal, NO_NUMBER, "", "argument count exceeds maximum (%d)", "the call has too many arguments: 606",
     "argc in the block is above 51", "pass many values as one array"},
    {refusal, NO_NUMBER, "", "first argument must be function name", "descriptor 0 is not a STRING: 8",
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
     "level 3: an argument: its prototype's name and kind, then the type, the number of elements and the way "
     "passed",
     "dll_debug is 3 or more", "when it is the last line of a call, this argument was refused (8, 17 or -1)"},
    {trace, NO_NUMBER, "", "dll base = %s", "level 4: the block dump begins, with the host's address of the block",
     "dll_debug is 4 or more", "ka dump PID shows the same with values decoded"},
    {trace, NO_NUMBER, "", "argc = %d\n# %d",
     "level 4: number of descriptors, and of the descriptor whose fields follow", "dll_debug is 4 or more",
     "descriptor 0 is the function name"},
    {trace, NO_NUMBER, "", "type   = %s\nDLL_???", "level 4: the value type; DLL_??? is not a value type",
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
     "Assertion `ofs >= 0 && ofs < dll_info->shmsz' failed\n"
     "Assertion `ofs >= 0 && ofs < ((t_DLL_INFO32 *)dll_info)->shmsz' failed\n"
     "Assertion `ofs >= 0 && ofs < ((t_DLL_INFO64 *)dll_info)->shmsz' failed\n"
     "ofs >= 0 && ofs < dll_info->shmsz\n"
     "ofs >= 0 && ofs < ((t_DLL_INFO32 *)dll_info)->shmsz\n"
     "ofs >= 0 && ofs < ((t_DLL_INFO64 *)dll_info)->shmsz",
     "an address in the block lies outside the segment; the host aborted",
     "u_get__arg: the ptr of an argument; dll_scratch: the scratch field. Or base, shmsz "
     "or the layout is wrong: it must be the one that the host was started with",
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

    // ---- What libkahost_test writes
    {test, NO_NUMBER, "",
     "ka: unit test: %sa null REAL\n"
     "ka: unit test: %sa double that cannot be held by a REAL\n"
     "ka: unit test: \"%s\" is not a REAL\n"
     "ka: unit test: %sa string longer than its room\n"
     "ka: unit test: %sstrings of different maxlen",
     "the test calls a function with a value that no caller can send", "the argument that is named, counted from 1",
     "give another value; to a string more room"},
    {test, NO_NUMBER, "",
     "ka: unit test: %sform is none of the KA_TEST_ ones\n"
     "ka: unit test: %selsz is less than an element needs\n"
     "ka: unit test: %sshift is not 0 to 7\n"
     "ka: unit test: %svalues is null, and count above 1\n"
     "ka: unit test: layout is neither 32 nor 64",
     "the test asks for an argument or a block that does not exist", "a wrong field of a record of ka/module_test.h",
     "the header tells what is allowed"},
    {test, NO_NUMBER, "",
     "ka: unit test: %ssegment_bytes is too small for it\n"
     "ka: unit test: segment_bytes is too small for the arguments\n"
     "ka: unit test: segment_bytes is too small for scratch_bytes\n"
     "ka: unit test: no memory",
     "the values of a call do not fit its block, or there is no memory for one",
     "more than a megabyte of values, or small settings", "set segment_bytes of ka_test_settings"},
    {test, NO_NUMBER, "",
     "ka: unit test: a call inside of a call, or after one that was left by a jump or an exception\n"
     "ka: unit test: the module is ended in a call\n"
     "ka: unit test: a caller is closed in a call\n"
     "ka: unit test: dll_callback outside of a call, where no caller answers",
     "the test, or the module, does what cannot be done at that moment",
     "a call in the answer to a call-back, or an answer that does not return (longjmp); a call-back in dll_setup, in "
     "dll_cleanup or in the test itself",
     "keep the question, and make the call when the first one is over"},
};

} // namespace

std::span<const Explanation> host_rows()
{
    return rows;
}
