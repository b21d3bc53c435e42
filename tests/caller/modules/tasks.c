/* SPDX-License-Identifier: MIT
 *
 * A function module for the tests of the caller's side: functions of every argument kind, call-backs, and the ways in
 * which a module can die, hang or spoil the block. The environment says what happens at start. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include "ka/dll_host.h"
#include "ka/dll_module.h"
#include "ka/kastring.h"

/* ---- Values ---------------------------------------------------------------------------------------------------- */

static int32_t add(void **argv)
{
    *(uint32_t *)argv[2] = *(uint32_t *)argv[0] + *(uint32_t *)argv[1];
    return 0;
}

static int32_t elements(const void *argument)
{
    return KaArgInfo((uintptr_t)argument)->elcnt;
}

static int32_t double_integers(void **argv)
{
    int32_t *values = argv[0];
    for (int32_t i = 0; i < elements(argv[0]); i++)
        values[i] *= 2;
    return 0;
}

static int32_t scale(void **argv)
{
    double *values = argv[0];
    for (int32_t i = 0; i < elements(argv[0]); i++)
        values[i] *= *(double *)argv[1];
    return 0;
}

static int32_t greet(void **argv)
{
    return str2KaStr("good day", argv[0]);
}

static int32_t shout(void **argv)
{
    KaStr *strings = argv[0];
    char mark = '!';
    KaStr bang = {1, 1, &mark};
    for (int32_t i = 0; i < elements(argv[0]); i++) {
        const int32_t code = KaStrcat(&strings[i], &bang);
        if (code != 0) return code;
    }
    return 0;
}

static int32_t measure(void **argv)
{
    return (int32_t)strlen(argv[0]);
}

/* Sum of 100 * kind + elements over all arguments, to show how each arrived. */
static int32_t describe(void **argv)
{
    int32_t sum = 0;
    for (int32_t i = 0; i < KaFuncInfo()->argc; i++) {
        const t_DLL_ARGINFO *info = KaArgInfo((uintptr_t)argv[i]);
        sum += 100 * info->type + info->elcnt;
    }
    return sum;
}

static int32_t give_code(void **argv)
{
    return *(int32_t *)argv[0];
}

static int32_t count_call(void **argv)
{
    static int32_t calls;
    (void)argv;
    return ++calls;
}

static int32_t scratch_room(void **argv)
{
    char *scratch = dll_scratch(*(int32_t *)argv[0]);
    if (!scratch) return 0;
    memset(scratch, 's', (size_t) * (int32_t *)argv[0]);
    return 1;
}

/* ---- Call-backs ------------------------------------------------------------------------------------------------ */

static int32_t ask(void **argv)
{
    return dll_callback(*(int32_t *)argv[0]);
}

static int32_t ask_many(void **argv)
{
    int32_t sum = 0;
    for (int32_t i = 0; i < *(int32_t *)argv[0]; i++)
        sum += dll_callback(i);
    *(int32_t *)argv[1] = sum;
    return 0;
}

static int32_t block_word(int32_t offset)
{
    int32_t value;
    memcpy(&value, (char *)u_get_baseptr() + offset, 4);
    return value;
}

/* argv: offsets of cbval and retcode, a number of rounds, a sum. Each round calls back with the very value that
   is in cbval; at the end the very value that is in retcode is returned. So the block never changes. */
static int32_t ask_unseen(void **argv)
{
    int32_t sum = 0;
    for (int32_t i = 0; i < *(int32_t *)argv[2]; i++)
        sum += dll_callback(block_word(*(int32_t *)argv[0]));
    *(int32_t *)argv[3] = sum;
    return block_word(*(int32_t *)argv[1]);
}

/* argv: kinds, values, answers, offsets of cbval and retcode. Calls back once for each element but the last, and
   returns the last: a value as given, or for kind 1 the value of cbval at that moment, for kind 2 that of
   retcode. The values taken and the answers are given back. */
static int32_t play(void **argv)
{
    const int32_t *kinds = argv[0];
    int32_t *values = argv[1];
    int32_t *answers = argv[2];
    const int32_t last = elements(argv[0]) - 1;
    for (int32_t i = 0; i <= last; i++) {
        if (kinds[i] != 0) values[i] = block_word(*(int32_t *)argv[kinds[i] == 1 ? 3 : 4]);
        if (i < last) answers[i] = dll_callback(values[i]);
    }
    return values[last];
}

