// SPDX-License-Identifier: MIT
//
// A block with an annex, and the caller's side of it by hand: requests and answers without a signal, where the host
// allows it. The module is probe, or another one with its function serve.
#ifndef TESTS_HOST_QUIET_CALLER_H
#define TESTS_HOST_QUIET_CALLER_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "host/probe.h"
#include "host/probe_mailbox.h"
#include "wire/annex.h"

namespace harness {

class QuietBlock : public Block {
public:
    QuietBlock() : Block(Layout::native, block_bytes + static_cast<int32_t>(wire::ANNEX_MARK))
    {
        set(Head::shmsz, block_bytes);
        place(*this, "serve"); // which fills the rest, the annex too
        annex() = {};
        std::memcpy(annex().magic, wire::ANNEX_MAGIC, sizeof annex().magic);
        annex().caller = getpid();
        annex().without_signal = 1;
        annex().spin_us = 50;
    }
    t_ANNEX &annex() { return *static_cast<t_ANNEX *>(static_cast<void *>(at(block_bytes))); }
    static uint32_t word(const uint32_t &of_annex) { return __atomic_load_n(&of_annex, __ATOMIC_SEQ_CST); }
    bool has_reply(bool callback) { return word(annex().reply) == wire::reply_to(word(annex().request), callback); }
    void number_request(bool answers = false)
    {
        annex().answers = answers ? 1 : 0;
        __atomic_add_fetch(&annex().request, 1, __ATOMIC_SEQ_CST);
    }

private:
    static constexpr int32_t block_bytes = 65536;
};

class QuietProbe : public Probe {
public:
    explicit QuietProbe(QuietBlock &block, Start how = {.module = "probe"})
        : Probe(Idle{}, block, std::move(how)), block_(block)
    {
        await_idle();
    }

    // The host is woken as it says that it waits. True without a signal.
    bool request(bool answers = false)
    {
        block_.number_request(answers);
        uint32_t waits = wire::HOST_IN_SIGSUSPEND;
        t_ANNEX &annex = block_.annex();
        const bool suspended = __atomic_compare_exchange_n(&annex.waits, &waits, uint32_t{wire::HOST_SIGNALLED},
                                                           false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
        if (suspended) ring();
        if (waits == wire::HOST_SLEEPS_ON_REQUEST)
            syscall(SYS_futex, &annex.request, FUTEX_WAKE, 1, nullptr, nullptr, 0);
        return !suspended;
    }

    bool answer_callback(int32_t value)
    {
        block_.set(Head::retcode, value);
        return request(true);
    }

    // The host is in its function, into which a signal has brought it.
    void enter_by_signal()
    {
        await_suspended();
        request();
        ask(PROBE_BASE);
    }
    // The next call is asked for while this one runs, so the host finds it right after its reply.
    void leave_and_enter_quietly()
    {
        block_.number_request();
        begin_return(0);
        ask(PROBE_BASE);
    }
    void leave(int32_t code = 0)
    {
        begin_return(code);
        await([this] { return block_.has_reply(false); }, "the reply");
    }
    // Likewise: the answer is there before the call-back.
    int32_t callback_answered_quietly(int32_t value, int32_t answer)
    {
        block_.set(Head::retcode, answer);
        block_.number_request(true);
        return ask(PROBE_CALLBACK, value);
    }
    void await_callback()
    {
        await([this] { return block_.has_reply(true); }, "the call-back");
    }
    void await_suspended()
    {
        await([this] { return QuietBlock::word(block_.annex().waits) == wire::HOST_IN_SIGSUSPEND; },
              "the wait for a signal");
        await_idle();
    }
    int32_t out(int i) { return block_.load<int32_t>(mailbox_offset + 12 + 4 * i); }
    int32_t handled() { return block_.load<int32_t>(mailbox_offset + static_cast<int>(offsetof(Mailbox, handled))); }

private:
    void begin_return(int32_t code)
    {
        begin(PROBE_RETURN, code);
        await([this] { return block_.load<int32_t>(mailbox_offset) == MAILBOX_EMPTY; }, "the return");
    }
    QuietBlock &block_;
};

} // namespace harness

#endif
