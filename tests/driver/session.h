// SPDX-License-Identifier: MIT
//
// A host that runs the module driver or a variant of it, its block, and calls with a script.
#ifndef TESTS_DRIVER_SESSION_H
#define TESTS_DRIVER_SESSION_H

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "driver/script.h"
#include "driver/tables.h"
#include "host/host_process.h"
#include "ka/dll_block.h"
#include "ka/dll_codes.h"

namespace harness {
std::ostream &operator<<(std::ostream &out, Layout layout); // "native" or "layout_64", also for the names of tests
}

namespace driver {

using harness::Arg;
using harness::Argument;
using harness::Block;
using harness::Head;
using harness::Layout;
using harness::Start;

inline Step step(Op op, int32_t a = 0, int32_t b = 0, int32_t c = 0)
{
    return {op, a, b, c, 0, {}};
}
Step set_double(int32_t slot, int32_t element, double value);
Step set_text(int32_t slot, int32_t element, std::string_view text); // at most 7 characters

// A start with the trace on.
Start traced(int level, const std::string &module = "driver");

class Session {
public:
    explicit Session(Layout layout = Layout::native, Start how = {.module = "driver"}, int32_t size_bytes = 65536)
        : block(layout, size_bytes), host(block, std::move(how))
    {
    }

    Block block;
    harness::HostProcess host;

    // Returns the return code. The script is what the function does.
    int32_t call(std::string_view function, const std::vector<Argument> &arguments = {},
                 const std::vector<Step> &script = {}, const std::vector<int32_t> &answers = {});
    // The same up to the doorbell, for a call that is changed by hand.
    void prepare(std::string_view function, const std::vector<Argument> &arguments = {},
                 const std::vector<Step> &script = {});

    // The text of host and function on standard error since this was called last.
    std::string output();
    // Where the host has attached the segment, as the kernel reports.
    uint64_t host_address() const;
    // Offset of the segment's byte that an argument's value begins at.
    int32_t at(int argument) const { return block.offset_of(block.get(argument, Arg::ptr)); }
    HeapCount heap() const { return block.load<HeapCount>(heap_offset); }
    void clear_heap() { block.store(heap_offset, HeapCount{}); }

private:
    size_t taken_ = 0; // bytes of the host's output
};

void write_script(Block &block, const std::vector<Step> &script);

// Names of parameterised tests.
std::string name_of(Layout layout);

} // namespace driver

#endif
