/* SPDX-License-Identifier: MIT
 *
 * The caller's record of a host, and what the sources of the library share. Nothing here is read back from the shared
 * block: the module can write there what it likes, so every offset, size and count that steers the library is kept in
 * this record. */
#ifndef KA_CALLER_HOST_H
#define KA_CALLER_HOST_H

#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "base/atomic.h"
#include "base/name.h"
#include "ka/caller.h"
#include "ka/dll_block.h"
#include "wire/annex.h"
#include "wire/layout.h"
#include "wire/spin.h"

/* One descriptor as it was written: 0 is the function name. */
struct t_ARGUMENT {
    int32_t type;
    int32_t passing;
    int32_t offset; /* of element 0 in the segment */
    int32_t room;   /* for characters of a string */
    int32_t stride; /* from element to element, bytes */
    int32_t count;
    bool gives_back; /* after a call: passed by reference, and not withdrawn by the module */
};

/* ORDER STATE */
enum t_STATE {
    STATE_ENDED,    /* no process; a segment that is there waits for the next one */
    STATE_READY,    /* started; no call begun */
    STATE_BUILDING, /* from ka_begin to ka_call or ka_send; the process may end before that */
    STATE_CALLING,  /* inside ka_call */
    STATE_SENT,     /* in steps: ka_wait is next */
    STATE_ASKED,    /* in steps: it calls back, and ka_answer is next */
    STATE_CALLED    /* results can be read */
};

/* The exit status of a host whose libraries the loader does not find; its own is KA_EXIT_START. */
enum { EXIT_LOADER = 127 };

/* When the last error happened. */
struct t_MOMENT {
    int64_t time_ns;  /* since 1970, UTC */
    int64_t after_ns; /* since the call began; -1 outside of calls */
    bool in_callback; /* the call had called back before */
};

/* A process that has ended, for the report. */
struct t_LAST_END {
    bool of_error; /* the last error ended the host, or was its end */
    bool by_library;
    uint32_t overwritten; /* fields of the block's header that the module had overwritten, as bits */
    pid_t pid;
    int32_t how;       /* CLD_EXITED, CLD_KILLED, CLD_DUMPED, or 0 when it is not known */
    int32_t status;    /* exit status or signal */
    char *backtrace;   /* what the inspector wrote, or null */
    ka_tables *tables; /* those it had, or null */
    char *output;      /* the last bytes of its standard error; null when there is no ring */
    int32_t output_length;
    int64_t output_bytes; /* it had written in all */
};
inline constexpr t_LAST_END no_last_end = {false, false, 0, 0, 0, 0, nullptr, nullptr, nullptr, 0, 0};

/* A process that could not be ended. */
struct t_LEFT {
    pid_t pid; /* 0 for none */
    int error; /* with which it cannot be signalled; 0 when it outlives SIGKILL */
};

/* Of a start that is under way. */
struct t_PIPES {
    int go[2];     /* the host's argument goes to the child when the segment is safe */
    int report[2]; /* errno comes back when the module cannot be executed; closed by a successful exec */
};
inline constexpr t_PIPES no_pipes = {{-1, -1}, {-1, -1}};

/* Where a sleeping process is: the text of /proc/PID/syscall. */
struct t_SLEEP_PLACE {
    int32_t length;
    char text[180];
};

/* Descriptors that are kept from call to call, in the order of host/owned.cpp, and by which file each is known. */
enum t_OWNED {
    OWNED_PROCESS,
    OWNED_DOORBELL,
    OWNED_STATUS,
    OWNED_SYSCALL,
    OWNED_ERRORS,
    OWNED_WAIT,
    OWNED_TIMER,
    OWNED_BELL,
    OWNED
};
struct t_FILE {
    uint64_t device;
    uint64_t inode;
};

struct t_INSPECTION;
struct t_STDERR_RING;
struct t_WAITER;

/* From ka_open to ka_close, whatever becomes of its processes. */
struct t_LIFE {
    t_STATE state;
    bool openable;           /* the options are sound: it can be started, and started again */
    pid_t caller;            /* this process */
    int error_fd;            /* KA_STDERR_FILE: a copy of the program's; else -1 */
    char **words;            /* ka_options.under and the module's path, with room for its argument; else null */
    int32_t word_count;      /* without the argument */
    char **environment;      /* ka_options.environment; null for that of the program */
    char *directory;         /* ka_options.directory; null for that of the program */
    int64_t started_ns;      /* when it was started last */
    int32_t deaths_in_a_row; /* ends and failed starts since the last call that succeeded */
    t_LEFT left;             /* reported by ka_close */
};
inline constexpr t_LIFE no_life = {STATE_ENDED, false, 0, -1, nullptr, 0, nullptr, nullptr, 0, 0, {}};