/* ---- Time and death -------------------------------------------------------------------------------------------- */

static int32_t nap(void **argv)
{
    const int32_t ms = *(int32_t *)argv[0];
    struct timespec left = {ms / 1000, ms % 1000 * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
        ;
    return 0;
}

/* Calls back after some time, and returns one more than the answer. The first performance sends its own process a
   SIGUSR2, as anybody could, and so asks for a second one. */
static int32_t ask_again(void **argv)
{
    static int32_t performances;
    int32_t ms = 20;
    void *nap_argv[] = {&ms};
    nap(nap_argv);
    const int32_t answer = dll_callback(*(int32_t *)argv[0]);
    if (++performances == 1) kill(getpid(), SIGUSR2);
    return answer + 1;
}

static int32_t hang(void **argv)
{
    (void)argv;
    while (pause() != 0)
        ;
    return 0;
}

/* Hangs, and does not hear SIGTERM. */
static int32_t hang_deaf(void **argv)
{
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, NULL);
    return hang(argv);
}

static int32_t die_by(void **argv)
{
    signal(SIGABRT, SIG_DFL);
    kill(getpid(), *(int32_t *)argv[0]);
    return hang(argv);
}

static int32_t fault(void **argv)
{
    (void)argv;
    *(volatile char *)mmap(NULL, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) = 1;
    return 0;
}

static int32_t leave(void **argv)
{
    _exit(*(int32_t *)argv[0]);
}

/* Dies at once, after a reply: signals the caller without having changed anything. */
static int32_t ring_and_die(void **argv)
{
    (void)argv;
    kill(getppid(), SIGUSR2);
    kill(getpid(), SIGKILL);
    return 0;
}

/* A child that sleeps for ever, in a session of its own when the argument says so; its process id. */
static int32_t fork_sleeper(void **argv)
{
    const pid_t child = fork();
    if (child != 0) return child;
    if (*(int32_t *)argv[0] != 0) setsid();
    for (;;)
        pause();
}

/* The errno with which the terminal cannot be read; 0 when it can. */
static int32_t read_terminal(void **argv)
{
    char byte;
    (void)argv;
    const int fd = open("/dev/tty", O_RDWR);
    return fd != -1 && read(fd, &byte, 1) >= 0 ? 0 : errno;
}

/* ---- Surroundings ---------------------------------------------------------------------------------------------- */

/* The value of the variable in place of its name; "none" for none. */
static int32_t variable(void **argv)
{
    char name[80] = "";
    KaStr *text = argv[0];
    memcpy(name, text->data, (size_t)text->len < sizeof name ? (size_t)text->len : sizeof name - 1);
    const char *value = getenv(name);
    return str2KaStr(value ? value : "none", text);
}

static int32_t count_variables(void **argv)
{
    int32_t count = 0;
    (void)argv;
    while (environ[count])
        count++;
    return count;
}

static int32_t directory(void **argv)
{
    char path[4096];
    return getcwd(path, sizeof path) ? str2KaStr(path, argv[0]) : errno;
}

/* ---- Standard error -------------------------------------------------------------------------------------------- */

/* So many bytes in pieces of uneven size: a running number in each eight of them. */
static int32_t write_errors(void **argv)
{
    const int32_t bytes = *(int32_t *)argv[0];
    char piece[8 * 1001 + 1];
    int32_t number = 0;
    for (int32_t written = 0; written < bytes;) {
        int32_t length = 0;
        while (length < (int32_t)sizeof piece - 1 && written + length < bytes)
            length += snprintf(piece + length, 9, "%07d\n", number++ % 10000000);
        for (int32_t done = 0; done < length;) {
            const ssize_t step = write(2, piece + done, (size_t)(length - done));
            if (step <= 0) return errno;
            done += (int32_t)step;
        }
        written += length;
    }
    return 0;
}

static void *write_in_thread(void *bytes)
{
    void *argv[] = {bytes};
    write_errors(argv);
    return NULL;
}

/* From a thread, which goes on after the call. */
static int32_t write_errors_later(void **argv)
{
    static int32_t bytes;
    pthread_t thread;
    bytes = *(int32_t *)argv[0];
    if (pthread_create(&thread, NULL, write_in_thread, &bytes) != 0) return 1;
    return pthread_detach(thread);
}

