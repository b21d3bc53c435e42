/* SPDX-License-Identifier: MIT
 *
 * Bytes of an image, by pages: a table of thousands of small records and names is then read with few system calls. */
#include "image.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

t_IMAGE *create_image(t_READ_PAGE *read_page, const t_MACHINE *machine, pid_t pid, int fd)
{
    t_IMAGE *image = static_cast<t_IMAGE *>(calloc(1, sizeof *image));
    if (!image) return nullptr;
    image->read_page = read_page;
    image->machine = machine;
    image->pid = pid;
    image->fd = fd;
    return image;
}

void close_image(t_IMAGE *image)
{
    if (!image) return;
    if (image->fd != -1) close(image->fd);
    free(image->relocations.list);
    free(image);
}

static int read_page(t_IMAGE *image, uint64_t address, uint8_t *bytes)
{
    if (image->pages_read++ >= PAGES_READ_MAX) return EFBIG;
    return image->read_page(image, address, bytes);
}

/* The page that begins at the address, or null. It takes the place of the one that was read longest ago. */
static const t_PAGE *page_at(t_IMAGE *image, uint64_t address)
{
    for (const t_PAGE &kept : image->pages)
        if (kept.filled && kept.address == address) return &kept;
    t_PAGE *page = &image->pages[image->pages_read % PAGES_KEPT];
    const int error = read_page(image, address, page->bytes);
    page->address = address;
    page->filled = error == 0;
    if (error != 0) image->error = error;
    return page->filled ? page : nullptr;
}

uint64_t wrapped(const t_IMAGE *image, uint64_t address)
{
    return image->machine->bits == 64 ? address : static_cast<uint32_t>(address);
}

/* Addresses count up beyond the last one as they do in the program: from 0 again. */
bool read_image(t_IMAGE *image, uint64_t address, void *to, size_t size)
{
    uint8_t *at = static_cast<uint8_t *>(to);
    while (size > 0) {
        address = wrapped(image, address);
        const size_t inside = static_cast<size_t>(address % PAGE_BYTES);
        const t_PAGE *page = page_at(image, address - inside);
        if (!page) return false;
        const size_t left = PAGE_BYTES - inside;
        const size_t part = size < left ? size : left;
        memcpy(at, page->bytes + inside, part);
        at += part;
        address += part;
        size -= part;
    }
    return true;
}

bool read_words(t_IMAGE *image, uint64_t address, uint64_t *words, int32_t count)
{
    char bytes[WORDS_MAX * sizeof *words];
    const size_t width = word_bytes(image->machine);
    if (!read_image(image, address, bytes, static_cast<uint32_t>(count) * width)) return false;
    for (int32_t i = 0; i < count; i++)
        words[i] = word_in(image->machine, bytes + static_cast<uint32_t>(i) * width);
    return true;
}

/* Page by page: a table has many names, and each page is looked up once for a name. */
int32_t read_image_text(t_IMAGE *image, uint64_t address, char *buffer, int32_t size)
{
    for (int32_t length = 0; length < size;) {
        const uint64_t at = wrapped(image, address + static_cast<uint32_t>(length));
        const int32_t inside = static_cast<int32_t>(at % PAGE_BYTES);
        const t_PAGE *page = page_at(image, at - static_cast<uint32_t>(inside));
        if (!page) return TEXT_UNREADABLE;
        const int32_t left = PAGE_BYTES - inside;
        const int32_t part = size - length < left ? size - length : left;
        const void *copied = memccpy(buffer + length, page->bytes + inside, '\0', static_cast<size_t>(part));
        if (copied) return static_cast<int32_t>(static_cast<const char *>(copied) - buffer) - 1;
        length += part;
    }
    return TEXT_TOO_LONG;
}

bool is_filled_at_start(const t_IMAGE *image, uint64_t address, size_t size)
{
    if (image->pid != 0) return false;
    for (int32_t i = 0; i < image->program_header_count; i++) {
        const Elf64_Phdr *header = &image->program_headers[i];
        const uint64_t begin = end_of(header->p_vaddr, header->p_filesz);
        const uint64_t end = end_of(header->p_vaddr, header->p_memsz);
        const bool touched = begin < end && address < end && end_of(address, size) > begin;
        if (header->p_type == PT_LOAD && touched) return true;
    }
    return false;
}