struct t_PROCESS {
    pid_t pid; /* until a command's host is found, the command itself */
    int pid_fd;
    int status_fd;              /* /proc/PID/status; follows the process, not the number */
    int syscall_fd;             /* /proc/PID/syscall likewise; -1 where it may not be read */
    bool called;                /* a request was sent to it */
    bool answered;              /* it has answered at least once */
    bool seen_waiting;          /* it was seen waiting for calls: it has started */
    t_SLEEP_PLACE idle_place;   /* of the idle host; empty when that is not known */
    t_STDERR_RING *stderr_ring; /* KA_STDERR_RING; else null */
    t_INSPECTION *inspection;   /* null without an inspector */
    pid_t command;              /* under which it runs and whose child it is; 0 when it is this process's own */
    pid_t guard;                /* of a command; 0 for none */
    bool attached;              /* a command's host was found */
};
inline constexpr t_PROCESS no_process = {0, -1, -1, -1, false, false, false, {}, nullptr, nullptr, 0, 0, false};

/* The work done for the process before its first call. The tables of a process that ended are in t_LAST_END. */
struct t_PREPARED {
    bool done;         /* its tables were read, as far as they can be, and its trace level was set */
    ka_tables *tables; /* null when they were not read, or cannot be */
};
inline constexpr t_PREPARED nothing_prepared = {false, nullptr};

/* What is known of the host's progress since it was last signalled; see doorbell/rest.cpp. */
struct t_PROGRESS {
    bool taken;  /* the signal was seen to be no longer pending */
    bool asleep; /* it was seen asleep after that */
};

/* SIGUSR2 of this host, and what its reply is known by. */
struct t_WAITING {
    bool is_open;    /* its doorbell */
    bool is_waiting; /* this thread waits for a signal */
    bool is_away;    /* between two steps: no thread waits, and the signal is noted */
    bool is_brief;   /* and for nothing else, in the first moment; see call/reply.cpp */
    bool is_blocked; /* KA_WAIT_SAFE: and blocks SIGUSR2 but for the wait, with the two masks below */
    bool is_found;   /* its process is known to have its descriptors in this exchange */
    t_WAITER *waiter;
    pid_t doorbell_thread; /* KA_WAIT_FAST: in which SIGUSR2 is blocked for this host; 0 for none */
    int doorbell_fd;       /* KA_WAIT_FAST: a signalfd for SIGUSR2 */
    sigset_t mask_before;
    sigset_t mask_waiting;  /* the same without SIGUSR2 */
    t_PROGRESS progress;    /* since the host was last signalled */
    int32_t cbval_before;   /* as it was before the host was signalled */
    int32_t retcode_before; /* likewise */
    uint32_t request;       /* the number of the last one, in the annex */
    bool is_numbered;       /* its reply carries that number */
    bool by_annex;          /* and comes without a signal */
    bool is_quiet;          /* and so does the request */
    t_SPIN spin;            /* of those */
};
inline constexpr t_WAITING no_waiting = {false, false, false, false, false, false, nullptr, 0,     -1, {},
                                         {},    {},    0,     0,     0,     false, false,   false, {}};

/* ORDER PHASE: what a call that is under way waits for. */
enum t_PHASE {
    PHASE_REPLY, /* a call-back, or the end */
    PHASE_CHECK, /* the same of a request that is refused; see call/steps.cpp */
    PHASE_IDLE   /* it has returned: until the host is idle again */
};

/* The call that is under way, from step to step. */
struct t_STEPS {
    t_PHASE phase;
    bool by_program;       /* which takes the steps itself; else ka_call does */
    bool is_interruptible; /* a signal handler of the program ends the wait */
    bool only_looks;       /* ka_wait with no time */
    bool may_spin;         /* the request has just been sent */
    bool signalled;        /* a signal has come since it was sent, and the block was changed */
    int32_t looks;         /* PHASE_IDLE: at a host that was not idle */
    int32_t return_code;   /* from PHASE_CHECK on */
    int64_t deadline;
    int64_t pause;   /* before the next look at the host itself */
    int64_t look_at; /* when that is due */
};

/* ka_cancel, which may run in any thread and handler while a call or a start is under way; see host/cancel.h. */
struct t_CANCEL {
    int32_t state;
    uint32_t *sleeps_on; /* a futex, or null */
    bool is_ending;      /* the process is being ended */
};

/* ka_wait_fd; see doorbell/wait_fd.h. */
struct t_WAIT_FD {
    int fd;       /* -1 until it is asked for; kept until the host is closed */
    int timer_fd; /* in it */
    int bell_fd;  /* in it, always readable; watched while it rings */
    int32_t mark; /* by which the three are known; see host/owned.cpp */
    bool is_armed;
    bool is_timed;           /* the timer is set */
    mutable bool is_ringing; /* written in handlers, too */
    int64_t pause;           /* before the next look for a signal that was lost */
};
inline constexpr t_WAIT_FD no_wait_fd = {-1, -1, -1, 0, false, false, false, 0};

