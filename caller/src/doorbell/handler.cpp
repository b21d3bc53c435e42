/* SPDX-License-Identifier: MIT
 *
 * While hosts are open, SIGUSR2 is theirs first: what they send is taken (waiters.cpp), everything else goes on to
 * the handler that the program had before. Where it had none such a signal is dropped: a host must not end the
 * program. */
#include "handler.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "base/thread.h"
#include "waiters.h"

/* A handler of the program in one of its two forms; both null when it had none. Written by install_handler alone, and
   kept after the end: a thread may still be on its way into our handler. */
namespace {
struct t_HANDLER {
    t_ATOMIC<void (*)(int)> plain;
    t_ATOMIC<void (*)(int, siginfo_t *, void *)> detailed;
};
} // namespace
static t_HANDLER first; /* the program's before it could know ours */
static t_HANDLER last;  /* in place when ours was installed last: the first, or one that has replaced ours since */
static struct sigaction earlier; /* the last, or what was in the place of ours when the last host was closed */

/* One that has replaced ours may call it in turn, as another copy of this library does: the second time the signal
   goes to the first handler, and the third time nowhere. In the initial TLS block, because the handler may not
   allocate. */
__attribute__((tls_model("initial-exec"))) static thread_local int handing_on;

static void hand_on(int number, siginfo_t *info, void *context)
{
    if (handing_on > 1) return;
    const t_HANDLER *handler = handing_on == 0 ? &last : &first;
    const auto plain = handler->plain.load();
    const auto detailed = handler->detailed.load();
    handing_on++;
    if (plain) plain(number);
    if (detailed) detailed(number, info, context);
    handing_on--;
}

static void on_signal(int number, siginfo_t *info, void *context)
{
    const int error = errno;
    if (!take_signal(info)) hand_on(number, info, context);
    errno = error;
}

static bool is_ours(const struct sigaction *action)
{
    return (action->sa_flags & SA_SIGINFO) != 0 && action->sa_sigaction == on_signal;
}

static bool has_handler(const struct sigaction *action)
{
    return (action->sa_flags & SA_SIGINFO) != 0 || (action->sa_handler != SIG_DFL && action->sa_handler != SIG_IGN);
}

static bool is_same(const struct sigaction *one, const struct sigaction *other)
{
    const bool detailed = (one->sa_flags & SA_SIGINFO) != 0;
    if (detailed != ((other->sa_flags & SA_SIGINFO) != 0)) return false;
    return detailed ? one->sa_sigaction == other->sa_sigaction : one->sa_handler == other->sa_handler;
}

static void keep_handler(t_HANDLER *handler, const struct sigaction *action)
{
    const bool detailed = (action->sa_flags & SA_SIGINFO) != 0;
    handler->plain = nullptr;
    handler->detailed = nullptr;
    if (!has_handler(action)) return;
    if (detailed)
        handler->detailed = action->sa_sigaction;
    else
        handler->plain = action->sa_handler;
}

/* SA_RESTART: a reply that reaches a thread of the program interrupts no system call that can be restarted. The mask
   is the earlier handler's, which runs inside ours. */
int install_handler(bool is_first)
{
    struct sigaction present;
    if (sigaction(SIGUSR2, nullptr, &present) != 0) return errno;
    if (is_ours(&present)) return 0;
    const bool is_known = is_same(&present, &earlier); /* it may call ours */
    earlier = present;
    keep_handler(&last, &present);
    if (is_first && !is_known) keep_handler(&first, &present);
    struct sigaction action = {};
    action.sa_sigaction = on_signal;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    action.sa_mask = present.sa_mask;
    return sigaction(SIGUSR2, &action, nullptr) == 0 ? 0 : errno;
}

/* ---- The end --------------------------------------------------------------------------------------------------- */

/* Takes what is pending; true when there was one for the program, which *foreign becomes. SIGUSR2 is blocked. */
static bool take_pending(const sigset_t *set, siginfo_t *foreign)
{
    constexpr struct timespec no_time = {};
    bool found = false;
    for (;;) {
        siginfo_t info;
        if (sigtimedwait(set, &info, &no_time) == -1) {
            if (errno == EINTR) continue;
            return found;
        }
        if (take_signal(&info)) continue;
        *foreign = info;
        found = true;
    }
}

bool handler_is_installed(void)
{
    struct sigaction present;
    return sigaction(SIGUSR2, nullptr, &present) == 0 && is_ours(&present);
}

void remove_handler_in_child(void)
{
    if (handler_is_installed()) sigaction(SIGUSR2, &earlier, nullptr);
}

void remove_handler(void)
{
    struct sigaction present;
    if (sigaction(SIGUSR2, nullptr, &present) != 0) return;
    if (!is_ours(&present)) {
        earlier = present;
        return;
    }
    sigset_t set;
    sigset_t before;
    siginfo_t foreign;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    const bool found = take_pending(&set, &foreign);
    sigaction(SIGUSR2, &earlier, nullptr);
    if (found && has_handler(&earlier)) send_back(&foreign);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
