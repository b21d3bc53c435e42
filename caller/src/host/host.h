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

#include "base/name.h"
#include "ka/caller.h"
#include "ka/dll_block.h"
#include "wire/layout.h"

/* One descriptor as it was written: 0 is the function name. */
struct t_SLOT {
    int32_t type;
    int32_t passing;
    int32_t offset; /* of element 0 in the segment */
    int32_t room;   /* for characters of a string */
    int32_t stride; /* from element to element, bytes */
    int32_t count;
    bool gives_back; /* after a call: passed by reference, and not withdrawn by the module */
};

enum t_STATE {
    STATE_ENDED,    /* no process; a segment that is there waits for the next one */
    STATE_READY,    /* started; no call begun */
    STATE_BUILDING, /* from ka_begin to ka_call; the process may have ended before, or meanwhile */
    STATE_CALLING,  /* inside ka_call */
    STATE_CALLED    /* results can be read */
};

/* What is known of the host's progress since it was last signalled; see doorbell/rest.cpp. */
struct t_PROGRESS {
    bool taken;  /* the signal was seen to be no longer pending */
    bool asleep; /* it was seen asleep after that */
};

/* When the last error happened. */
struct t_MOMENT {
    int64_t time_ns;  /* since 1970, UTC */
    int64_t after_ns; /* since the call began; -1 outside of calls */
    bool in_callback; /* the call had called back before */
};

/* What is kept of a process that has ended, to be reported. */
struct t_REMAINS {
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
};

/* A process that could not be ended. */
struct t_LEFT {
    pid_t pid; /* 0 for none */
    int error; /* with which it cannot be signalled; 0 when it outlives SIGKILL */
};

/* Of a start that is under way; -1 otherwise. */
struct t_PIPES {
    int go[2];     /* the host's argument goes to the child when the segment is safe */
    int report[2]; /* errno comes back when the module cannot be executed; closed by a successful exec */
};

/* Where a sleeping process is: the text of /proc/PID/syscall. */
struct t_WHEREABOUTS {
    int32_t length;
    char text[180];
};

/* Descriptors that are kept from call to call, in the order of host/owned.cpp, and by which file each is known. */
enum t_OWNED { OWNED_PROCESS, OWNED_DOORBELL, OWNED_STATUS, OWNED_SYSCALL, OWNED_ERRORS, OWNED };
struct t_FILE {
    uint64_t device;
    uint64_t inode;
};

struct t_INSPECTION;
struct t_RING;
struct t_LISTENER;

struct ka_host {
    ka_error error;
    t_MOMENT moment; /* of the error */
    t_REMAINS remains;
    t_LEFT left;  /* to be told by ka_close */
    char *report; /* the one that was asked for last, or null */
    ka_options options;
    char *module;

    ka_host *next;  /* of all hosts of this process; see process/fork.cpp */
    ka_host **link; /* what points to this one */
    t_PIPES pipes;

    pid_t caller;          /* this process */
    pid_t doorbell_thread; /* KA_WAIT_FAST: in which SIGUSR2 is blocked for this host; 0 for none */
    t_LISTENER *listener;  /* KA_WAIT_SAFE */
    bool doorbell_open;
    bool hears;          /* KA_WAIT_SAFE: this thread waits, with the two masks below */
    bool openable;       /* the options are sound: it can be started, and started again */
    bool prepared;       /* its tables were read, as far as they can be, and its trace level was set */
    bool answered;       /* this process has answered at least once */
    bool seen_waiting;   /* it was seen waiting for calls: it has started */
    bool sent;           /* a request for the call that was begun has gone out */
    bool in_callback;    /* the call that was begun has called back */
    bool argc_is_given;  /* given_argc is sent instead of argc */
    t_PROGRESS progress; /* since the host was last signalled */
    t_STATE state;
    sigset_t mask_before;
    sigset_t mask_waiting; /* the same without SIGUSR2 */

    char *base; /* of the segment in this process; null when there is none */
    const t_LAYOUT *layout;
    int32_t segment_id;
    int32_t segment_size;   /* as the block says, which may be a little less than was allocated */
    int32_t scratch_offset; /* the scratch area, or the end of the segment when there is none */

    pid_t pid;
    int pid_fd;
    int doorbell_fd;          /* KA_WAIT_FAST: a signalfd for SIGUSR2 */
    int status_fd;            /* /proc/PID/status; follows the process, not the number */
    int syscall_fd;           /* /proc/PID/syscall likewise; -1 where it may not be read */
    t_WHEREABOUTS idle;       /* what it says of the idle host; empty when that is not known */
    int error_fd;             /* KA_STDERR_FILE: a copy of the program's; else -1 */
    t_FILE owned[OWNED];      /* what these descriptors are, the doorbell's among them */
    t_RING *ring;             /* KA_STDERR_RING: while there is a process; else null */
    t_INSPECTION *inspection; /* null when nobody looks at the host's end */
    ka_tables *tables;        /* null when they were not read, or cannot be */

    int64_t called_ns;  /* when ka_call began; 0 outside */
    int64_t started_ns; /* when it was started last */
    int32_t losses;     /* ends and failed starts since the last call that succeeded */

    uint32_t overwritten; /* as found at the end of the call, before the header was mended */

    int32_t mark;  /* cbval as it was before the host was signalled */
    int32_t known; /* retcode likewise */
    uint64_t random;

    int32_t build_error;    /* the first error since ka_begin, or KA_DONE */
    ka_error build_failure; /* its record */
    int32_t argc;
    int32_t given_argc;
    int64_t cursor;            /* end of the values so far; beyond the room when the call is too big */
    char function[SHOWN_NAME]; /* for messages: cut, and made printable */
    t_SLOT slots[DLL_MAX_ARGC];
};

/* error.cpp: store the error and return its class. */
__attribute__((format(printf, 3, 4))) int32_t fail(ka_host *host, int32_t error_class, const char *format, ...);
__attribute__((format(printf, 2, 3))) void set_error_text(ka_host *host, const char *format, ...);
int32_t fail_system(ka_host *host, int error_number, const char *what);
int32_t clear_error(ka_host *host); /* KA_DONE */

/* Whether a host that has ended is started again for the next call. */
inline bool can_restart(const ka_host *host)
{
    return host->options.restart != KA_RESTART_NEVER && host->base;
}

#endif
