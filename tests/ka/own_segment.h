// SPDX-License-Identifier: MIT
//
// A shared segment of the test's own, and a call written into it by hand.
#ifndef TESTS_KA_OWN_SEGMENT_H
#define TESTS_KA_OWN_SEGMENT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <sys/shm.h>
#include <unistd.h>

#include "ka/decimal.h"
#include "ka/dll_block.h"

struct OwnSegment {
    explicit OwnSegment(size_t size) : id(shmget(IPC_PRIVATE, size, 0600))
    {
        EXPECT_NE(id, -1);
        bytes = static_cast<char *>(shmat(id, nullptr, 0));
    }
    ~OwnSegment()
    {
        shmdt(bytes);
        shmctl(id, IPC_RMID, nullptr);
    }
    OwnSegment(const OwnSegment &) = delete;
    OwnSegment &operator=(const OwnSegment &) = delete;

    int id;
    char *bytes;
};

// The caller's address of the block; the test is its caller only in name.
constexpr uint32_t own_base = 0x40000000;

// A header without a call. Info is t_DLL_INFO32 or t_DLL_INFO64.
template <typename Info>
Info *write_block(char *bytes, int32_t size)
{
    Info *info = new (bytes) Info{};
    std::memcpy(info->magic, DLL_MAGIC, sizeof info->magic);
    info->version = DLL_VERSION;
    info->pid = getpid();
    info->base = own_base;
    info->shmsz = size;
    return info;
}

// A string's element: its length and characters.
inline void write_string(char *at, const std::string &text)
{
    const auto length = static_cast<int32_t>(text.size());
    std::memcpy(at, &length, sizeof length);
    std::memcpy(at + sizeof length, text.data(), text.size());
}

// scale('name', [-7, 8], 12.5 by reference): a value of each type after the header, at 3000, 3100, 3200 and 3300.
template <typename Info>
void write_call(Info *info, char *bytes)
{
    const int32_t integers[] = {-7, 8};
    const t_DECIMAL real = {1, DEC_POSITIVE, 2, {12, 50}};
    write_string(bytes + 3000, "scale");
    write_string(bytes + 3100, "it's\n");
    std::memcpy(bytes + 3200, integers, sizeof integers);
    std::memcpy(bytes + 3300, &real, sizeof real);
    const auto describe = [info](int32_t type, int32_t ref, uint32_t offset, int32_t room, int32_t elsz,
                                 int32_t elcnt) {
        auto &arg = info->args[info->argc++];
        arg.type = type;
        arg.ref = ref;
        arg.ptr = own_base + offset;
        arg.maxlen = room;
        arg.elsz = elsz;
        arg.elcnt = elcnt;
    };
    describe(DLL_STRING, 0, 3000, 5, 3, 1);
    describe(DLL_STRING, 1, 3100, 20, 6, 1);
    describe(DLL_INTEGER, 0, 3200, 0, 1, 2);
    describe(DLL_REAL, 1, 3300, 0, 3, 1);
}

#endif