/* The bytes of a string, and dies. */
static int32_t cry_and_die(void **argv)
{
    KaStr *text = argv[0];
    if (write(2, text->data, (size_t)text->len) != text->len) return 1;
    kill(getpid(), SIGKILL);
    return 0;
}

/* ---- A hostile module ------------------------------------------------------------------------------------------ */

static int32_t lie_about_length(void **argv)
{
    KaStr *string = argv[0];
    memset(string->data, 'x', (size_t)string->maxlen);
    string->len = *(int32_t *)argv[1];
    return 0;
}

/* Gives argument 1, a REAL, impossible bytes, and sends the write-back elsewhere: argument 1's descriptor, whose
   offset in the block is in argument 3 and whose size in argument 4, gets the address of argument 2. */
static int32_t forge_real(void **argv)
{
    const int32_t descriptor = *(int32_t *)argv[2];
    const int32_t size = *(int32_t *)argv[3];
    char *base = u_get_baseptr();
    memset(u_get_arg(1).ptr, 0x7f, 12);
    memcpy(base + descriptor + 8, base + descriptor + size + 8, 4);
    return 0;
}

/* Overwrites magic, version, the descriptor of the function name, and the counts of argument 1, which gets 77. The
   descriptors begin at the offset in argument 1 and have the size in argument 2. */
static int32_t scribble(void **argv)
{
    const int32_t descriptors = *(int32_t *)argv[0];
    const int32_t size = *(int32_t *)argv[1];
    char *base = u_get_baseptr();
    memset(base, 0x55, 12);
    memset(base + descriptors, 0x7e, (size_t)size);
    memset(base + descriptors + size + (size == 24 ? 12 : 16), 0x7e, 12);
    *(int32_t *)argv[0] = 77;
    return 0;
}

/* Spoils base in a call without arguments, where nothing is looked up any more. */
static int32_t scribble_base(void **argv)
{
    (void)argv;
    memset((char *)u_get_baseptr() + offsetof(t_DLL_INFO32, base), 0x55, 4);
    return 0;
}

/* Spoils the four bytes of the block at that offset. */
static int32_t overwrite(void **argv)
{
    memset((char *)u_get_baseptr() + *(int32_t *)argv[0], 0x55, 4);
    return 0;
}

static int32_t overwrite_and_die(void **argv)
{
    overwrite(argv);
    kill(getpid(), SIGKILL);
    return 0;
}

/* Gives the REAL and the string in the block impossible values, and dies. */
static int32_t spoil_and_die(void **argv)
{
    (void)argv;
    const int32_t length = INT32_MAX;
    memset(u_get_arg(1).ptr, 0x7f, 12);
    memcpy(u_get_arg(2).ptr, &length, 4);
    kill(getpid(), SIGKILL);
    return 0;
}

/* Writes a return code into the block, at the offset in argument 1, long before it returns another. */
static int32_t pretend(void **argv)
{
    int32_t code = 77;
    int32_t ms = 100;
    void *nap_argv[] = {&ms};
    memcpy((char *)u_get_baseptr() + *(int32_t *)argv[0], &code, 4);
    nap(nap_argv);
    return 78;
}

/* The same once the caller sleeps: it has then taken every signal that came before the call. */
static int32_t pretend_to_sleeper(void **argv)
{
    char path[32];
    char state = 'R';
    snprintf(path, sizeof path, "/proc/%d/stat", (int)getppid());
    while (state != 'S') {
        FILE *file = fopen(path, "r");
        if (!file) return 1;
        if (fscanf(file, "%*d (%*[^)]) %c", &state) != 1) state = 'R';
        fclose(file);
    }
    return pretend(argv);
}

/* Writes a return code into the block, at the offset in argument 1, and dies before it returns any. */
static int32_t pretend_and_die(void **argv)
{
    int32_t code = 77;
    memcpy((char *)u_get_baseptr() + *(int32_t *)argv[0], &code, 4);
    kill(getpid(), SIGKILL);
    return 0;
}

/* Replies before its end, with 77 as the return code, whose offset is in argument 1. Then it hangs, or for an
   argument 2 other than 0 dies after so many milliseconds. */
static int32_t reply_early(void **argv)
{
    int32_t code = 77;
    memcpy((char *)u_get_baseptr() + *(int32_t *)argv[0], &code, 4);
    kill(getppid(), SIGUSR2);
    if (*(int32_t *)argv[1] == 0) return hang(argv);
    nap(argv + 1);
    kill(getpid(), SIGKILL);
    return 0;
}

