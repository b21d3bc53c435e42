// SPDX-License-Identifier: MIT
//
// What a host writes on standard error: it goes on to that of ka as it comes, and what one call has written is kept,
// for the reason of its return code.
#ifndef KA_TOOL_CALL_ERROR_OUTPUT_H
#define KA_TOOL_CALL_ERROR_OUTPUT_H

#include <memory>
#include <string>

#include "ka/caller.h"

class ErrorOutput {
public:
    // The host's goes through here; where there is no pipe or no thread for it, to that of ka itself.
    void collect(ka_options &settings);

    // All that is there goes on at once: before ka itself writes something.
    void flush() const;

    // From here on it is that of one call.
    void begin() const;

    // The text of the last line "ka: FUNCTION: TEXT" since then; empty when there is none.
    std::string reason(const std::string &function) const;

private:
    struct Pipe;
    std::shared_ptr<Pipe> pipe_; // null: nothing is collected
};

#endif
