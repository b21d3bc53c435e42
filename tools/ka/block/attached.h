// SPDX-License-Identifier: MIT
//
// Shared segments seen from outside: which processes have them attached, and their bytes, read only.
#ifndef KA_TOOL_BLOCK_ATTACHED_H
#define KA_TOOL_BLOCK_ATTACHED_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

struct Attached {
    pid_t pid;
    std::string command; // its first word
    // The layout it was started with, 0 or 64, when it is a host of the segment.
    std::optional<int> host_layout;
};

struct Segment {
    int id;
    size_t size;
    uint64_t attachments; // as the system counts them; processes of others may not be seen
    bool is_removed;      // vanishes with its last attachment
    pid_t creator;
    std::vector<Attached> processes;
};

// Null when there is no such segment, or it may not be looked at; then why says so.
std::optional<Segment> find_segment(int id, std::string &why);

// Identifiers of the segments that the process has attached. Null when its memory may not be looked at, it does not
// exist, or is in another IPC namespace; then why says so.
std::optional<std::vector<int>> segments_of(pid_t pid, std::string &why);

bool is_alive(pid_t pid);

// The segment's bytes, as long as the object lives.
class Attachment {
public:
    explicit Attachment(int id);
    ~Attachment();
    Attachment(const Attachment &) = delete;
    Attachment &operator=(const Attachment &) = delete;

    const char *data() const { return data_; } // null when it could not be attached; then errno says why

private:
    const char *data_;
};

#endif