/* From then on calls are dropped by the kernel. */
static int32_t ignore_calls(void **argv)
{
    (void)argv;
    signal(SIGUSR2, SIG_IGN);
    return 0;
}

static void nothing(int signal)
{
    (void)signal;
}

/* From then on calls come to a handler of the module's. */
static int32_t take_calls(void **argv)
{
    (void)argv;
    signal(SIGUSR2, nothing);
    return 0;
}

/* From then on the process is in a session and a group of its own; 0, or an errno. */
static int32_t leave_group(void **argv)
{
    (void)argv;
    return setsid() == -1 ? errno : 0;
}

/* Takes anything, and dies. */
static int32_t die_with(void **argv)
{
    (void)argv;
    kill(getpid(), SIGKILL);
    return 0;
}

/* ---- Tables ---------------------------------------------------------------------------------------------------- */

/* clang-format off */
t_DLL_PROTO KaArgList[] = {
    {"a", KA_INT_BY_VALUE, 0}, {"b", KA_INT_BY_VALUE, 0}, {"sum", KA_INT_BY_REFERENCE, 0},
    {"values", KA_INT_ARRAY, 1},                                                                  /* 3 */
    {"values", KA_REAL_ARRAY, 1}, {"factor", KA_REAL_BY_VALUE, 0},                                /* 4 */
    {"text", KA_STRING, 0},                                                                       /* 6 */
    {"texts", KA_STRING_ARRAY, 2},                                                                /* 7 */
    {"text", KA_ZSTRING, 0},                                                                      /* 8 */
    {"any", KA_VARARG, 0},                                                                        /* 9 */
    {"number", KA_INT_BY_VALUE, 0}, {"sum", KA_INT_BY_REFERENCE, 0},                              /* 10 */
    {"cbval", KA_INT_BY_VALUE, 0}, {"retcode", KA_INT_BY_VALUE, 0}, {"rounds", KA_INT_BY_VALUE, 0},
    {"sum", KA_INT_BY_REFERENCE, 0},                                                              /* 12 */
    {"text", KA_STRING, 0}, {"length", KA_INT_BY_VALUE, 0},                                       /* 16 */
    {"victim", KA_REAL_BY_REFERENCE, 0}, {"other", KA_REAL_BY_REFERENCE, 0},
    {"descriptor", KA_INT_BY_VALUE, 0}, {"size", KA_INT_BY_VALUE, 0},                             /* 18 */
    {"descriptors", KA_INT_BY_REFERENCE, 0}, {"size", KA_INT_BY_VALUE, 0},                        /* 22 */
    {"x", KA_REAL_BY_REFERENCE, 0}, {"factor", KA_REAL_BY_VALUE, 0},                              /* 24 */
    {"x", KA_REAL_BY_REFERENCE, 0}, {"text", KA_STRING, 0},                                       /* 26 */
    {"kinds", KA_INT_ARRAY, 1}, {"values", KA_INT_ARRAY, 1}, {"answers", KA_INT_ARRAY, 1},
    {"cbval", KA_INT_BY_VALUE, 0}, {"retcode", KA_INT_BY_VALUE, 0},                               /* 28 */
    {"odd\033[31m\nname", KA_INT_BY_VALUE, 0},                                                     /* 33 */
    {"retcode", KA_INT_BY_VALUE, 0}, {"ms", KA_INT_BY_VALUE, 0},                                  /* 34 */
};

