// SPDX-License-Identifier: MIT
//
// A host with the module probe, held inside a call, whose functions the test uses one at a time.
#ifndef TESTS_HOST_PROBE_H
#define TESTS_HOST_PROBE_H

#include <ostream>

#include "host/host_process.h"

namespace harness {

struct SeenArgument {
    int32_t type, ref, offset, maxlen, elsz, elcnt;
    uint64_t address; // the pointer itself
    bool operator==(const SeenArgument &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const SeenArgument &arg)
{
    return out << "type " << arg.type << ", ref " << arg.ref << ", offset " << arg.offset << ", maxlen " << arg.maxlen
               << ", elsz " << arg.elsz << ", elcnt " << arg.elcnt << ", address " << arg.address;
}

class Probe : public HostProcess {
public:
    // Starts the host and enters the call, with the arguments given or with what the block holds already.
    explicit Probe(Block &block, const std::vector<Argument> &arguments = {}, Start how = {.module = "probe"});

    // For a block prepared by hand, and for a second call.
    struct Idle {};
    Probe(Idle, Block &block, Start how = {.module = "probe"}) : HostProcess(block, std::move(how)), block_(block) {}
    void enter(const std::vector<Argument> &arguments = {});

    // Gives a command and waits until it is done.
    int32_t ask(int32_t command, int32_t value = 0);
    // The two halves of that, for commands that take the test's help or kill the host.
    void begin(int32_t command, int32_t value = 0);
    int32_t finish();

    SeenArgument arg(int32_t i);
    uint64_t base(); // u_get_baseptr
    // A whole call-back: returns what dll_callback returned.
    int32_t callback(int32_t value, int32_t answer_value);
    // Ends the call; returns retcode.
    int32_t leave(int32_t code = 0);

private:
    int32_t state() const;
    Block &block_;
};

} // namespace harness

#endif
