/* SPDX-License-Identifier: MIT
 *
 * See reply.h.
 *
 * A call-back and the end of a call arrive as the same signal; the host writes cbval before the one and retcode
 * before the other. So before the host is signalled both fields are given known values: cbval a fresh random word,
 * retcode another, or, for an answer, the answer itself. Then a changed cbval means a call-back and a changed retcode
 * the end; no value is reserved. Where the host writes the very value that was there, nothing changes, and its
 * state decides (doorbell/rest.cpp).
 *
 * A signal makes the library look, and is never counted: replies and signals of others merge, and one that arrives
 * late finds the block unchanged, which again is left to the host's state. Even a signal sent by the host proves
 * nothing: it may be a late reply to someone else's signal. So the sender is never looked at.
 *
 * A SIGUSR2 that anyone else sends to a waiting host makes it do what the block says. Therefore argc, without which
 * there is no call, is written last and reset at the end: such a signal then costs a refusal with KA_WRONG_COUNT, or
 * with KA_WRONG_TYPE when argc is reset while the host reads it. The refusal can fall into the
 * next call, before the host has seen its request; so these two codes are believed only when the host has taken the
 * request and is at rest. */
#include "reply.h"

#include <errno.h>
#include <signal.h>

#include "base/clock.h"
#include "base/pidfd.h"
#include "base/random.h"
#include "block/annex.h"
#include "block/segment.h"
#include "doorbell/doorbell.h"
#include "doorbell/rest.h"
#include "doorbell/wait.h"
#include "doorbell/wait_fd.h"
#include "doorbell/waiters.h"
#include "host/cancel.h"
#include "host/host.h"
#include "ka/dll_codes.h"
#include "process/regain.h"

/* Between two looks at a host. After a signal that did not decide, its state must, and that changes soon. Before any
   signal, a look only finds a reply whose signal was lost (the program may have replaced the handler, or ignore
   SIGUSR2) or whose number was overwritten. So the first wait is a long one: one that ends before the kernel's next
   tick makes it set its timer anew each time, which on virtual machines costs more than the whole exchange. */
enum : int64_t { FIRST_PAUSE_NS = 20000, LONGEST_PAUSE_NS = 50000000 };

/* ---- The request ----------------------------------------------------------------------------------------------- */

void prepare_reply(ka_host *host, int32_t retcode_before)
{
    host->waiting.cbval_before = random_word(&host->random);
    host->waiting.retcode_before = retcode_before;
    host->waiting.progress = {};
    store32(host, host->segment.layout->cbval, host->waiting.cbval_before);
    store32(host, host->segment.layout->retcode, host->waiting.retcode_before);
}

/* By its number where the annex, or the look at the child, has just told that it lives: that costs no look at the
   descriptor, which the program may have closed. A child that dies now keeps its number until the library waits for
   it; that of a command's child does not. */
static int signal_host(const ka_host *host)
{
    const bool is_child = host->process.command == 0;
    const bool by_number = is_child && (host->waiting.is_numbered || host->waiting.is_brief);
    if (!by_number) return signal_process(host->process.pid_fd, SIGUSR2);
    return kill(host->process.pid, SIGUSR2) == 0 ? 0 : errno;
}

/* 0 or an errno. argc goes last: until then a foreign signal finds no call. */
static int signal_request(ka_host *host, int32_t argc)
{
    const t_WAY way = host->waiting.is_quiet   ? WITHOUT_SIGNALS
                      : host->waiting.by_annex ? WITH_A_SIGNAL
                                               : WITH_SIGNALS;
    store32(host, host->segment.layout->argc, argc);
    number_request(host, way);
    host->waiting.is_quiet = host->waiting.is_quiet && wake_host(host);
    const int error = host->waiting.is_quiet ? 0 : signal_host(host);
    if (error == 0) host->building.sent = host->process.called = true;
    return error;
}

int send_request(ka_host *host, int32_t retcode_before, int32_t argc)
{
    prepare_reply(host, retcode_before);
    begin_wait(host);
    host->steps.signalled = false;
    host->steps.pause = LONGEST_PAUSE_NS;
    const int error = signal_request(host, argc);
    host->steps.may_spin = host->waiting.is_quiet;
    host->steps.look_at = now_ns() + LONGEST_PAUSE_NS;
    if (error == 0) return 0;
    host->building.overwritten = overwritten_fields(host, waiting_thread(host));
    end_wait(host);
    return error;
}

/* ---- The verdict ----------------------------------------------------------------------------------------------- */