t_DLL_FUNC KaFuncList[] = {
    {"add", 0, 3, NULL},
    {"double", 3, 1, NULL},
    {"scale", 4, 2, NULL},
    {"scale_one", 24, 2, NULL},
    {"greet", 6, 1, NULL},
    {"shout", 7, 1, NULL},
    {"measure", 8, 1, NULL},
    {"describe", 9, 1, NULL},
    {"give_code", 10, 1, NULL},
    {"count_call", 0, 0, NULL},
    {"scratch_room", 10, 1, NULL},
    {"ask", 10, 1, NULL},
    {"ask_many", 10, 2, NULL},
    {"ask_unseen", 12, 4, NULL},
    {"nap", 10, 1, NULL},
    {"hang", 0, 0, NULL},
    {"hang_deaf", 0, 0, NULL},
    {"die_by", 10, 1, NULL},
    {"fault", 0, 0, NULL},
    {"leave", 10, 1, NULL},
    {"ring_and_die", 0, 0, NULL},
    {"lie_about_length", 16, 2, NULL},
    {"forge_real", 18, 4, NULL},
    {"scribble", 22, 2, NULL},
    {"scribble_base", 0, 0, NULL},
    {"spoil_and_die", 26, 2, NULL},
    {"die_with", 9, 1, NULL},
    {"write_errors", 10, 1, NULL},
    {"write_errors_later", 10, 1, NULL},
    {"cry_and_die", 6, 1, NULL},
    {"play", 28, 5, NULL},
    {"pretend", 10, 1, NULL},
    {"ignore_calls", 0, 0, NULL},
    {"die_oddly", 33, 1, NULL},
    {"ask_again", 10, 1, NULL},
    {"take_calls", 0, 0, NULL},
    {"leave_group", 0, 0, NULL},
    {"pretend_to_sleeper", 10, 1, NULL},
    {"pretend_and_die", 10, 1, NULL},
    {"reply_early", 34, 2, NULL},
    {"overwrite", 10, 1, NULL},
    {"overwrite_and_die", 10, 1, NULL},
    {"fork_sleeper", 10, 1, NULL},
    {"read_terminal", 0, 0, NULL},
    {"variable", 16, 1, NULL},
    {"directory", 16, 1, NULL},
    {"count_variables", 0, 0, NULL},
    {NULL, 0, 0, NULL},
};

/* In the order of KaFuncList. */
static int32_t (*const functions[])(void **) = {
    add,
    double_integers,
    scale,
    scale,
    greet,
    shout,
    measure,
    describe,
    give_code,
    count_call,
    scratch_room,
    ask,
    ask_many,
    ask_unseen,
    nap,
    hang,
    hang_deaf,
    die_by,
    fault,
    leave,
    ring_and_die,
    lie_about_length,
    forge_real,
    scribble,
    scribble_base,
    spoil_and_die,
    die_with,
    write_errors,
    write_errors_later,
    cry_and_die,
    play,
    pretend,
    ignore_calls,
    die_with,
    ask_again,
    take_calls,
    leave_group,
    pretend_to_sleeper,
    pretend_and_die,
    reply_early,
    overwrite,
    overwrite_and_die,
    fork_sleeper,
    read_terminal,
    variable,
    directory,
    count_variables,
};
/* clang-format on */

int32_t KaCall(int32_t index, void **argv)
{
    return functions[index](argv);
}

static int leave_status;

static void leave_in_handler(int signal)
{
    (void)signal;
    _exit(leave_status);
}

/* Ends with that status when a call has been sent. */
static void leave_when_called(int status)
{
    sigset_t pending;
    do
        sigpending(&pending);
    while (!sigismember(&pending, SIGUSR2));
    _exit(status);
}

/* KA_TEST_SETUP: exitN ends with status N, callN likewise but not before a call is pending, hupsN likewise but at the
   first SIGHUP, killN ends by signal N, napsN sleeps N milliseconds, errsN writes N bytes to standard error. */
void dll_setup(void)
{
    const char *wish = getenv("KA_TEST_SETUP");
    if (!wish) return;
    int32_t number = atoi(wish + 4);
    void *argv[] = {&number};
    if (strncmp(wish, "exit", 4) == 0) leave(argv);
    if (strncmp(wish, "call", 4) == 0) leave_when_called(number);
    if (strncmp(wish, "hups", 4) == 0) {
        leave_status = number;
        signal(SIGHUP, leave_in_handler);
    }
    if (strncmp(wish, "kill", 4) == 0) die_by(argv);
    if (strncmp(wish, "naps", 4) == 0) nap(argv);
    if (strncmp(wish, "errs", 4) == 0) write_errors(argv);
}

/* KA_TEST_CLEANUP: a file that is made after a while. KA_TEST_LAST_ERRORS: bytes for standard error, before that. */
void dll_cleanup(void)
{
    const char *path = getenv("KA_TEST_CLEANUP");
    const char *bytes = getenv("KA_TEST_LAST_ERRORS");
    int32_t number = bytes ? atoi(bytes) : 0;
    void *errors[] = {&number};
    write_errors(errors);
    if (!path) return;
    int32_t ms = 200;
    void *argv[] = {&ms};
    nap(argv);
    close(open(path, O_WRONLY | O_CREAT, 0600));
}
