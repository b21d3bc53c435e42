// SPDX-License-Identifier: MIT
//
// A caller's view of the shared block, written by hand: any field of any layout can be given any value, also a
// hostile one. Offsets and widths are typed here on their own, so that a host built from a wrong header is found out.
// The segment is marked for removal as soon as it is attached; it goes with the last process that has it.
#ifndef TESTS_HOST_BLOCK_H
#define TESTS_HOST_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>

namespace harness {

// The text after the identifier on the command line: nothing, ":32" (the same block) or ":64".
enum class Layout { native, layout_32, layout_64 };
void PrintTo(Layout layout, std::ostream *out); // how GoogleTest shows it

// Fields of the header, and of a descriptor.
enum class Head { version, pid, base, retcode, shmsz, scratch, cbval, argc };
enum class Arg { type, ref, ptr, maxlen, elsz, elcnt };

class Block {
public:
    // A segment of size_bytes with a valid header of this process and no arguments; every other byte is 0.
    explicit Block(Layout layout = Layout::native, int32_t size_bytes = 65536);
    ~Block();
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;

    Layout layout() const { return layout_; }
    int id() const { return id_; }
    int32_t size() const { return size_; }
    std::string argument() const; // for the host's command line

    // The bytes, by their distance from the segment's start. Not checked.
    char *at(int64_t offset) const { return data_ + offset; }
    std::string bytes() const { return {data_, static_cast<size_t>(size_)}; }
    template <class T>
    T load(int64_t offset) const
    {
        T value;
        std::memcpy(&value, at(offset), sizeof value);
        return value;
    }
    template <class T>
    void store(int64_t offset, T value)
    {
        std::memcpy(at(offset), &value, sizeof value);
    }

    // A field of the header, or of descriptor i (0 is the function name). Narrow fields keep the low bits of value;
    // addresses are read without sign.
    int64_t get(Head field) const;
    void set(Head field, int64_t value);
    int64_t get(int i, Arg field) const;
    void set(int i, Arg field, int64_t value);

    // The caller's address of a byte, counted from the base in force; set base first when it is to be another.
    int64_t address(int64_t offset) const { return get(Head::base) + offset; }
    // The byte that a stored address means: its signed 32-bit distance from base.
    int32_t offset_of(int64_t address) const { return static_cast<int32_t>(address - get(Head::base)); }

private:
    int64_t read(int64_t offset, int width) const;
    void write(int64_t offset, int width, int64_t value);

    Layout layout_;
    int32_t size_;
    int id_ = -1;
    char *data_ = nullptr;
};

} // namespace harness

#endif