/* Once an exchange, before anything is seen by a descriptor. False when the process cannot be found again. */
static bool find_process(ka_host *host)
{
    if (!host->waiting.is_found) host->waiting.is_found = regain_process(host);
    return host->waiting.is_found;
}

static t_REPLY judge_by_rest(ka_host *host)
{
    if (!find_process(host)) return {EVENT_DIED, 0};
    switch (look_for_rest(host)) {
    case AT_REST_IDLE:
        return {EVENT_RETURNED, load32(host, host->segment.layout->retcode)};
    case AT_REST_IN_CALLBACK:
        return {EVENT_CALLBACK, load32(host, host->segment.layout->cbval)};
    case REST_UNKNOWABLE:
        return {wait_until(host, -1, 0) & WOKEN_BY_DEATH ? EVENT_DIED : EVENT_UNKNOWABLE, 0};
    case NOT_AT_REST:
        break;
    }
    return {EVENT_NONE, 0};
}

static bool can_be_of_a_foreign_signal(int32_t return_code)
{
    return return_code == KA_WRONG_COUNT || return_code == KA_WRONG_TYPE;
}

/* Where the host rests without having replied, what it says about its waiting was overwritten, or the module takes
   its signals: then it gets the signal that was spared. */
static t_REPLY signal_at_rest(ka_host *host)
{
    const t_REPLY reply = judge_by_rest(host);
    if (reply.event != EVENT_RETURNED && reply.event != EVENT_CALLBACK) return reply;
    host->waiting.is_quiet = false;
    host->waiting.progress = {};
    const int error = signal_host(host);
    return {error == 0 ? EVENT_NONE : EVENT_DIED, 0};
}

/* Without a signal a changed block is not a reply yet: a module can have written there. Where replies carry a number,
   that alone is one; a host at rest without it has not heard the request, or its annex was overwritten. */
static t_REPLY judge(ka_host *host, bool replied)
{
    const t_NUMBERED numbered = host->waiting.is_numbered ? numbered_reply(host) : NOT_REPLIED;
    if (numbered == REPLY_CALLS_BACK) return {EVENT_CALLBACK, load32(host, host->segment.layout->cbval)};
    if (numbered == REPLY_RETURNS) return {EVENT_RETURNED, load32(host, host->segment.layout->retcode)};
    if (host->waiting.is_quiet) return signal_at_rest(host);
    if (host->waiting.is_numbered || !replied) return judge_by_rest(host);
    const int32_t value = load32(host, host->segment.layout->cbval);
    if (value != host->waiting.cbval_before) return {EVENT_CALLBACK, value};
    const int32_t return_code = load32(host, host->segment.layout->retcode);
    if (return_code != host->waiting.retcode_before && !can_be_of_a_foreign_signal(return_code))
        return {EVENT_RETURNED, return_code};
    return judge_by_rest(host);
}

int64_t next_pause(int64_t pause)
{
    if (pause < FIRST_PAUSE_NS) return FIRST_PAUSE_NS;
    return pause < LONGEST_PAUSE_NS / 2 ? pause * 2 : LONGEST_PAUSE_NS;
}

/* A wait that finds the host dead does not take its last signal, which a waiting thread has blocked again. */
static bool signal_is_pending(void)
{
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGUSR2) == 1;
}

/* Beside what else can end a wait: the block was changed in the first moment, and no signal came. */
enum { WOKEN_BY_CHANGE = 64 };

/* The first moment of a call that needs no descriptors. A death in it is seen after it, or when SIGCHLD interrupts
   it: in the safe way that mostly does, since the thread that started the host blocks all signals, and so the kernel
   keeps SIGCHLD even where nobody handles it. Where the program replaced the handler, its own can have taken the
   signal. */
static int wait_briefly(ka_host *host, int64_t until)
{
    host->waiting.is_brief = false;
    if (await_doorbell(host, until)) return WOKEN_BY_SIGNAL;
    const bool is_over = errno == EINTR && host->steps.is_interruptible;
    if (!block_doorbell(host)) return WOKEN_BY_SIGNAL;
    if (has_changed(host)) return WOKEN_BY_CHANGE;
    if (!is_over) return 0;
    return find_process(host) ? wait_until(host, -1, 0) | WOKEN_BY_HANDLER : WOKEN_BY_DEATH;
}