/* The segment in this process. */
struct t_SEGMENT {
    char *base; /* null when there is none */
    const t_LAYOUT *layout;
    t_ANNEX *annex; /* behind the block; null when there is no segment */
    int32_t id;
    int32_t size;           /* as the block says, which may be a little less than was allocated */
    int32_t scratch_offset; /* the scratch area, or the end of the segment when there is none */
    char *reserved;         /* addresses for it to grow, at whose end it lies; null without ka_options.segment_max */
    size_t reserved_bytes;
    bool is_private; /* it has grown, and the next process is the first that gets it; until then id is the old one */
    void *old;       /* which a process may be about to attach; else null */
};
inline constexpr t_SEGMENT no_segment = {nullptr, nullptr, nullptr, 0, 0, 0, nullptr, 0, false, nullptr};

/* The call that was begun last. */
struct t_BUILDING {
    int32_t error; /* the first since ka_begin, or KA_DONE */
    int32_t argc;
    int32_t given_argc;
    bool argc_is_given;    /* given_argc is sent instead of argc */
    bool begun;            /* it was checked, and its output begins */
    bool sent;             /* a request for it has gone out */
    bool in_callback;      /* it has called back */
    uint32_t overwritten;  /* fields of the header, as found at the end of the call, before the header was mended */
    int64_t cursor;        /* end of the values so far; beyond the room when the call is too big */
    int64_t called_ns;     /* when ka_call or ka_send began; 0 when no call is under way */
    int64_t output_before; /* bytes on standard error before it was sent; see call/reason.cpp */
};
inline constexpr t_BUILDING no_building = {KA_DONE, 0, 0, false, false, false, false, 0, 0, 0, 0};

/* As much as a function of ka/module.hpp says, even if each byte is shown as four. */
enum { SHOWN_REASON = 2048 };

struct ka_host {
    mutable t_ATOMIC<uintptr_t> owner; /* the thread inside; see owner.h */
    t_ATOMIC<bool> retired;            /* whoever comes out removes it */
    t_ATOMIC<int32_t> held;      /* threads that see to that; while there is one no other host gets the record */
    t_ATOMIC<int32_t> shown_pid; /* for ka_pid, in any thread */
    void (*remove)(ka_host *host);

    ka_error error;
    t_MOMENT moment; /* of the error */
    t_LAST_END last_end;
    char *report; /* the one that was asked for last, or null */
    ka_options options;
    char *module;

    ka_host *next;  /* of all hosts of this process; see process/fork.cpp */
    ka_host **link; /* what points to this one */
    t_PIPES pipes;

    t_LIFE life;
    t_PROCESS process;
    t_PREPARED prepared;
    t_WAITING waiting;
    t_SEGMENT segment;
    t_FILE owned[OWNED]; /* what the descriptors in these groups are */
    uint64_t random;

    t_BUILDING building;
    t_STEPS steps;
    t_CANCEL cancel;
    t_WAIT_FD wait_fd;
    char reason[SHOWN_REASON]; /* of the call's code; empty for none */
    ka_error build_failure;    /* the record of building.error */
    char function[SHOWN_NAME]; /* for messages: cut, and made printable */
    t_ARGUMENT arguments[DLL_MAX_ARGC];
};

/* error.cpp: store the error and return its class. */
__attribute__((format(printf, 3, 4))) int32_t fail(ka_host *host, int32_t error_class, const char *format, ...);
__attribute__((format(printf, 2, 3))) void set_error_message(ka_host *host, const char *format, ...);
int32_t fail_system(ka_host *host, int error_number, const char *what);
int32_t clear_error(ka_host *host); /* KA_DONE */

/* turn.cpp: which function may be called in which state. KA_DONE, or the error that was stored. */
enum t_TURN {
    TURN_BEGIN,
    TURN_ADD,
    TURN_DESCRIPTOR,
    TURN_CALL,
    TURN_SEND,
    TURN_WAIT,
    TURN_ANSWER,
    TURN_GET,
    TURN_TABLES,
    TURN_TRACE,
    TURN_RESTART,
    TURN_CLOSE
};
int32_t take_turn(ka_host *host, t_TURN turn);

/* Whether the reply to the next request is to come as a signal. */
inline bool wants_signals(const ka_host *host)
{
    return host->options.cancel_fd != -1 || (host->steps.by_program && host->wait_fd.fd != -1);
}

/* Whether a host that has ended is started again for the next call. */
inline bool can_restart(const ka_host *host)
{
    return host->options.restart != KA_RESTART_NEVER && host->segment.base && !host->retired;
}

#endif
