// SPDX-License-Identifier: MIT
//
// The segment, and the places of every field in the narrow and the wide layout.
#include "host/block.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <system_error>

namespace harness {
namespace {

struct Place {
    int offset;
    int width; // bytes; negative: an address of that width, read without sign
};

struct Wire {
    int args;      // offset of descriptor 0
    int arg_size;  // distance between descriptors
    Place head[8]; // ORDER Head
    Place arg[6];  // ORDER Arg
};

// clang-format off
//                             version  pid      base      retcode  shmsz    scratch   cbval    argc
constexpr Wire narrow = {40, 24, {{8, 4}, {12, 4}, {16, -4}, {20, 4}, {24, 4}, {28, -4}, {32, 4}, {36, 4}},
                                 {{0, 4}, {4, 4},  {8, -4},  {12, 4}, {16, 4}, {20, 4}}};
constexpr Wire wide   = {48, 32, {{8, 4}, {12, 4}, {16, -8}, {24, 4}, {28, 4}, {32, -8}, {40, 4}, {44, 4}},
                                 {{0, 4}, {4, 4},  {8, -8},  {16, 4}, {20, 4}, {24, 4}}};
//                             type     ref      ptr       maxlen   elsz     elcnt
// clang-format on

const Wire &wire(Layout layout)
{
    return layout == Layout::layout_64 ? wide : narrow;
}

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

void PrintTo(Layout layout, std::ostream *out)
{
    static const char *const names[] = {"native", "layout_32", "layout_64"}; // ORDER Layout
    *out << names[static_cast<int>(layout)];
}

Block::Block(Layout layout, int32_t size_bytes) : layout_(layout), size_(size_bytes)
{
    id_ = shmget(IPC_PRIVATE, static_cast<size_t>(size_bytes), IPC_CREAT | 0600);
    if (id_ == -1) fail("shmget");
    void *const address = shmat(id_, nullptr, 0);
    const int error = errno;
    shmctl(id_, IPC_RMID, nullptr);
    errno = error;
    if (address == reinterpret_cast<void *>(-1)) fail("shmat");
    data_ = static_cast<char *>(address);
    std::memcpy(data_, "KA.DLL\0\0", 8);
    set(Head::version, 0x101);
    set(Head::pid, getpid());
    set(Head::base, static_cast<int64_t>(reinterpret_cast<uintptr_t>(data_)));
    set(Head::shmsz, size_bytes);
}

Block::~Block()
{
    shmdt(data_);
}

std::string Block::argument() const
{
    static const char *const suffixes[] = {"", ":32", ":64"}; // ORDER Layout
    return std::to_string(id_) + suffixes[static_cast<int>(layout_)];
}

int64_t Block::read(int64_t offset, int width) const
{
    switch (width) {
    case -8:
        return load<int64_t>(offset);
    case -4:
        return load<uint32_t>(offset);
    default:
        return load<int32_t>(offset);
    }
}

void Block::write(int64_t offset, int width, int64_t value)
{
    if (width == -8) {
        store(offset, value);
    } else {
        store(offset, static_cast<int32_t>(value));
    }
}

int64_t Block::get(Head field) const
{
    const Place place = wire(layout_).head[static_cast<int>(field)];
    return read(place.offset, place.width);
}

void Block::set(Head field, int64_t value)
{
    const Place place = wire(layout_).head[static_cast<int>(field)];
    write(place.offset, place.width, value);
}

int64_t Block::get(int i, Arg field) const
{
    const Place place = wire(layout_).arg[static_cast<int>(field)];
    return read(wire(layout_).args + int64_t{wire(layout_).arg_size} * i + place.offset, place.width);
}

void Block::set(int i, Arg field, int64_t value)
{
    const Place place = wire(layout_).arg[static_cast<int>(field)];
    write(wire(layout_).args + int64_t{wire(layout_).arg_size} * i + place.offset, place.width, value);
}

} // namespace harness
