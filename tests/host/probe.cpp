// SPDX-License-Identifier: MIT
#include "host/probe.h"

#include "host/probe_mailbox.h"

namespace harness {
namespace {

constexpr int32_t at_state = mailbox_offset + offsetof(Mailbox, state);
constexpr int32_t at_command = mailbox_offset + offsetof(Mailbox, command);
constexpr int32_t at_value = mailbox_offset + offsetof(Mailbox, value);
constexpr int32_t at_out = mailbox_offset + offsetof(Mailbox, out);

// Read and written by both processes while both run.
int32_t *state_word(const Block &block)
{
    return static_cast<int32_t *>(static_cast<void *>(block.at(at_state)));
}

} // namespace

Probe::Probe(Block &block, const std::vector<Argument> &arguments, Start how)
    : HostProcess(block, std::move(how)), block_(block)
{
    enter(arguments);
}

void Probe::enter(const std::vector<Argument> &arguments)
{
    place(block_, "serve", arguments);
    ring();
    ask(PROBE_BASE);
}

void Probe::begin(int32_t command, int32_t value)
{
    block_.store(at_command, command);
    block_.store(at_value, value);
    __atomic_store_n(state_word(block_), MAILBOX_FULL, __ATOMIC_RELEASE);
}

int32_t Probe::state() const
{
    return __atomic_load_n(state_word(block_), __ATOMIC_ACQUIRE);
}

int32_t Probe::finish()
{
    await([this] { return state() == MAILBOX_DONE; }, "the end of a command");
    return block_.load<int32_t>(at_out);
}

int32_t Probe::ask(int32_t command, int32_t value)
{
    begin(command, value);
    return finish();
}

uint64_t Probe::base()
{
    ask(PROBE_ADDRESS);
    return block_.load<uint64_t>(at_out);
}

SeenArgument Probe::arg(int32_t i)
{
    ask(PROBE_ARG, i);
    return block_.load<SeenArgument>(at_out);
}

int32_t Probe::callback(int32_t value, int32_t answer_value)
{
    begin(PROBE_CALLBACK, value);
    await_signal();
    answer(answer_value);
    return finish();
}

int32_t Probe::leave(int32_t code)
{
    begin(PROBE_RETURN, code);
    await_signal();
    return static_cast<int32_t>(block_.get(Head::retcode));
}

} // namespace harness