/* Without a sleep. */
static int look_now(ka_host *host)
{
    if (has_replied(host)) return WOKEN_BY_SIGNAL;
    if (host->waiting.is_waiting && await_doorbell(host, 0)) return WOKEN_BY_SIGNAL;
    const int woken = find_process(host) ? wait_until(host, -1, 0) : WOKEN_BY_DEATH;
    return woken == 0 && has_changed(host) && !host->waiting.is_numbered ? WOKEN_BY_CHANGE : woken;
}

/* What is seen of the process otherwise is looked at only when the time is over, or its life is not told any more. */
static int wait_for_reply(ka_host *host, int64_t until)
{
    if (host->steps.only_looks) return look_now(host);
    const int woken = host->waiting.is_brief ? wait_briefly(host, until) : 0;
    if (woken != 0) return woken;
    const t_LIFE_TOLD told = host->waiting.by_annex ? sleep_on_life(host, until) : LIFE_NOT_TOLD;
    if (has_replied(host)) return WOKEN_BY_SIGNAL;
    if (told == LIFE_INTERRUPTED) return WOKEN_BY_HANDLER;
    if (!block_doorbell(host)) return WOKEN_BY_SIGNAL;
    if (!find_process(host)) return WOKEN_BY_DEATH;
    return wait_until(host, -1, told == LIFE_TOLD ? 0 : until);
}

/* The host itself is looked at after every signal, and in lengthening pauses, since it need not signal again. The
   second look after the first signal comes without a pause: by then most hosts are at rest, and their state can be
   proved. */
static t_REPLY judge_wait(ka_host *host, int woken)
{
    t_STEPS *steps = &host->steps;
    const bool first_signal = (woken & WOKEN_BY_SIGNAL) && !steps->signalled;
    const bool look_twice = first_signal || (woken & WOKEN_BY_CHANGE);
    /* A reply is written before its signal; else it is another's. */
    const bool is_changed = first_signal && has_changed(host);
    steps->signalled |= is_changed;
    if (!is_changed && regain_doorbell(host)) disarm_wait_fd(host);
    if (woken & WOKEN_BY_DEATH) steps->signalled |= signal_is_pending();
    const t_REPLY reply = judge(host, steps->signalled);
    if ((woken & WOKEN_BY_DEATH) && reply.event != EVENT_RETURNED) return {EVENT_DIED, 0};
    if (reply.event != EVENT_NONE) return reply;
    const int64_t now = now_ns();
    if (now >= steps->deadline) return {EVENT_LATE, 0};
    steps->pause = look_twice ? 0 : next_pause(steps->pause);
    steps->look_at = now + steps->pause;
    return {EVENT_NONE, 0};
}

static int64_t earliest(int64_t one, int64_t other)
{
    return one < other ? one : other;
}

/* A step that is over, or that a handler has ended, leaves the host alone until the next look is due. One that is due
   at once belongs to it. */
static t_REPLY wait_and_judge(ka_host *host, int64_t until)
{
    t_STEPS *steps = &host->steps;
    bool is_over = false;
    for (;;) {
        const int woken = wait_for_reply(host, earliest(earliest(steps->look_at, steps->deadline), until));
        if (woken & WOKEN_BY_ERROR) return {EVENT_UNWAITED, errno};
        if ((woken & WOKEN_BY_CANCEL) || is_cancelled(host)) return {EVENT_CANCELLED, 0};
        is_over |= (woken & WOKEN_BY_HANDLER) != 0;
        if ((woken & ~WOKEN_BY_HANDLER) == 0) {
            const int64_t now = now_ns();
            is_over |= now >= until;
            if (is_over && now < earliest(steps->look_at, steps->deadline)) return {EVENT_NONE, 0};
        }
        const t_REPLY reply = judge_wait(host, woken);
        if (reply.event != EVENT_NONE) return reply;
        is_over |= now_ns() >= until;
        if (is_over && steps->pause != 0) return {EVENT_NONE, 0};
    }
}

/* At the end of the call argc goes first. */
t_REPLY await_reply(ka_host *host, int64_t until)
{
    if (host->steps.may_spin && !host->steps.only_looks) spin_for_reply(host);
    host->steps.may_spin &= host->steps.only_looks;
    const t_REPLY reply = wait_and_judge(host, until);
    if (reply.event == EVENT_NONE) return reply;
    if (reply.event == EVENT_RETURNED) store32(host, host->segment.layout->argc, 0);
    if (reply.event != EVENT_RETURNED) host->building.overwritten = overwritten_fields(host, waiting_thread(host));
    end_wait(host);
    return reply;
}
